// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/MP3Container.h"

#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Codings/PacketCoding.h"
#include "AudioToolbox/Containers/FrameWindow.h"
#include "AudioToolbox/Containers/PacketContainer.h"

#include <algorithm>
#include <cmath>

namespace qmx
{
namespace
{

constexpr std::size_t headerBytes = 4;
constexpr UInt32 sameStream =
    0xFFFE0C00;                      // bits of a header that no frame of a stream changes: mark, version, layer, rate
constexpr UInt32 decoderDelay = 529; // of every decoder, counted as priming

constexpr FourCharCode constantInfo = fourCharCode("Info"), variableInfo = fourCharCode("Xing");
constexpr UInt32 hasFrames = 1, hasBytes = 2, hasTable = 4, hasQuality = 8;
constexpr std::size_t tableBytes = 100;
constexpr std::size_t gapsOffset = 21; // behind the name of the encoder and what else it says

struct FrameHeader {
    UInt32 bits = 0;
    UInt32 rate = 0;
    UInt32 channels = 0;
    UInt32 frames = 0; ///< of audio
    std::size_t size = 0;
    std::size_t sideBytes = 0; ///< between the header and the main data
};

std::optional<FrameHeader> parseHeader(std::span<const UInt8> bytes)
{
    constexpr UInt32 rates[] = {44100, 48000, 32000};
    constexpr UInt32 full[] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    constexpr UInt32 low[] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    if (bytes.size() < headerBytes)
        return std::nullopt;
    FrameHeader header;
    header.bits = load32(bytes.data(), ByteOrder::big);
    const UInt32 version = header.bits >> 19 & 3, layer = header.bits >> 17 & 3;
    const UInt32 bitRate = header.bits >> 12 & 15, rate = header.bits >> 10 & 3;
    if (header.bits >> 21 != 0x7FF || version == 1 || layer != 1 || bitRate == 0 || bitRate == 15 || rate == 3)
        return std::nullopt;
    const bool isFull = version == 3;
    const bool isMono = (header.bits >> 6 & 3) == 3;
    header.rate = rates[rate] >> (isFull ? 0 : version == 2 ? 1 : 2);
    header.channels = isMono ? 1 : 2;
    header.frames = isFull ? 1152 : 576;
    header.size = (isFull ? 144 * full[bitRate] : 72 * low[bitRate]) * 1000 / header.rate + (header.bits >> 9 & 1);
    header.sideBytes = isFull ? (isMono ? 17 : 32) : (isMono ? 9 : 17);
    return header;
}

/// The header of the frame that tells about the others: wide enough for all that it tells, at every rate.
FrameHeader informationHeader(UInt32 rate, UInt32 channels)
{
    const UInt32 version = rate >= 32000 ? 3 : rate >= 16000 ? 2 : 0;
    const UInt32 base = rate << (version == 3 ? 0 : version == 2 ? 1 : 2);
    const UInt32 rateCode = base == 44100 ? 0 : base == 48000 ? 1 : 2;
    const UInt32 bits =
        0xFFE00000 | version << 19 | 1U << 17 | 1U << 16 | 9U << 12 | rateCode << 10 | (channels == 1 ? 3U : 0U) << 6;
    return *parseHeader(ByteWriter(ByteOrder::big).u32(bits).bytes());
}

bool isRate(Float64 rate)
{
    constexpr Float64 rates[] = {48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000};
    return std::ranges::find(rates, rate) != std::end(rates);
}

/// Frames of audio one behind the other; the first may hold none but tell how many there are, and the priming and remainder.
class MP3Container : public PacketContainer
{
public:
    explicit MP3Container(std::unique_ptr<File> file) : PacketContainer(std::move(file)) {}

    AudioFileTypeID type() const override { return kAudioFileMP3Type; }

protected:
    OSStatus read() override
    {
        FrameWindow window(file_);
        UInt64 position = window.behindTag();
        std::optional<FrameHeader> first;
        for (UInt64 stray = 0; position + headerBytes <= file_.length() && stray < mostStrayBytes;) {
            const auto header = parseHeader(window.at(position, headerBytes));
            if (!header || !fits(*header, first, position, window)) {
                ++position;
                ++stray;
                continue;
            }
            stray = 0;
            const bool informs = !first && readInformation(*header, window.at(position, header->size));
            if (!first)
                format_ = compressedFormat(kAudioFormatMPEGLayer3, 0, header->rate, header->channels, header->frames);
            first = header;
            if (!informs && !addPacket({position, static_cast<UInt32>(header->size), 0}))
                break;
            position += header->size;
        }
        const UInt64 total = totalFrames(), sound = total - std::min(total, gaps_.first + gaps_.second);
        setTable(gaps_.first, sound);
        return first ? noErr : kAudioFileInvalidFileError;
    }

