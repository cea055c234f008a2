// SPDX-License-Identifier: MIT
// Any bytes as a file with track information: checked, read and stored into by both classes. Afterwards everything
// after the form's header is still there unless it was a store of the library, and a stored record ends where the form
// does.
#include <QMXCoreAudio/Foundation/Files/MemoryFileSystem.h>
#include <QMXCoreAudio/Foundation/Text/Log.h>
#include <QMXCoreAudio/Tracks/Store/QMXAIFFUtility.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioFileTrackInfoReaderWriter.h>
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoReaderWriterFactory.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace
{

const std::string path = "/fuzzed.aif";

void require(bool holds)
{
    if (!holds)
        std::abort();
}

void readAndStore()
{
    using Factory = QMXAudioTrackInfoReaderWriterFactory;
    auto record = Factory::readerWithAudioFilePath(path)->read();
    const auto writer = Factory::writerWithAudioFilePath(path);
    if (record)
        writer->setTrackAndProcessingInfo(record);
    writer->addTrackInfo(QMXAudioTrackInfo::init());
    (void)writer->write(); // Damaged files may refuse a store; only their sound must stay.
    const auto older = QMXAudioFileTrackInfoReaderWriter::initWithAudioFilePath(path);
    (void)older->readTrackInfosFromFile();
    older->addTrackInfo(QMXAudioTrackInfo::init());
    (void)older->writeTrackInfosToFile();
}

/// Whether the bytes may contain a chunk or journal of the library, whole or cut off, which may be changed or removed.
bool mayHoldAStore(std::string_view text)
{
    const auto holds = [&](std::string_view part) { return text.find(part) != std::string_view::npos; };
    return holds("tRaK") || holds("KaRt") || holds("tRaJ");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const UInt8* data, std::size_t size)
{
    if (size > 1 << 16)
        return 0;
    qmx::setLogHandler([](qmx::LogLevel, const std::string&) {});
    qmx::MemoryFileSystem disk;
    const std::vector<UInt8> before(data, data + size);
    disk.setContents(path, before);
    qmx::FileSystem::setCurrent(&disk);
    const bool wasForm = QMXAIFFUtility::validateFileAtPath(path);
    readAndStore();
    const auto after = disk.contents(path);
    require(after.size() >= size);
    require(!wasForm || QMXAIFFUtility::validateFileAtPath(path));
    if (!mayHoldAStore({reinterpret_cast<const char*>(data), size}) && size > 8)
        require(std::equal(before.begin() + 8, before.end(), after.begin() + 8));
    qmx::FileSystem::setCurrent(nullptr);
    return 0;
}
