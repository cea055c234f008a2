// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXAIFFUtility.h"

#include "Foundation/Memory.h"
#include "Tracks/Store/StoreJournal.h"
#include "Tracks/Store/StoredFile.h"

#include <algorithm>
#include <array>
#include <limits>

namespace
{

constexpr SInt64 formHeaderSize = 12;
constexpr SInt64 chunkHeaderSize = 8;

/// Reads a few bytes here and there through a window on the file: a damaged file may hold hundreds of millions of
/// chunks.
class WindowReader
{
public:
    explicit WindowReader(qmx::FileHandle& file) : file_(file) {}

    /// `count` bytes at `position`; empty if the file has fewer.
    std::span<const UInt8> bytes(SInt64 position, std::size_t count)
    {
        if (!holds(position, count)) {
            file_.seekToFileOffset(position);
            size_ = file_.readData(window_);
            start_ = position;
        }
        return holds(position, count) ? std::span(window_).subspan(static_cast<std::size_t>(position - start_), count)
                                      : std::span<UInt8>();
    }

private:
    bool holds(SInt64 position, std::size_t count) const
    {
        return position >= start_ && static_cast<std::size_t>(position - start_) + count <= size_;
    }

    qmx::FileHandle& file_;
    SInt64 start_ = 0;
    std::size_t size_ = 0;
    std::array<UInt8, 4096> window_;
};

std::string_view textOf(std::span<const UInt8> bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

SInt64 behindChunk(SInt64 position, UInt32 size)
{
    return position + size + (size & 1) + chunkHeaderSize;
}

SInt64 findChunk(WindowReader& reader, std::string_view chunkId, SInt64 start, SInt64 end)
{
    for (SInt64 position = start == 0 ? formHeaderSize : start; position < end;) {
        const auto header = reader.bytes(position, chunkHeaderSize);
        if (header.empty())
            break;
        if (textOf(header.first(4)) == chunkId.substr(0, 4))
            return position;
        position = behindChunk(position, qmx::load32(&header[4], qmx::ByteOrder::big));
    }
    return end;
}

} // namespace

SInt64 QMXAIFFUtility::findOffsetForChunkId_inFile_startingAtOffset_endingOffset(std::string_view chunkId,
                                                                                 qmx::FileHandle& file, SInt64 start,
                                                                                 SInt64 end)
{
    WindowReader reader(file);
    return findChunk(reader, chunkId, start, end);
}

SInt64 QMXAIFFUtility::findOffsetForApplicationChunkWithCreator_inFile_startingAtOffset_endingOffset(
    UInt32 creator, qmx::FileHandle& file, SInt64 start, SInt64 end)
{
    WindowReader reader(file);
    for (SInt64 position = start;;) {
        position = findChunk(reader, "APPL", position, end);
        const auto header = position < end ? reader.bytes(position, chunkHeaderSize + 4) : std::span<const UInt8>();
        if (header.empty())
            return end;
        if (qmx::load32(&header[8], qmx::ByteOrder::big) == creator)
            return position;
        position = behindChunk(position, qmx::load32(&header[4], qmx::ByteOrder::big));
    }
}

SInt32 QMXAIFFUtility::checkFileAtPath_shouldRepair(qmx::FileHandle& file, bool shouldRepair)
{
    const SInt64 length = file.seekToEndOfFile();
    file.seekToFileOffset(0);
    std::array<UInt8, chunkHeaderSize> header{};
    if (file.readData(header) < header.size() || textOf(std::span(header).first(4)) != "FORM")
        return 4;
    const UInt32 formSize = qmx::load32(&header[4], qmx::ByteOrder::big);
    if (length == SInt64{formSize} + chunkHeaderSize)
        return 1;
    if (!shouldRepair)
        return 0;
    const SInt64 repaired = length + (formSize & 1) - chunkHeaderSize;
    if (repaired > std::numeric_limits<UInt32>::max())
        return 0; // the file is larger than a form can be
    std::array<UInt8, 4> size{};
    qmx::store32(size.data(), static_cast<UInt32>(repaired), qmx::ByteOrder::big);
    file.seekToFileOffset(4);
    if (file.writeData(size) != 0)
        return 0;
    return 2;
}

bool QMXAIFFUtility::validateFileAtPath(const std::string& path)
{
    return qmx::withinMemory(false, [&] {
        const auto file = qmx::FileHandle::fileHandleForReadingAtPath(path);
        if (!file)
            return false;
        const qmx::FileLock lock = file->lock();
        return checkFileAtPath_shouldRepair(*file, false) == 1;
    });
}

SInt32 QMXAIFFUtility::repairFileAtPath(const std::string& path)
{
    return qmx::withinMemory(0, [&]() -> SInt32 {
        const auto file = qmx::FileHandle::fileHandleForUpdatingAtPath(path);
        if (!file)
            return 0;
        const qmx::FileLock lock = file->lock();
        if (const auto settlement = qmx::settlementOf(*file))
            qmx::settle(*file, *settlement);
        const SInt32 code = checkFileAtPath_shouldRepair(*file, true);
        (void)file->synchronizeFile(); // the code is that of the check
        return code;
    });
}

bool QMXAIFFUtility::settleStoreInFileAtPath(const std::string& path)
{
    return qmx::withinMemory(false, [&] { return qmx::settleFileAtPath(path); });
}

SInt32 QMXAIFFUtility::getNextChunkId(std::string_view chunkId)
{
    static constexpr std::array<std::string_view, 14> known{"SSND", "COMM", "MARK", "INST", "MIDI", "AESD", "APPL",
                                                            "COMT", "NAME", "AUTH", "(c) ", "ANNO", "FLLR", "FVER"};
    const auto found = std::ranges::find(known, chunkId.substr(0, 4));
    return found == known.end() ? 0 : static_cast<SInt32>(found - known.begin()) + 1;
}
