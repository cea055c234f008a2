// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Archives/Coder.h>
#include <QMXCoreAudio/Foundation/Archives/Values.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>
#include <QMXCoreAudio/Tracks/QMXAudioProcessingRangeInfo.h>
#include <QMXCoreAudio/Tracks/QMXAudioTrackInfo.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Keys under which the fields are archived.
QMX_EXPORT extern const std::string_view QMXTrackInfos;
QMX_EXPORT extern const std::string_view QMXProcessInfos;
QMX_EXPORT extern const std::string_view QMXHasBeenProcessed;

/// What an audio file holds besides its samples: its tracks, the processes that were applied to it, and whether its
/// samples were changed by them. One thread at a time per object.
class QMX_EXPORT QMXTrackAndProcessingInfo : public qmx::Object, public qmx::Coding
{
public:
    using TrackList = std::vector<std::shared_ptr<QMXAudioTrackInfo>>;
    using ProcessingList = std::vector<std::shared_ptr<QMXAudioProcessingRangeInfo>>;

    /// Without lists, not processed.
    static std::shared_ptr<QMXTrackAndProcessingInfo> init();
    /// A record from an archive. List elements of unknown classes stay in the archive when it is made again.
    static std::shared_ptr<QMXTrackAndProcessingInfo> initWithCoder(qmx::Decoder& decoder);
    /// Makes this record, tracks and processing ranges decodable; needed before an archive of them is read by other
    /// means than the readers of this library. Any thread, any number of times.
    static void registerArchiveClasses();

    /// Appends one track; the first creates the list.
    void addTrackInfo(std::shared_ptr<QMXAudioTrackInfo> track);
    /// Appends the tracks in their order.
    void addTrackInfoForAllTracks(const TrackList& tracks);
    /// Drops the list.
    void clearTrackInfos();
    /// The list itself; null before the first track.
    const std::shared_ptr<TrackList>& trackInfos() const { return mTrackInfos; }

    void addAudioProcessingInfo(std::shared_ptr<QMXAudioProcessingRangeInfo> range);
    void addAudioProcessingForAllTracks(const ProcessingList& ranges);
    void clearProcessingInfos();
    /// The list itself; null before the first range.
    const std::shared_ptr<ProcessingList>& processingInfos() const { return mProcessingInfos; }

    bool fileHasBeenProcessed() const { return mFileHasBeenProcessed; }
    void setFileHasBeenProcessed(bool processed) { mFileHasBeenProcessed = processed; }

    /// The tracks in one text.
    std::string description() const override;

    /// Needs a coder with keys.
    void encodeWithCoder(qmx::Coder& coder) const override;
    std::vector<std::string> archiveClassNames() const override;

private:
    std::shared_ptr<TrackList> mTrackInfos;
    std::shared_ptr<ProcessingList> mProcessingInfos;
    bool mFileHasBeenProcessed = false;

    // list elements that another program stored, kept and not understood
    qmx::Array::Elements otherTrackInfos_;
    qmx::Array::Elements otherProcessingInfos_;
};
