// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoWriter.h>

#include <memory>
#include <string>

/// Writes track information in the application chunk of an AIFF file, all fields big-endian.
class QMX_EXPORT QMXAIFAudioTrackInfoWriter : public QMXAudioTrackInfoWriter
{
public:
    static std::shared_ptr<QMXAIFAudioTrackInfoWriter> initWithAudioFilePath(std::string path);

    /// Overwrites the last usable chunk, else appends one. A file that is not AIFF or AIFF-C by its first twelve bytes,
    /// or whose form size does not match its length, is refused with a log line and left as it is. An error also leaves
    /// the file as it was; lastStatus() reports both. Waits indefinitely while another thread or process stores into
    /// the file or extends it; recording into it may go on.
    SInt32 write() override;

private:
    explicit QMXAIFAudioTrackInfoWriter(std::string path);

    UInt32 mBlockSize;
    UInt32 mApplSignature;
};
