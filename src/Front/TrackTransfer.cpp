// SPDX-License-Identifier: MIT
#include "Front/TrackTransfer.h"

#include "Front/ShortMemory.h"
#include "Tracks/QMXTrackAndProcessingInfo.h"
#include "Tracks/Store/ApplicationChunk.h"
#include "Tracks/Store/QMXAIFAudioTrackInfoReader.h"
#include "Tracks/Store/QMXAIFAudioTrackInfoWriter.h"
#include "Tracks/Store/StoredFile.h"

#include <cmath>

namespace qmx
{
namespace
{

/// The sentence of a reader or writer, with the path that was asked for.
Error errorOf(OSStatus status, std::string text, const std::string& usedPath, const std::string& path)
{
    if (text.starts_with(usedPath))
        text.erase(0, usedPath.size() + 1);
    return {status, path + ": It " + text, path};
}

template <class Object> Error errorOf(const Object& object, const std::string& path)
{
    return errorOf(object.lastStatus(), object.lastError(), object.audioFilePath(), path);
}

/// Whether the file has a chunk of tracks, readable or not.
bool hasChunk(const std::string& path)
{
    bool isFound = false;
    if (const auto file = FileHandle::fileHandleForReadingAtPath(path))
        findApplicationChunks(*file, trackSignature, ByteOrder::big, [&](const ApplicationChunk&) {
            isFound = true;
            return false;
        });
    return isFound;
}

void scale(QMXTrackAndProcessingInfo& record, Float64 ratio)
{
    const auto scaled = [ratio](auto frame) {
        return static_cast<decltype(frame)>(std::llround(static_cast<Float64>(frame) * ratio));
    };
    if (record.trackInfos())
        for (const auto& track : *record.trackInfos()) {
            track->setTrackBegin(scaled(track->trackBegin()));
            track->setTrackEnd(scaled(track->trackEnd()));
        }
    if (record.processingInfos())
        for (const auto& range : *record.processingInfos()) {
            range->setProcessingStartFrame(scaled(range->processingStartFrame()));
            range->setProcessingEndFrame(scaled(range->processingEndFrame()));
        }
}

} // namespace

Result<std::shared_ptr<QMXTrackAndProcessingInfo>> readStored(const std::string& path)
{
    const auto reader = made(QMXAIFAudioTrackInfoReader::initWithAudioFilePath(path));
    auto record = reader->read();
    const bool isCut = reader->lastStatus() == kAudioFileInvalidFileError; // its sizes disagree: the reader refuses
    if (reader->lastStatus() != noErr && !(isCut && !hasChunk(path)))
        return errorOf(*reader, path);
    return record;
}

std::optional<Error> storeInto(const std::string& storePath, const std::string& path,
                               const std::shared_ptr<QMXTrackAndProcessingInfo>& record)
{
    const auto writer = made(QMXAIFAudioTrackInfoWriter::initWithAudioFilePath(storePath));
    writer->setTrackAndProcessingInfo(record);
    writer->write(); // lastStatus() has more
    return writer->lastStatus() == noErr ? std::nullopt : std::optional(errorOf(*writer, path));
}

Result<StoreCost> costOfStore(const std::string& path, const std::shared_ptr<QMXTrackAndProcessingInfo>& record)
{
    LastFailure failure;
    const auto size = measureStore(path, record, failure);
    if (!size)
        return errorOf(failure.status(), failure.sentence(), path, path);
    return StoreCost{size->growth, size->temporary};
}

Result<std::shared_ptr<QMXTrackAndProcessingInfo>> tracksToPass(const std::string& path, const Format& source,
                                                                const Format& target, bool isWanted)
{
    if (!isWanted || !source.keepsTracks() || !target.keepsTracks())
        return std::shared_ptr<QMXTrackAndProcessingInfo>();
    auto record = readStored(path);
    if (record && *record && source.stream.mSampleRate > 0)
        scale(**record, target.stream.mSampleRate / source.stream.mSampleRate);
    return record;
}

std::optional<Error> storePassed(const std::shared_ptr<QMXTrackAndProcessingInfo>& record, const OutputFile& output)
{
    return record ? storeInto(output.temporaryPath(), output.path(), record) : std::nullopt;
}

} // namespace qmx
