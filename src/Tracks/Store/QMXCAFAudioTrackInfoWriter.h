// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoWriter.h>

#include <memory>
#include <string>

/// The writer for CAF files, in which no track information is kept.
class QMX_EXPORT QMXCAFAudioTrackInfoWriter : public QMXAudioTrackInfoWriter
{
public:
    static std::shared_ptr<QMXCAFAudioTrackInfoWriter> initWithAudioFilePath(std::string path);

    /// Stores nothing, which lastStatus() reports; always 0.
    SInt32 write() override;

private:
    using QMXAudioTrackInfoWriter::QMXAudioTrackInfoWriter;
};
