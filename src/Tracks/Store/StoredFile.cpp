// SPDX-License-Identifier: MIT
#include "Tracks/Store/StoredFile.h"

#include "AudioToolbox/AudioFile.h"
#include "CoreServices/Files.h"
#include "Foundation/Text/Log.h"
#include "Tracks/Store/ApplicationChunk.h"
#include "Tracks/Store/QMXAIFFUtility.h"
#include "Tracks/Store/StoreJournal.h"

namespace qmx
{
namespace
{

bool isChecked(FileHandle& file)
{
    return QMXAIFFUtility::checkFileAtPath_shouldRepair(file, false) != 0;
}

StoreFailure wrongFormSize()
{
    return {kAudioFileInvalidFileError, "its form does not have the file's size"};
}

StoreFailure notAIFF()
{
    return {kAudioFileUnsupportedFileTypeError, "it is no AIFF or AIFF-C file"};
}

/// The file, if it can be opened.
Refusal open(const std::string& path, FileAccess access, std::optional<FileHandle>& handle)
{
    std::unique_ptr<File> file;
    const SystemError error = FileSystem::current().open(path, access, file);
    handle.emplace(std::move(file));
    return refusalFor(error);
}

Refusal storeLocked(const std::string& path, const std::function<Refusal(FileHandle&)>& store)
{
    std::optional<FileHandle> file;
    if (auto refusal = open(path, FileAccess::readWrite, file))
        return refusal;
    const FileLock lock = file->lock();
    if (!isAIFF(*file))
        return notAIFF();
    if (const auto settlement = settlementOf(*file))
        settle(*file, *settlement);
    if (!isChecked(*file))
        return wrongFormSize();
    return store(*file);
}

Refusal readLocked(const std::string& path, bool& isCompletable, const std::function<void(FileHandle&)>& read)
{
    std::optional<FileHandle> file;
    if (auto refusal = open(path, FileAccess::read, file))
        return refusal;
    const FileLock lock = file->lock();
    if (auto settlement = settlementOf(*file)) {
        isCompletable = !settlement->patches.empty();
        FileHandle view = settledView(*file, *std::move(settlement));
        read(view);
    } else if (isChecked(*file)) {
        read(*file);
    } else {
        return wrongFormSize();
    }
    return std::nullopt;
}

} // namespace

Refusal refusalFor(SystemError error)
{
    return error == 0 ? std::nullopt : Refusal({statusForSystemError(error), systemErrorText(error)});
}

std::optional<StoredRecord> readRecord(const std::string& path, LastFailure& failure,
                                       const std::function<FoundArchive(FileHandle&)>& find)
{
    std::optional<StoredRecord> record;
    (void)attempt(failure, path, "could not be read", [&]() -> Refusal { // the result reports a failure
        FoundArchive found;
        bool isCompletable = false;
        Refusal refusal = readLocked(path, isCompletable, [&](FileHandle& file) { found = find(file); });
        if (isCompletable)
            settleFileAtPath(path, true);
        if (!refusal)
            record = recordFrom(found.bytes);
        if (!refusal && !record && found.hasChunk)
            refusal = {kAudioFileInvalidChunkError, "its tracks are damaged or of another version"};
        return refusal;
    });
    return record;
}

bool storeRecord(const std::string& path, const StoredRecord& record, LastFailure& failure,
                 const std::function<Refusal(FileHandle&, std::span<const UInt8>)>& store)
{
    return attempt(failure, path, notStored, [&]() -> Refusal {
        const std::vector<UInt8> archive = archiveOf(record);
        if (archive.empty())
            return StoreFailure{paramErr, "there is no record"};
        Refusal refusal = storeLocked(path, [&](FileHandle& file) { return store(file, archive); });
        if (refusal) {
            Log("QMXAudioTrackInfoWriter: track information not stored in %@: %@", path, refusal->reason);
            Log("UNABLE TO WRITE APPLICATION INFORMATION TO AUDIO FILE");
        }
        return refusal;
    });
}

std::optional<StoreSize> measureStore(const std::string& path, const StoredRecord& record, LastFailure& failure)
{
    StoreSize size;
    const bool isMeasured = attempt(failure, path, notStored, [&]() -> Refusal {
        const std::vector<UInt8> archive = archiveOf(record);
        if (archive.empty())
            return StoreFailure{paramErr, "there is no record"};
        Refusal refusal;
        bool isCompletable = false;
        const Refusal unread = readLocked(path, isCompletable, [&](FileHandle& file) {
            refusal = isAIFF(file) ? measureArchive(file, archive, lastUsableChunk(file, trackSignature),
                                                    {applicationBlockSize, trackSignature, ByteOrder::big}, size)
                                   : notAIFF();
        });
        return unread ? unread : refusal;
    });
    return isMeasured ? std::optional(size) : std::nullopt;
}

bool settleFileAtPath(const std::string& path, bool needsLock)
{
    const auto file = FileHandle::fileHandleForUpdatingAtPath(path);
    if (!file)
        return false;
    const FileLock lock = file->lock();
    const auto settlement = settlementOf(*file);
    if (!settlement || (needsLock && !lock.excludesOtherProcesses()))
        return false;
    settle(*file, *settlement);
    return true;
}

} // namespace qmx
