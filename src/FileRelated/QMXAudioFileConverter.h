// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/AudioToolbox/AudioFile.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>
#include <QMXCoreAudio/Processing/QMXProgressSubscriber.h>

#include <memory>
#include <string>

class QMXAudioStreamBasicDescription;

/// Writes a copy of an audio file in another file type and data format. Blocks until it is done; one thread at a time,
/// any but the real-time ones.
class QMX_EXPORT QMXAudioFileConverter : public qmx::Object
{
public:
    /// Null when memory is short.
    static std::shared_ptr<QMXAudioFileConverter> initWithInputFilePath(const std::string& path);

    /// Copies the file to a new one (an existing file is left as it is) in the data format `format`. Linear PCM goes
    /// into WAVE as little-endian samples, whatever the format says. A lossless coding whose flags do not say how many
    /// bits to keep (0) keeps those of the source: 16 if they hold every sample, else 24.
    ///
    /// `subscriber` (may be null) receives progress from 0 to 1 after each pass of 1024 frames; an exception that it
    /// throws ends the conversion. The result is the first failure of opening the source and making the destination,
    /// else the status of the last write or, if that succeeded, of closing; 0 for an empty source. A source that cannot
    /// be read to its end is copied as far as possible, and lastStatus() reports it. On failure the destination keeps
    /// what was written.
    [[nodiscard]] virtual OSStatus
    convertFileToPath_toFileType_toFormat_subscriber(const std::string& destinationPath, AudioFileTypeID fileType,
                                                     const std::shared_ptr<QMXAudioStreamBasicDescription>& format,
                                                     QMXProgressSubscriber* subscriber) = 0;
    /// Bits per second for the encoder of the next conversions; 0, the default, leaves the choice to the encoder.
    virtual void setBitRate(UInt32 bitsPerSecond) = 0;

    /// The same to 16-bit integers with the source's rate and channels, big-endian except in WAVE.
    [[nodiscard]] virtual OSStatus convertFileToPath_toFileType_subscriber(const std::string& destinationPath,
                                                                           AudioFileTypeID fileType,
                                                                           QMXProgressSubscriber* subscriber) = 0;

    /// The status of the first failure in the last conversion, even if its result hides it: a source that could not be
    /// read to its end, a bit rate that the encoder refuses. 0 if nothing failed. Any thread but the real-time ones.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people that names the file, empty when nothing failed. Any thread but those.
    virtual std::string lastError() const = 0;
};
