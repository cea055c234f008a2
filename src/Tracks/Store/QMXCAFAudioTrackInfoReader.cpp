// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXCAFAudioTrackInfoReader.h"

#include "Foundation/Memory.h"

#include <utility>

std::shared_ptr<QMXCAFAudioTrackInfoReader> QMXCAFAudioTrackInfoReader::initWithAudioFilePath(std::string path)
{
    return qmx::withinMemory(std::shared_ptr<QMXCAFAudioTrackInfoReader>(), [&] {
        return std::shared_ptr<QMXCAFAudioTrackInfoReader>(new QMXCAFAudioTrackInfoReader(std::move(path)));
    });
}

std::shared_ptr<QMXTrackAndProcessingInfo> QMXCAFAudioTrackInfoReader::read()
{
    return nullptr;
}
