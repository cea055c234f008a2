// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXCAFAudioTrackInfoWriter.h"

#include "Foundation/Memory.h"

#include <utility>

std::shared_ptr<QMXCAFAudioTrackInfoWriter> QMXCAFAudioTrackInfoWriter::initWithAudioFilePath(std::string path)
{
    return qmx::withinMemory(std::shared_ptr<QMXCAFAudioTrackInfoWriter>(), [&] {
        return std::shared_ptr<QMXCAFAudioTrackInfoWriter>(new QMXCAFAudioTrackInfoWriter(std::move(path)));
    });
}

SInt32 QMXCAFAudioTrackInfoWriter::write()
{
    refuseFileType();
    return 0;
}
