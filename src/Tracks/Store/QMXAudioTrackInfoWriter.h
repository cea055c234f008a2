// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>
#include <QMXCoreAudio/Tracks/QMXTrackAndProcessingInfo.h>

#include <memory>
#include <string>

namespace qmx
{
class LastFailure;
}

/// Stores track information in an audio file, replacing what the file holds: to change only a part, read first. A file
/// format's own class does the work; see QMXAudioTrackInfoReaderWriterFactory. One thread at a time per object; writes
/// to the disk.
class QMX_EXPORT QMXAudioTrackInfoWriter : public qmx::Object
{
public:
    ~QMXAudioTrackInfoWriter() override;

    const std::string& audioFilePath() const { return mAudioFilePath; }
    /// Replaces the record that is to be written, which is empty at first. The object is shared.
    void setTrackAndProcessingInfo(std::shared_ptr<QMXTrackAndProcessingInfo> info);

    // These add to that record; without one (null was set) they do nothing.
    void addTrackInfo(std::shared_ptr<QMXAudioTrackInfo> track);
    void addTrackInfoForAllTracks(const QMXTrackAndProcessingInfo::TrackList& tracks);
    void addAudioProcessingInfo(std::shared_ptr<QMXAudioProcessingRangeInfo> range);
    void addAudioProcessingForAllTracks(const QMXTrackAndProcessingInfo::ProcessingList& ranges);
    void setFileHasBeenProcessed(bool processed);

    /// Stores the record. Always 0: a failure is logged, and lastStatus() reports it.
    virtual SInt32 write() = 0;

    /// The status of a failure in the last write(); noErr if the record is in the file.
    OSStatus lastStatus() const;
    /// The same as a sentence for people that names the file; empty if the record was stored.
    std::string lastError() const;

protected:
    explicit QMXAudioTrackInfoWriter(std::string path);
    qmx::LastFailure& failure() const { return *failure_; }
    /// For file types in which no track information is kept: keeps that as the failure.
    void refuseFileType();
    const std::shared_ptr<QMXTrackAndProcessingInfo>& trackAndProcInfo() const { return mTrackAndProcInfo; }

private:
    std::string mAudioFilePath;
    std::shared_ptr<QMXTrackAndProcessingInfo> mTrackAndProcInfo;
    std::unique_ptr<qmx::LastFailure> failure_;
};
