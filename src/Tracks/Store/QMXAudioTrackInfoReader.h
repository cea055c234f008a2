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

/// Reads the track information kept in an audio file. A file format's own class does the work; see
/// QMXAudioTrackInfoReaderWriterFactory. One thread at a time per object; reads the disk.
class QMX_EXPORT QMXAudioTrackInfoReader : public qmx::Object
{
public:
    ~QMXAudioTrackInfoReader() override;

    const std::string& audioFilePath() const { return mAudioFilePath; }
    /// A new record with what the file holds; null when it holds none that can be read.
    virtual std::shared_ptr<QMXTrackAndProcessingInfo> read() = 0;

    /// The status of a failure in the last read(); noErr if it succeeded. A file that simply holds no record is no
    /// failure.
    OSStatus lastStatus() const;
    /// The same as a sentence for people that names the file; empty if nothing failed.
    std::string lastError() const;

protected:
    explicit QMXAudioTrackInfoReader(std::string path);
    qmx::LastFailure& failure() const { return *failure_; }

private:
    std::string mAudioFilePath;
    std::unique_ptr<qmx::LastFailure> failure_;
};
