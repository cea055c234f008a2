// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Export.h"
#include "Tracks/Store/QMXAudioTrackInfoReader.h"

#include <memory>
#include <string>

/// Reads track information in the application chunk of an AIFF file, all fields big-endian.
class QMX_EXPORT QMXAIFAudioTrackInfoReader : public QMXAudioTrackInfoReader
{
public:
    static std::shared_ptr<QMXAIFAudioTrackInfoReader> initWithAudioFilePath(std::string path);

    /// The record of the first usable application chunk; null when there is none or the form's size is not the file's.
    /// Waits without end while another thread or process stores into the file or lets it grow. A store that was cut off
    /// by a kill is taken as completed, also on disk where the file can be written to and locked, or as not begun.
    std::shared_ptr<QMXTrackAndProcessingInfo> read() override;

private:
    explicit QMXAIFAudioTrackInfoReader(std::string path);
    UInt32 mApplSignature;
};
