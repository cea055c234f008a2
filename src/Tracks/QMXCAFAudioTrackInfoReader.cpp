// SPDX-License-Identifier: MIT
#include "Tracks/QMXCAFAudioTrackInfoReader.h"

#include <utility>

std::shared_ptr<QMXCAFAudioTrackInfoReader> QMXCAFAudioTrackInfoReader::initWithAudioFilePath(std::string path)
{
    return std::shared_ptr<QMXCAFAudioTrackInfoReader>(new QMXCAFAudioTrackInfoReader(std::move(path)));
}

std::shared_ptr<QMXTrackAndProcessingInfo> QMXCAFAudioTrackInfoReader::read()
{
    return nullptr;
}
