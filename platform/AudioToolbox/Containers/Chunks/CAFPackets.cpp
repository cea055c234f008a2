// SPDX-License-Identifier: MIT
// CAF files whose packets differ in size: a table of the sizes, which is written when the file is closed. A file whose
// writer was killed before has none and cannot be read.
#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Containers/Chunks/CAFContainer.h"
#include "AudioToolbox/Containers/PacketContainer.h"
#include "AudioToolbox/Containers/SampleLayout.h"

#include <algorithm>
#include <limits>

namespace qmx
{
namespace
{

constexpr UInt64 toTheEnd = std::numeric_limits<UInt64>::max();
constexpr std::size_t tableHeaderBytes = 24;
constexpr std::size_t largestCookie = std::size_t{1} << 16;

/// Numbers of 7 bits a byte, the most significant ones first.
class NumberReader
{
public:
    explicit NumberReader(std::span<const UInt8> bytes) : bytes_(bytes) {}

    std::optional<UInt32> next()
    {
        UInt32 value = 0;
        for (int count = 0; at_ < bytes_.size() && count < 5; ++count) {
            const UInt8 byte = bytes_[at_++];
            value = value << 7 | (byte & 0x7FU);
            if (byte < 0x80)
                return value;
        }
        return std::nullopt;
    }

private:
    std::span<const UInt8> bytes_;
    std::size_t at_ = 0;
};

void appendNumber(ByteWriter& writer, UInt32 value)
{
    for (int shift = 28; shift >= 0; shift -= 7)
        if (shift == 0 || value >> shift != 0)
            writer.integer((value >> shift & 0x7F) | (shift > 0 ? 0x80 : 0), 1, ByteOrder::big);
}

class CAFPackets : public PacketContainer
{
public:
    explicit CAFPackets(std::unique_ptr<File> file) : PacketContainer(std::move(file)) {}

    AudioFileTypeID type() const override { return kAudioFileCAFType; }
    bool keepsReadable() const override { return false; }

protected:
    OSStatus read() override
    {
        ChunkReader reader(file_, ByteOrder::big, cafShape);
        auto chunk = reader.at(cafShape.formHeaderBytes);
        Bytes description, table;
        Chunk data;
        for (int count = 0; chunk && count < mostChunks; ++count) {
            if (chunk->id == fourCharCode("desc"))
                description = contents(*chunk, cafDescriptionBytes);
            else if (chunk->id == fourCharCode("kuki"))
                bare_ = contents(*chunk, largestCookie);
            else if (chunk->id == fourCharCode("pakt"))
                table = contents(*chunk, 5 * mostPackets);
            else if (chunk->id == fourCharCode("data"))
                data = *chunk;
            if (!reader.fits(*chunk))
                break;
            chunk = reader.after(*chunk);
        }
        if (description.size() < cafDescriptionBytes || data.id == 0)
            return kAudioFileInvalidFileError;
        const auto described = cafDescription(description);
        bare_ = bareFromCookie(described.mFormatID, bare_);
        if (!isKnown(described))
            return kAudioFileUnsupportedDataFormatError;
        format_ = compressedFormat(described.mFormatID, described.mFormatFlags, described.mSampleRate,
                                   described.mChannelsPerFrame, described.mFramesPerPacket);
        return readTable(table, described.mBytesPerPacket, data);
    }

    OSStatus begin() override
    {
        const Bytes header = cafHeader(format_, format_.mFormatFlags, toTheEnd);
        endOfData_ = header.size();
        return file_.writeAll(0, header);
    }

    OSStatus tail(Bytes& bytes) override
    {
        ByteWriter tail(ByteOrder::big);
        if (const Bytes cookie = cookieFromBare(format_.mFormatID, bare_); !cookie.empty())
            tail.code(fourCharCode("kuki")).u64(cookie.size()).append(cookie);
        const Bytes table = packetTable();
        bytes = tail.code(fourCharCode("pakt")).u64(table.size()).append(table).bytes();
        return noErr;
    }

    // the cookie may state the format more exactly
    OSStatus end() override
    {
        return file_.writeAll(0,
                              cafHeader(format_, format_.mFormatFlags, endOfData_ - cafHeader(format_, 0, 0).size()));
    }

private:
    static bool isKnown(const AudioStreamBasicDescription& format)
    {
        return hasPackets(format.mFormatID) && isPlausible(format.mSampleRate, format.mChannelsPerFrame) &&
               format.mFramesPerPacket <= 1 << 16;
    }

    Bytes contents(const Chunk& chunk, std::size_t largest)
    {
        const UInt64 available = file_.length() - std::min(file_.length(), chunk.dataStart());
        Bytes bytes(static_cast<std::size_t>(std::min({chunk.size, available, UInt64{largest}})));
        return file_.readAll(chunk.dataStart(), bytes) == noErr ? bytes : Bytes();
    }

    OSStatus readTable(const Bytes& table, UInt32 packetBytes, const Chunk& data)
    {
        const UInt64 end = std::min(data.end(), file_.length());
        UInt64 position = data.dataStart() + cafEditCountBytes;
        UInt64 count = table.size() >= tableHeaderBytes ? load64(table.data(), ByteOrder::big) : 0;
        if (packetBytes > 0 && count == 0)
            count = (end - std::min(end, position)) / packetBytes;
        else if (table.size() < tableHeaderBytes)
            return kAudioFileInvalidFileError;
        NumberReader numbers(std::span<const UInt8>(table).subspan(std::min(table.size(), tableHeaderBytes)));
        for (; count > 0 && position < end; --count) {
            const auto size = packetBytes > 0 ? std::optional(packetBytes) : numbers.next();
            const auto frames = format_.mFramesPerPacket > 0 ? std::optional(0U) : numbers.next();
            if (!size || !frames || *size > end - position || !addPacket({position, *size, *frames}))
                break;
            position += *size;
        }
        endOfData_ = position;
        readGaps(table);
        return noErr;
    }

    void readGaps(const Bytes& table)
    {
        if (table.size() < tableHeaderBytes)
            return setTable(0, totalFrames());
        const auto valid = static_cast<SInt64>(load64(&table[8], ByteOrder::big));
        const auto priming = static_cast<SInt32>(load32(&table[16], ByteOrder::big));
        setTable(static_cast<UInt64>(std::max(0, priming)), static_cast<UInt64>(std::max<SInt64>(0, valid)));
    }

    Bytes packetTable() const
    {
        const AudioFilePacketTableInfo info = table();
        ByteWriter writer(ByteOrder::big);
        writer.u64(packetCount()).u64(static_cast<UInt64>(info.mNumberValidFrames));
        writer.u32(static_cast<UInt32>(info.mPrimingFrames)).u32(static_cast<UInt32>(info.mRemainderFrames));
        for (const PacketPlace& packet : packets()) {
            appendNumber(writer, packet.size);
            if (format_.mFramesPerPacket == 0)
                appendNumber(writer, packet.frames);
        }
        return writer.bytes();
    }
};

} // namespace

OSStatus openCAFPackets(std::unique_ptr<File> file, std::unique_ptr<Container>& container)
{
    return loadPackets<CAFPackets>({std::move(file), {}}, false, container);
}

OSStatus createCAFPackets(std::unique_ptr<File> file, const AudioStreamBasicDescription& format,
                          std::unique_ptr<Container>& container)
{
    return createPackets<CAFPackets>({std::move(file), {}}, format, container);
}

} // namespace qmx
