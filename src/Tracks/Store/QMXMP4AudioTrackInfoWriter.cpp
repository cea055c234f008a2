// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXMP4AudioTrackInfoWriter.h"

#include "Foundation/Memory.h"

#include <utility>

std::shared_ptr<QMXMP4AudioTrackInfoWriter> QMXMP4AudioTrackInfoWriter::initWithAudioFilePath(std::string path)
{
    return qmx::withinMemory(std::shared_ptr<QMXMP4AudioTrackInfoWriter>(), [&] {
        return std::shared_ptr<QMXMP4AudioTrackInfoWriter>(new QMXMP4AudioTrackInfoWriter(std::move(path)));
    });
}

SInt32 QMXMP4AudioTrackInfoWriter::write()
{
    refuseFileType();
    return 0;
}
