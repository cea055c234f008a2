// SPDX-License-Identifier: MIT
#include "Tracks/QMXAIFAudioTrackInfoWriter.h"

#include "Foundation/Log.h"
#include "Foundation/Memory.h"
#include "Tracks/ApplicationChunk.h"
#include "Tracks/QMXAIFFUtility.h"
#include "Tracks/StoreJournal.h"

#include <utility>

QMXAIFAudioTrackInfoWriter::QMXAIFAudioTrackInfoWriter(std::string path)
    : QMXAudioTrackInfoWriter(std::move(path)), mBlockSize(qmx::applicationBlockSize),
      mApplSignature(qmx::applicationSignature)
{
}

std::shared_ptr<QMXAIFAudioTrackInfoWriter> QMXAIFAudioTrackInfoWriter::initWithAudioFilePath(std::string path)
{
    return qmx::withinMemory(std::shared_ptr<QMXAIFAudioTrackInfoWriter>(), [&] {
        return std::shared_ptr<QMXAIFAudioTrackInfoWriter>(new QMXAIFAudioTrackInfoWriter(std::move(path)));
    });
}

SInt32 QMXAIFAudioTrackInfoWriter::write()
{
    if (!qmx::withinMemory([&] { write(trackAndProcInfo()); }))
        qmx::Log("QMXAIFAudioTrackInfoWriter: not enough memory");
    return 0;
}

void QMXAIFAudioTrackInfoWriter::write(const std::shared_ptr<QMXTrackAndProcessingInfo>& info) const
{
    const auto file = qmx::FileHandle::fileHandleForUpdatingAtPath(audioFilePath());
    if (file)
        qmx::settleStore(*file);
    // a file that is no form at all passes the check, which is intended
    if (!file || QMXAIFFUtility::checkFileAtPath_shouldRepair(*file, false) == 0) {
        qmx::Log("QMXAIFAudioTrackInfoWriter: %@ cannot be written to or its form is damaged", audioFilePath());
        return;
    }
    const std::vector<UInt8> archive = qmx::archiveOf(info);
    if (archive.empty())
        return;
    const auto found = qmx::findApplicationChunks(*file, mApplSignature, qmx::ByteOrder::big);
    qmx::storeArchive(*file, archive, qmx::lastUsable(found.chunks), {mBlockSize, mApplSignature, qmx::ByteOrder::big});
}