    OSStatus begin() override
    {
        const FrameHeader header =
            informationHeader(static_cast<UInt32>(format_.mSampleRate), format_.mChannelsPerFrame);
        format_.mFramesPerPacket = header.frames;
        endOfData_ = header.size;
        return writeInformation(header);
    }

    OSStatus end() override
    {
        return writeInformation(informationHeader(static_cast<UInt32>(format_.mSampleRate), format_.mChannelsPerFrame));
    }

private:
    /// The first frame must be followed by another of its stream, so that none is seen in other bytes.
    bool fits(const FrameHeader& header, const std::optional<FrameHeader>& first, UInt64 position,
              FrameWindow& window) const
    {
        if (position + header.size > file_.length())
            return false;
        if (first)
            return ((header.bits ^ first->bits) & sameStream) == 0;
        const auto next = parseHeader(window.at(position + header.size, headerBytes));
        return position + header.size == file_.length() || (next && ((header.bits ^ next->bits) & sameStream) == 0);
    }

    /// Whether the frame is one that holds no audio.
    bool readInformation(const FrameHeader& header, std::span<const UInt8> frame)
    {
        const std::size_t start = headerBytes + header.sideBytes;
        if (frame.size() >= 40 && load32(&frame[36], ByteOrder::big) == fourCharCode("VBRI"))
            return true;
        if (frame.size() < start + 8)
            return false;
        const FourCharCode code = load32(&frame[start], ByteOrder::big);
        if (code != constantInfo && code != variableInfo)
            return false;
        const UInt32 flags = load32(&frame[start + 4], ByteOrder::big);
        std::size_t at = start + 8 + (flags & hasFrames ? 4 : 0) + (flags & hasBytes ? 4 : 0) +
                         (flags & hasTable ? tableBytes : 0) + (flags & hasQuality ? 4 : 0) + gapsOffset;
        if (frame.size() < at + 3 || frame[at - gapsOffset] == 0)
            return true;
        const auto gaps = static_cast<UInt32>(loadInteger(&frame[at], 3, ByteOrder::big));
        const UInt32 delay = gaps >> 12, padding = gaps & 0xFFF;
        gaps_ = {delay + decoderDelay, padding - std::min(padding, decoderDelay)};
        return true;
    }

    OSStatus writeInformation(const FrameHeader& header)
    {
        const AudioFilePacketTableInfo info = table();
        const UInt32 delay =
            static_cast<UInt32>(info.mPrimingFrames) - std::min(static_cast<UInt32>(info.mPrimingFrames), decoderDelay);
        const UInt32 padding = static_cast<UInt32>(info.mRemainderFrames) + decoderDelay;
        ByteWriter frame(ByteOrder::big);
        frame.u32(header.bits).zeros(header.sideBytes).code(constantInfo).u32(hasFrames | hasBytes);
        frame.u32(static_cast<UInt32>(packetCount()))
            .u32(static_cast<UInt32>(std::min<UInt64>(endOfData_, 0xFFFFFFFF)));
        frame.append(std::string_view("Lavc59.00")).zeros(gapsOffset - 9);
        frame.integer(std::min(delay, 0xFFFU) << 12 | std::min(padding, 0xFFFU), 3, ByteOrder::big);
        return file_.writeAll(0, frame.zeros(header.size - frame.bytes().size()).bytes());
    }

    std::pair<UInt64, UInt64> gaps_; ///< frames of priming and of remainder
};

bool matches(const FileSigns& signs)
{
    return parseHeader(signs.head).has_value() || isTagged(signs.head);
}

bool holds(const AudioStreamBasicDescription& format)
{
    return format.mFormatID == kAudioFormatMPEGLayer3 && isRate(format.mSampleRate) && format.mChannelsPerFrame > 0 &&
           format.mChannelsPerFrame <= 2 && std::ranges::count(encodableCodings(), kAudioFormatMPEGLayer3) > 0;
}

} // namespace

const ContainerKind mp3Kind{kAudioFileMP3Type, matches, loadPackets<MP3Container>, holds, createPackets<MP3Container>};

} // namespace qmx
