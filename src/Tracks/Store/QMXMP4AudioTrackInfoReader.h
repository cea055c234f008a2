// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Files/FileHandle.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoReader.h>

#include <memory>
#include <string>

/// The reader for MP4 files, in which no track information is kept.
class QMX_EXPORT QMXMP4AudioTrackInfoReader : public QMXAudioTrackInfoReader
{
public:
    static std::shared_ptr<QMXMP4AudioTrackInfoReader> initWithAudioFilePath(std::string path);

    /// Reads the start of the file; always null.
    std::shared_ptr<QMXTrackAndProcessingInfo> read() override;

private:
    using QMXAudioTrackInfoReader::QMXAudioTrackInfoReader;
    void readHeaderFrom_intoBuffer(qmx::FileHandle& file, UInt8* buffer);
};
