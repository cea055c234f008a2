// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXAIFAudioTrackInfoWriter.h"

#include "CoreAudioTypes/FourCharCode.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Log.h"
#include "Tracks/Store/ApplicationChunk.h"
#include "Tracks/Store/StoredFile.h"

#include <utility>

QMXAIFAudioTrackInfoWriter::QMXAIFAudioTrackInfoWriter(std::string path)
    : QMXAudioTrackInfoWriter(std::move(path)), mBlockSize(qmx::applicationBlockSize),
      mApplSignature(qmx::trackSignature)
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
    const auto store = [&](qmx::FileHandle& file, std::span<const UInt8> archive) {
        return qmx::storeArchive(file, archive, qmx::lastUsableChunk(file, mApplSignature),
                                 {mBlockSize, mApplSignature, qmx::ByteOrder::big});
    };
    if (!qmx::storeRecord(audioFilePath(), trackAndProcInfo(), failure(), store) && lastStatus() == memFullErr)
        qmx::Log("QMXAIFAudioTrackInfoWriter: not enough memory");
    return 0;
}
