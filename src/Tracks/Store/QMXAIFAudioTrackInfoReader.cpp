// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXAIFAudioTrackInfoReader.h"

#include "Foundation/Memory.h"
#include "Tracks/Store/ApplicationChunk.h"
#include "Tracks/Store/StoredFile.h"

#include <utility>

QMXAIFAudioTrackInfoReader::QMXAIFAudioTrackInfoReader(std::string path)
    : QMXAudioTrackInfoReader(std::move(path)), mApplSignature(qmx::applicationSignature)
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
    return qmx::withinMemory(std::shared_ptr<QMXTrackAndProcessingInfo>(), [&] {
        std::vector<UInt8> archive;
        qmx::readStoredFile(audioFilePath(), [&](qmx::FileHandle& file) {
            qmx::findApplicationChunks(file, mApplSignature, qmx::ByteOrder::big,
                                       [&](const qmx::ApplicationChunk& chunk) {
                                           if (qmx::isUsable(chunk))
                                               archive = qmx::readArchive(file, chunk);
                                           return !qmx::isUsable(chunk);
                                       });
        });
        return qmx::recordFrom(archive).value_or(nullptr);
    });
}
