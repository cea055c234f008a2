// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoReader.h>

#include <memory>
#include <string>

/// Reads track information in the application chunk of an AIFF file, all fields big-endian.
class QMX_EXPORT QMXAIFAudioTrackInfoReader : public QMXAudioTrackInfoReader
{
public:
    static std::shared_ptr<QMXAIFAudioTrackInfoReader> initWithAudioFilePath(std::string path);

    /// The record of the first usable application chunk; null if there is none or the form's size does not match the
    /// file's. Waits indefinitely while another thread or process stores into the file or extends it. A store that was
    /// cut off by a kill counts as completed (and is completed on disk, if the file can be written to and locked) or as
    /// not started.
    std::shared_ptr<QMXTrackAndProcessingInfo> read() override;

private:
    explicit QMXAIFAudioTrackInfoReader(std::string path);
    UInt32 mApplSignature;
};
