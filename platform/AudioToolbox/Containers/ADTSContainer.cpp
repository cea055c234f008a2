// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/ADTSContainer.h"

#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Containers/FrameWindow.h"
#include "AudioToolbox/Containers/PacketContainer.h"

namespace qmx
{
namespace
{

constexpr std::size_t headerBytes = 7, checkedHeaderBytes = 9;
constexpr UInt32 largestFrame = (1 << 13) - 1;

struct FrameHeader {
    UInt16 config = 0; ///< as the coding's own parameters put it
    std::size_t headerSize = 0;
    std::size_t frameSize = 0;
};

/// Empty for what is no header of a frame with one block of audio.
std::optional<FrameHeader> parseHeader(std::span<const UInt8> bytes)
{
    if (bytes.size() < headerBytes || bytes[0] != 0xFF || (bytes[1] & 0xF6) != 0xF0 || (bytes[6] & 3) != 0)
        return std::nullopt;
    const UInt32 profile = UInt32{bytes[2]} >> 6, rate = bytes[2] >> 2U & 15U;
    const UInt32 channels = (bytes[2] & 1U) << 2 | bytes[3] >> 6U;
    FrameHeader header;
    header.config = static_cast<UInt16>((profile + 1) << 11 | rate << 7 | channels << 3);
    header.headerSize = bytes[1] & 1 ? headerBytes : checkedHeaderBytes;
    header.frameSize = (bytes[3] & 3U) << 11 | UInt32{bytes[4]} << 3 | UInt32{bytes[5]} >> 5;
    return header.frameSize > header.headerSize ? std::optional(header) : std::nullopt;
}

/// Each packet has a header of its own, which tells the format and the size. Packets are told without it.
class ADTSContainer : public PacketContainer
{
public:
    explicit ADTSContainer(std::unique_ptr<File> file) : PacketContainer(std::move(file)) {}

    AudioFileTypeID type() const override { return kAudioFileAAC_ADTSType; }

protected:
    OSStatus read() override
    {
        FrameWindow window(file_);
        UInt64 position = window.behindTag();
        std::optional<FrameHeader> first;
        for (UInt64 stray = 0; position + headerBytes <= file_.length() && stray < mostStrayBytes;) {
            const auto header = parseHeader(window.at(position, headerBytes));
            const bool fits = header && (!first || header->config == first->config) &&
                              (first || isFollowed(position + header->frameSize, window));
            if (!fits) {
                ++position;
                ++stray;
                continue;
            }
            if (!first && !describe(*header, window.at(position, header->frameSize)))
                return kAudioFileUnsupportedDataFormatError;
            first = header;
            stray = 0;
            if (!addPacket(
                    {position + header->headerSize, static_cast<UInt32>(header->frameSize - header->headerSize), 0}))
                break;
            position += header->frameSize;
        }
        setTable(0, totalFrames());
        return first ? noErr : kAudioFileInvalidFileError;
    }

    OSStatus begin() override
    {
        bare_ = makeAACConfig(kMPEG4Object_AAC_LC, static_cast<UInt32>(format_.mSampleRate), format_.mChannelsPerFrame);
        return noErr;
    }

    Bytes packetHeader(std::size_t size) const override
    {
        const UInt32 config = load16(bare_.data(), ByteOrder::big);
        const UInt32 rate = config >> 7 & 15, channels = config >> 3 & 7, profile = (config >> 11) - 1;
        const auto frame = static_cast<UInt32>(size + headerBytes);
        ByteWriter header(ByteOrder::big);
        header.u16(0xFFF1).integer(profile << 6 | rate << 2 | channels >> 2, 1, ByteOrder::big);
        header.integer((channels & 3) << 6 | frame >> 11, 1, ByteOrder::big);
        return header.integer(frame >> 3, 1, ByteOrder::big)
            .u16(static_cast<UInt16>((frame & 7) << 13 | 0x1FFC))
            .bytes();
    }

    UInt32 largestPacket() const override { return largestFrame - headerBytes; }

private:
    /// Whether a frame that ends there is followed by another, by the begin of a header that a killed writer left, or by the file's end.
    bool isFollowed(UInt64 end, FrameWindow& window) const
    {
        const bool endsHere = end <= file_.length() && file_.length() - end < headerBytes;
        return endsHere || parseHeader(window.at(end, headerBytes));
    }

    bool describe(const FrameHeader& header, std::span<const UInt8> frame)
    {
        bare_ = ByteWriter(ByteOrder::big).u16(header.config).bytes();
        const auto config = parseAACConfig(bare_);
        if (!config || config->channels == 0)
            return false;
        format_ =
            compressedFormat(kAudioFormatMPEG4AAC, kMPEG4Object_AAC_LC, config->sampleRate, config->channels, 1024);
        if (config->sampleRate <= 24000)
            probeAAC(format_, bare_, frame.subspan(std::min(frame.size(), header.headerSize)));
        return true;
    }
};

bool matches(const FileSigns& signs)
{
    return parseHeader(signs.head).has_value() || (isTagged(signs.head) && signs.hint == kAudioFileAAC_ADTSType);
}

bool holds(const AudioStreamBasicDescription& format)
{
    return format.mFormatID == kAudioFormatMPEG4AAC && holdsPackets(format);
}

} // namespace

const ContainerKind adtsKind{kAudioFileAAC_ADTSType, matches, loadPackets<ADTSContainer>, holds,
                             createPackets<ADTSContainer>};

} // namespace qmx
