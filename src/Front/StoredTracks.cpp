// SPDX-License-Identifier: MIT
#include "Front/StoredTracks.h"

#include "Foundation/Archives/KeyedArchiver.h"
#include "Foundation/Archives/KeyedUnarchiver.h"
#include "Front/FrameFiles.h"
#include "Front/InputFile.h"
#include "Front/ShortMemory.h"
#include "Front/TrackTransfer.h"
#include "Tracks/QMXTrackAndProcessingInfo.h"

#include <utility>

namespace qmx
{
namespace
{

using Record = std::shared_ptr<QMXTrackAndProcessingInfo>;

std::vector<Track> tracksOf(const QMXTrackAndProcessingInfo& record)
{
    std::vector<Track> tracks;
    if (record.trackInfos())
        for (const auto& info : *record.trackInfos())
            tracks.push_back({.first = info->trackBegin(),
                              .end = info->trackEnd(),
                              .title = info->trackTitle().value_or(std::string()),
                              .record = info});
    return tracks;
}

std::shared_ptr<QMXAudioTrackInfo> copyOf(const std::shared_ptr<QMXAudioTrackInfo>& record)
{
    const auto archive = KeyedArchiver::archivedDataWithRootObject(record);
    return made(std::dynamic_pointer_cast<QMXAudioTrackInfo>(KeyedUnarchiver::unarchiveObjectWithData(archive)));
}

/// A copy with the track's bounds and title: tracks may share one record, which is the caller's.
std::shared_ptr<QMXAudioTrackInfo> recordOf(const Track& track)
{
    auto info = track.record ? copyOf(track.record) : made(QMXAudioTrackInfo::init());
    info->setTrackBegin(track.first);
    info->setTrackEnd(track.end);
    if (info->trackTitle().value_or(std::string()) != track.title)
        info->setTrackTitle(track.title);
    return info;
}

std::optional<Error> objectionTo(const std::vector<Track>& tracks, SInt64 length, const std::string& path)
{
    for (const Track& track : tracks)
        if (track.first < 0 || track.end < track.first || track.end > length)
            return Error(paramErr, path + ": The track \"" + track.title + "\" lies outside of it", path);
    return std::nullopt;
}

/// What is to be stored: the file's record with these tracks. Failing is an error of the file.
Result<Record> recordWith(const std::string& path, const std::vector<Track>& tracks, const StoreOptions& options)
{
    const auto file = openFile(path);
    if (!file)
        return file.error();
    if (!formatOf(**file).keepsTracks())
        return Error(kAudioFileUnsupportedFileTypeError, path + ": Tracks are stored in AIFF and AIFF-C files only",
                     path);
    if (auto objection = objectionTo(tracks, (*file)->lengthInFrames(), path))
        return *std::move(objection);
    const auto stored = readStored(path);
    const bool isPassedOver =
        !stored && options.replaceUnreadable && stored.error().status() == kAudioFileInvalidChunkError;
    if (!stored && !isPassedOver)
        return stored.error();
    Record record = stored && *stored ? *stored : made(QMXTrackAndProcessingInfo::init());
    record->clearTrackInfos();
    for (const Track& track : tracks)
        record->addTrackInfo(recordOf(track));
    return record;
}

Result<void> store(const std::string& path, const Record& record)
{
    if (auto error = storeInto(path, path, record))
        return *std::move(error);
    return {};
}

} // namespace

Result<std::optional<StoredTracks>> readTracks(const std::string& path)
{
    using Tracks = std::optional<StoredTracks>;
    return orNoMemory([&]() -> Result<Tracks> {
        const auto format = Format::of(path);
        if (!format)
            return format.error();
        if (!format->keepsTracks())
            return Tracks();
        const auto record = readStored(path);
        if (!record)
            return record.error();
        return *record ? Tracks({tracksOf(**record), *record}) : Tracks();
    });
}

Result<void> storeTracks(const std::string& path, const std::vector<Track>& tracks, const StoreOptions& options)
{
    return orNoMemory([&]() -> Result<void> {
        const auto record = recordWith(path, tracks, options);
        return record ? store(path, *record) : record.error();
    });
}

Result<void> storeRecord(const std::string& path, const std::shared_ptr<QMXTrackAndProcessingInfo>& record)
{
    return orNoMemory([&]() -> Result<void> {
        auto objection = objectionToReading(path);
        return objection ? *std::move(objection) : store(path, record);
    });
}

Result<StoreCost> storeCost(const std::string& path, const std::vector<Track>& tracks, const StoreOptions& options)
{
    return orNoMemory([&]() -> Result<StoreCost> {
        const auto record = recordWith(path, tracks, options);
        return record ? costOfStore(path, *record) : record.error();
    });
}

} // namespace qmx
