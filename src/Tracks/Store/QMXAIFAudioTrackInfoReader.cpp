// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXAIFAudioTrackInfoReader.h"

#include "CoreAudioTypes/FourCharCode.h"
#include "Foundation/Memory.h"
#include "Tracks/Store/ApplicationChunk.h"
#include "Tracks/Store/StoredFile.h"

#include <utility>

QMXAIFAudioTrackInfoReader::QMXAIFAudioTrackInfoReader(std::string path)
    : QMXAudioTrackInfoReader(std::move(path)), mApplSignature(qmx::trackSignature)
{
}

std::shared_ptr<QMXAIFAudioTrackInfoReader> QMXAIFAudioTrackInfoReader::initWithAudioFilePath(std::string path)
{
    return qmx::withinMemory(std::shared_ptr<QMXAIFAudioTrackInfoReader>(), [&] {
        return std::shared_ptr<QMXAIFAudioTrackInfoReader>(new QMXAIFAudioTrackInfoReader(std::move(path)));
    });
}

std::shared_ptr<QMXTrackAndProcessingInfo> QMXAIFAudioTrackInfoReader::read()
{
    const auto find = [&](qmx::FileHandle& file) {
        qmx::FoundArchive found;
        qmx::findApplicationChunks(file, mApplSignature, qmx::ByteOrder::big, [&](const qmx::ApplicationChunk& chunk) {
            found.hasChunk = true;
            if (qmx::isUsable(chunk))
                found.bytes = qmx::readArchive(file, chunk);
            return !qmx::isUsable(chunk);
        });
        return found;
    };
    return qmx::readRecord(audioFilePath(), failure(), find).value_or(nullptr);
}
