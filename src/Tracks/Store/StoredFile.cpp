// SPDX-License-Identifier: MIT
#include "Tracks/Store/StoredFile.h"

#include "Foundation/Text/Log.h"
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

Refusal storeLocked(const std::string& path, const std::function<Refusal(FileHandle&)>& store)
{
    const auto file = FileHandle::fileHandleForUpdatingAtPath(path);
    if (!file)
        return "it cannot be opened for writing";
    const FileLock lock = file->lock();
    if (!isAIFF(*file))
        return "it is no AIFF or AIFF-C file";
    if (const auto settlement = settlementOf(*file))
        settle(*file, *settlement);
    if (!isChecked(*file))
        return "its form does not have the file's size";
    return store(*file);
}

} // namespace

void readStoredFile(const std::string& path, const std::function<void(FileHandle&)>& read)
{
    bool isCompletable = false;
    if (const auto file = FileHandle::fileHandleForReadingAtPath(path)) {
        const FileLock lock = file->lock();
        if (auto settlement = settlementOf(*file)) {
            isCompletable = !settlement->patches.empty();
            FileHandle view = settledView(*file, *std::move(settlement));
            read(view);
        } else if (isChecked(*file)) {
            read(*file);
        }
    }
    if (isCompletable)
        settleFileAtPath(path, true);
}

bool storeInFile(const std::string& path, const std::function<Refusal(FileHandle&)>& store)
{
    const Refusal refusal = storeLocked(path, store);
    if (refusal) {
        Log("QMXAudioTrackInfoWriter: track information not stored in %@: %@", path, *refusal);
        Log("UNABLE TO WRITE APPLICATION INFORMATION TO AUDIO FILE");
    }
    return !refusal;
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
