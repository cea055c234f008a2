// SPDX-License-Identifier: MIT
#include "Tracks/QMXAIFAudioTrackInfoReader.h"

#include "Foundation/Memory.h"
#include "Tracks/ApplicationChunk.h"
#include "Tracks/QMXAIFFUtility.h"
#include "Tracks/StoreJournal.h"

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
    return qmx::withinMemory(
        std::shared_ptr<QMXTrackAndProcessingInfo>(), [&]() -> std::shared_ptr<QMXTrackAndProcessingInfo> {
            const auto file = qmx::FileHandle::fileHandleForReadingAtPath(audioFilePath());
            if (!file)
                return nullptr;
            qmx::completeStoreAtPath(audioFilePath(), *file);
            // a file that is no form at all passes the check, which is intended
            if (QMXAIFFUtility::checkFileAtPath_shouldRepair(*file, false) == 0 && !qmx::endsInUnfinishedStore(*file))
                return nullptr;
            const auto found = qmx::findApplicationChunks(*file, mApplSignature, qmx::ByteOrder::big);
            const auto chunk = qmx::firstUsable(found.chunks);
            return chunk ? qmx::readRecord(*file, *chunk) : nullptr;
        });
}
