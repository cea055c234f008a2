// SPDX-License-Identifier: MIT
#include "support/TrackStore.h"

#include "support/Failure.h"
#include "support/Recording.h"

#include <QMXCoreAudio/FileRelated/QMXAudioFile.h>
#include <QMXCoreAudio/Foundation/ByteFields.h>
#include <QMXCoreAudio/Foundation/Text/Format.h>
#include <QMXCoreAudio/Tracks/Store/QMXAIFFUtility.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoReaderWriterFactory.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string_view>

namespace example
{
namespace
{

using Factory = QMXAudioTrackInfoReaderWriterFactory;

/// Sets the form's size to the file's. The library's own repair keeps an odd size odd, because a form may leave out the
/// last chunk's pad byte.
void setFormSize(const std::string& path)
{
    const auto file = qmx::FileHandle::fileHandleForUpdatingAtPath(path);
    if (!file)
        return;
    const qmx::FileLock lock = file->lock();
    const SInt64 size = file->seekToEndOfFile() - 8;
    if (size < 4 || size > std::numeric_limits<UInt32>::max())
        return;
    std::array<UInt8, 4> field{};
    qmx::store32(field.data(), static_cast<UInt32>(size), qmx::ByteOrder::big);
    file->seekToFileOffset(4);
    (void)file->writeData(field); // the caller checks the file afterwards
}

} // namespace

void checkCanStore(const std::string& path, AudioFileTypeID type)
{
    if (type != kAudioFileAIFFType && type != kAudioFileAIFCType)
        throw Failure{path + ": tracks can be stored in AIFF and AIFF-C files only"};
    if (!Factory::writerWithAudioFilePath(path))
        throw Failure{path + ": tracks can be stored in files called .aif, .aiff or .aifc only"};
}

Record readRecord(const std::string& path, bool force)
{
    const auto reader = Factory::readerWithAudioFilePath(path);
    Record record = reader ? reader->read() : nullptr;
    const OSStatus status = reader ? reader->lastStatus() : noErr;
    const bool isUnreadable = status == kAudioFileInvalidChunkError;
    if (status == noErr || (force && isUnreadable))
        return record;
    throw Failure{reader->lastError() + (isUnreadable ? " (--force stores others all the same)"
                                         : status == kAudioFileInvalidFileError ? " (--repair mends that)"
                                                                                : "")};
}

void storeRecord(const std::string& path, const Record& record)
{
    const auto writer = Factory::writerWithAudioFilePath(path);
    writer->setTrackAndProcessingInfo(record);
    writer->write();
    if (writer->lastStatus() != noErr)
        throw Failure{writer->lastError()};
}

void storeProcessingRange(const std::string& path, Record record, std::shared_ptr<QMXAudioProcessingRangeInfo> range)
{
    if (!record)
        record = QMXTrackAndProcessingInfo::init();
    record->addAudioProcessingInfo(std::move(range));
    record->setFileHasBeenProcessed(true);
    storeRecord(path, record);
}

std::string repairRecording(const std::string& path)
{
    checkCanStore(path, openAudioFile(path)->fileType());
    if (QMXAIFFUtility::validateFileAtPath(path))
        return "nothing to repair";
    std::string done;
    if (QMXAIFFUtility::settleStoreInFileAtPath(path)) {
        done = "a store that was cut off was completed or taken back";
    } else {
        done = "the sizes were brought in line with the file's length";
        const auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::readWrite);
        if (file->open())        // corrects outdated sizes
            (void)file->close(); // the result is checked below
        if (!QMXAIFFUtility::validateFileAtPath(path))
            setFormSize(path);
    }
    if (!QMXAIFFUtility::validateFileAtPath(path))
        throw Failure{path + ": cannot be repaired"};
    return done;
}

void copyRecording(const std::string& from, const std::string& to)
{
    std::error_code error;
    if (!std::filesystem::copy_file(from, to, error))
        throw Failure{"cannot copy to " + to + ": " + (error ? error.message() : systemErrorText(EEXIST))};
}

std::shared_ptr<qmx::Image> readCover(const std::string& path)
{
    using namespace std::string_view_literals;
    constexpr std::uintmax_t largest = 524'000;
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error)
        throw Failure{path + ": " + error.message()};
    if (size > largest)
        throw Failure{path + ": larger than half a megabyte, which is all that is kept in a recording"};
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    constexpr std::array beginnings{"\xff\xd8\xff"sv, "\x89PNG"sv, "GIF8"sv, "BM"sv, "II*\0"sv, "MM\0*"sv};
    if (std::ranges::none_of(beginnings, [&](std::string_view start) { return bytes.starts_with(start); }))
        throw Failure{path + ": not a picture (JPEG, PNG, GIF, BMP or TIFF)"};
    return qmx::Image::initWithData({bytes.begin(), bytes.end()});
}

std::string trackLines(const QMXTrackAndProcessingInfo& record)
{
    std::string lines;
    if (const auto& tracks = record.trackInfos())
        for (const auto& track : *tracks)
            lines += qmx::format("%qi\t%qi\t%@\n", track->trackBegin(), track->trackEnd(), track->trackTitle());
    return lines;
}

std::string historyLines(const QMXTrackAndProcessingInfo& record)
{
    std::string lines;
    if (const auto& ranges = record.processingInfos())
        for (const auto& range : *ranges) {
            lines += qmx::format("%qu\t%qu\t%@", range->processingStartFrame(), range->processingEndFrame(),
                                 range->processName());
            for (const auto& [name, value] : range->processingSettings()->entries())
                lines += qmx::format("\t%@=%@", name, value);
            lines += '\n';
        }
    return lines;
}

} // namespace example
