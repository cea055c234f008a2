// SPDX-License-Identifier: MIT
#include "Tracks/QMXMP4AudioTrackInfoReader.h"

#include <algorithm>
#include <array>

#include <utility>

std::shared_ptr<QMXMP4AudioTrackInfoReader> QMXMP4AudioTrackInfoReader::initWithAudioFilePath(std::string path)
{
    return std::shared_ptr<QMXMP4AudioTrackInfoReader>(new QMXMP4AudioTrackInfoReader(std::move(path)));
}

std::shared_ptr<QMXTrackAndProcessingInfo> QMXMP4AudioTrackInfoReader::read()
{
    const auto file = qmx::FileHandle::fileHandleForReadingAtPath(audioFilePath());
    if (!file)
        return nullptr;
    const std::vector<UInt8> beginning = file->readDataOfLength(64);
    std::array<UInt8, 8> header{};
    std::copy_n(beginning.begin(), std::min(beginning.size(), header.size()), header.begin());
    readHeaderFrom_intoBuffer(*file, header.data());
    return nullptr;
}

// Does nothing, which is intended.
void QMXMP4AudioTrackInfoReader::readHeaderFrom_intoBuffer(qmx::FileHandle&, UInt8*) {}
