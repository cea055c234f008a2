// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXMP4AudioTrackInfoReader.h"

#include "Foundation/Memory.h"
#include "Tracks/Store/StoredFile.h"

#include <array>
#include <utility>

std::shared_ptr<QMXMP4AudioTrackInfoReader> QMXMP4AudioTrackInfoReader::initWithAudioFilePath(std::string path)
{
    return qmx::withinMemory(std::shared_ptr<QMXMP4AudioTrackInfoReader>(), [&] {
        return std::shared_ptr<QMXMP4AudioTrackInfoReader>(new QMXMP4AudioTrackInfoReader(std::move(path)));
    });
}

std::shared_ptr<QMXTrackAndProcessingInfo> QMXMP4AudioTrackInfoReader::read()
{
    const auto look = [&](qmx::FileHandle& file) {
        std::array<UInt8, 64> beginning{};
        file.readData(beginning);
        readHeaderFrom_intoBuffer(file, beginning.data());
        return qmx::FoundArchive();
    };
    return qmx::readRecord(audioFilePath(), failure(), look).value_or(nullptr);
}

// Does nothing, which is intended.
void QMXMP4AudioTrackInfoReader::readHeaderFrom_intoBuffer(qmx::FileHandle&, UInt8*) {}
