// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoWriter.h>

#include <memory>
#include <string>

/// The writer for MP4 files, in which no track information is kept.
class QMX_EXPORT QMXMP4AudioTrackInfoWriter : public QMXAudioTrackInfoWriter
{
public:
    static std::shared_ptr<QMXMP4AudioTrackInfoWriter> initWithAudioFilePath(std::string path);

    /// Stores nothing, which lastStatus() reports; always 0.
    SInt32 write() override;

private:
    using QMXAudioTrackInfoWriter::QMXAudioTrackInfoWriter;
};
