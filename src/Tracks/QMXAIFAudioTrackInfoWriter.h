// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Export.h"
#include "Tracks/QMXAudioTrackInfoWriter.h"

#include <memory>
#include <string>

/// Writes track information in the application chunk of an AIFF file, all fields big-endian.
class QMX_EXPORT QMXAIFAudioTrackInfoWriter : public QMXAudioTrackInfoWriter
{
public:
    static std::shared_ptr<QMXAIFAudioTrackInfoWriter> initWithAudioFilePath(std::string path);

    /// Overwrites the last usable chunk among the first ten, else appends one. Nothing is written to a form whose size is not the
    /// file's. On an error the file is as it was.
    SInt32 write() override;

private:
    explicit QMXAIFAudioTrackInfoWriter(std::string path);
    void write(const std::shared_ptr<QMXTrackAndProcessingInfo>& info) const;

    UInt32 mBlockSize;
    UInt32 mApplSignature;
};
