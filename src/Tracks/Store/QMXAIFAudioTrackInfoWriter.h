// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Export.h"
#include "Tracks/Store/QMXAudioTrackInfoWriter.h"

#include <memory>
#include <string>

/// Writes track information in the application chunk of an AIFF file, all fields big-endian.
class QMX_EXPORT QMXAIFAudioTrackInfoWriter : public QMXAudioTrackInfoWriter
{
public:
    static std::shared_ptr<QMXAIFAudioTrackInfoWriter> initWithAudioFilePath(std::string path);

    /// Overwrites the last usable chunk, else appends one. What is no AIFF or AIFF-C file by its first twelve bytes,
    /// and a form whose size is not the file's, is refused with a log line and stays as it is; so does the file on an
    /// error, which lastStatus() tells. Waits without end while another thread or process stores into the file or lets
    /// it grow; the audio may be recorded meanwhile.
    SInt32 write() override;

private:
    explicit QMXAIFAudioTrackInfoWriter(std::string path);

    UInt32 mBlockSize;
    UInt32 mApplSignature;
};
