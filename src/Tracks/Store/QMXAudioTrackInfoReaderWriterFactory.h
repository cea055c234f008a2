// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoReader.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoWriter.h>

#include <memory>
#include <string>

/// Picks the reader or writer of an audio file's track information by the file name's extension, in upper or lower
/// case: aif, aiff, aifc; m4a, mp4; caf. Any thread.
class QMX_EXPORT QMXAudioTrackInfoReaderWriterFactory : public qmx::Object
{
public:
    /// A new reader; null for another extension. The file is not touched.
    static std::shared_ptr<QMXAudioTrackInfoReader> readerWithAudioFilePath(const std::string& path);
    /// A new writer; null for another extension. The file is not touched.
    static std::shared_ptr<QMXAudioTrackInfoWriter> writerWithAudioFilePath(const std::string& path);
};
