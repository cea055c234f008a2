// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Export.h"
#include "Foundation/Object.h"
#include "Tracks/QMXTrackAndProcessingInfo.h"

#include <memory>
#include <string>
#include <utility>

/// Reads the track information kept in an audio file. A file format's own class does the work; see
/// QMXAudioTrackInfoReaderWriterFactory. One thread at a time per object; reads the disk.
class QMX_EXPORT QMXAudioTrackInfoReader : public qmx::Object
{
public:
    const std::string& audioFilePath() const { return mAudioFilePath; }
    /// A new record with what the file holds; null when it holds none that can be read.
    virtual std::shared_ptr<QMXTrackAndProcessingInfo> read() = 0;

protected:
    explicit QMXAudioTrackInfoReader(std::string path) : mAudioFilePath(std::move(path)) {}

private:
    std::string mAudioFilePath;
};
