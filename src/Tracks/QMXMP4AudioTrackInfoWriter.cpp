// SPDX-License-Identifier: MIT
#include "Tracks/QMXMP4AudioTrackInfoWriter.h"

#include <utility>

std::shared_ptr<QMXMP4AudioTrackInfoWriter> QMXMP4AudioTrackInfoWriter::initWithAudioFilePath(std::string path)
{
    return std::shared_ptr<QMXMP4AudioTrackInfoWriter>(new QMXMP4AudioTrackInfoWriter(std::move(path)));
}

SInt32 QMXMP4AudioTrackInfoWriter::write()
{
    return 0;
}
