// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoReader.h>

#include <memory>
#include <string>

/// The reader for CAF files, in which no track information is kept.
class QMX_EXPORT QMXCAFAudioTrackInfoReader : public QMXAudioTrackInfoReader
{
public:
    static std::shared_ptr<QMXCAFAudioTrackInfoReader> initWithAudioFilePath(std::string path);

    /// Always null.
    std::shared_ptr<QMXTrackAndProcessingInfo> read() override;

private:
    using QMXAudioTrackInfoReader::QMXAudioTrackInfoReader;
};
