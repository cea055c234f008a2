// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXAudioTrackInfoReaderWriterFactory.h"

#include "Foundation/Memory.h"
#include "Tracks/Store/QMXAIFAudioTrackInfoReader.h"
#include "Tracks/Store/QMXAIFAudioTrackInfoWriter.h"
#include "Tracks/Store/QMXCAFAudioTrackInfoReader.h"
#include "Tracks/Store/QMXCAFAudioTrackInfoWriter.h"
#include "Tracks/Store/QMXMP4AudioTrackInfoReader.h"
#include "Tracks/Store/QMXMP4AudioTrackInfoWriter.h"

#include <filesystem>

namespace
{

std::string lowerCaseExtension(const std::string& path)
{
    std::string extension = std::filesystem::path(path).extension().string();
    for (char& letter : extension)
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    return extension;
}

template <class Common, class AIF, class MP4, class CAF> std::shared_ptr<Common> makeFor(const std::string& path)
{
    return qmx::withinMemory(std::shared_ptr<Common>(), [&]() -> std::shared_ptr<Common> {
        const std::string extension = lowerCaseExtension(path);
        if (extension == ".aif" || extension == ".aiff" || extension == ".aifc")
            return AIF::initWithAudioFilePath(path);
        if (extension == ".m4a" || extension == ".mp4")
            return MP4::initWithAudioFilePath(path);
        if (extension == ".caf")
            return CAF::initWithAudioFilePath(path);
        return nullptr;
    });
}

} // namespace

std::shared_ptr<QMXAudioTrackInfoReader>
QMXAudioTrackInfoReaderWriterFactory::readerWithAudioFilePath(const std::string& path)
{
    return makeFor<QMXAudioTrackInfoReader, QMXAIFAudioTrackInfoReader, QMXMP4AudioTrackInfoReader,
                   QMXCAFAudioTrackInfoReader>(path);
}

std::shared_ptr<QMXAudioTrackInfoWriter>
QMXAudioTrackInfoReaderWriterFactory::writerWithAudioFilePath(const std::string& path)
{
    return makeFor<QMXAudioTrackInfoWriter, QMXAIFAudioTrackInfoWriter, QMXMP4AudioTrackInfoWriter,
                   QMXCAFAudioTrackInfoWriter>(path);
}
