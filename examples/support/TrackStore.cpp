// SPDX-License-Identifier: MIT
#include "support/TrackStore.h"

#include "support/Failure.h"

#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoReaderWriterFactory.h>

namespace example
{

Record readRecord(const std::string& path)
{
    const auto reader = QMXAudioTrackInfoReaderWriterFactory::readerWithAudioFilePath(path);
    Record record = reader ? reader->read() : nullptr;
    const OSStatus status = reader ? reader->lastStatus() : noErr;
    if (status != noErr)
        throw Failure{reader->lastError()};
    return record;
}

} // namespace example
