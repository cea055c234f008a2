// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Export.h"
#include "Tracks/QMXAudioTrackInfoReader.h"

#include <memory>
#include <string>

/// Reads track information in the application chunk of an AIFF file, all fields big-endian.
class QMX_EXPORT QMXAIFAudioTrackInfoReader : public QMXAudioTrackInfoReader
{
public:
    static std::shared_ptr<QMXAIFAudioTrackInfoReader> initWithAudioFilePath(std::string path);

    /// The record of the first usable application chunk among the first ten; null when there is none or the form's size is
    /// not the file's. A store that was cut off by a kill is completed first where the file may be written to.
    std::shared_ptr<QMXTrackAndProcessingInfo> read() override;

private:
    explicit QMXAIFAudioTrackInfoReader(std::string path);
    UInt32 mApplSignature;
};
