// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/FLACContainer.h"

#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Codings/PacketCoding.h"
#include "AudioToolbox/Containers/FrameWindow.h"
#include "AudioToolbox/Containers/PacketContainer.h"
#include "AudioToolbox/Containers/SampleLayout.h"

#include <cmath>

namespace qmx
{
namespace
{

constexpr FourCharCode fileID = fourCharCode("fLaC");
constexpr std::size_t infoBytes = 34;
constexpr UInt64 infoStart = 8; // behind the mark and the header of the first block
constexpr UInt64 firstFrame = infoStart + infoBytes;
constexpr UInt32 lastBlock = 0x80000000;
constexpr std::size_t longestHeader = 16;
constexpr UInt64 largestFrame = UInt64{1} << 24; // what a decoder takes at most
constexpr int mostBlocks = 4096;                 // of metadata

struct FrameHeader {
    UInt32 frames = 0;
    bool isVariable = false;
    UInt64 number = 0; ///< of the frame, or of its first sample
};

UInt8 checkSum(std::span<const UInt8> bytes)
{
    UInt32 sum = 0;
    for (const UInt8 byte : bytes) {
        sum ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            sum = sum << 1 ^ (sum & 0x80 ? 0x107U : 0U);
    }
    return static_cast<UInt8>(sum);
}

/// The number that is written like a character of UTF-8, with up to seven bytes; `at` moves behind it.
std::optional<UInt64> codedNumber(std::span<const UInt8> bytes, std::size_t& at)
{
    const UInt8 lead = bytes[at++];
    int more = 0;
    while (more < 7 && lead & 0x80 >> more)
        ++more;
    if (more == 1 || (more == 7 && lead != 0xFE))
        return std::nullopt;
    UInt64 value = more == 0 ? lead : lead & (0x7FU >> more);
    for (int i = 1; i < more; ++i) {
        if (at >= bytes.size() || (bytes[at] & 0xC0) != 0x80)
            return std::nullopt;
        value = value << 6 | (bytes[at++] & 0x3FU);
    }
    return value;
}

std::optional<FrameHeader> parseHeader(std::span<const UInt8> bytes)
{
    if (bytes.size() < 6 || bytes[0] != 0xFF || (bytes[1] & 0xFE) != 0xF8 || bytes[3] & 1)
        return std::nullopt;
    const UInt32 sizeCode = bytes[2] >> 4U, rateCode = bytes[2] & 15U;
    if (sizeCode == 0 || rateCode == 15)
        return std::nullopt;
    FrameHeader header;
    header.isVariable = (bytes[1] & 1) != 0;
    std::size_t at = 4;
    const auto number = codedNumber(bytes, at);
    const std::size_t sizeBytes = sizeCode == 6 ? 1 : sizeCode == 7 ? 2 : 0;
    const std::size_t rateBytes = rateCode == 12 ? 1 : rateCode > 12 ? 2 : 0;
    if (!number || at + sizeBytes + rateBytes >= bytes.size())
        return std::nullopt;
    header.number = *number;
    if (sizeBytes > 0)
        header.frames = static_cast<UInt32>(loadInteger(&bytes[at], sizeBytes, ByteOrder::big)) + 1;
    else
        header.frames = sizeCode == 1 ? 192 : sizeCode < 6 ? 576U << (sizeCode - 2) : 256U << (sizeCode - 8);
    at += sizeBytes + rateBytes;
    return checkSum(bytes.first(at)) == bytes[at] ? std::optional(header) : std::nullopt;
}

/// Frames stand one behind the other and do not tell their sizes: each ends where the header of the next one stands.
class FLACContainer : public PacketContainer
{
public:
    explicit FLACContainer(std::unique_ptr<File> file) : PacketContainer(std::move(file)) {}

    AudioFileTypeID type() const override { return kAudioFileFLACType; }

protected:
    OSStatus read() override
    {
        UInt64 position = 4;
        if (const OSStatus status = readBlocks(position); status != noErr)
            return status;
        UInt64 total = 0;
        const auto format = formatFromFLAC(bare_, total);
        if (!format || !isPlausible(format->mSampleRate, format->mChannelsPerFrame))
            return kAudioFileUnsupportedDataFormatError;
        format_ = *format;
        const UInt64 found = readFrames(position);
        setTable(0, total > 0 ? std::min(total, found) : found);
        return noErr;
    }

    OSStatus begin() override
    {
        endOfData_ = firstFrame;
        return file_.writeAll(
            0, ByteWriter(ByteOrder::big).code(fileID).u32(lastBlock | infoBytes).zeros(infoBytes).bytes());
    }

    // written at once, so that a file whose writer is killed can be read
    OSStatus cookieChanged() override { return file_.writeAll(infoStart, bare_); }

private:
    OSStatus readBlocks(UInt64& position)
    {
        std::array<UInt8, 4> header{};
        for (int count = 0; count < mostBlocks; ++count) {
            if (const OSStatus status = file_.readAll(position, header); status != noErr)
                return status;
            const UInt32 size = load32(header.data(), ByteOrder::big) & 0xFFFFFF;
            if ((header[0] & 0x7F) == 0 && bare_.empty() && size >= infoBytes) {
                bare_.resize(infoBytes);
                if (const OSStatus status = file_.readAll(position + 4, bare_); status != noErr)
                    return status;
            }
            position += 4 + size;
            if (header[0] & 0x80)
                return bare_.empty() ? kAudioFileInvalidFileError : noErr;
        }
        return kAudioFileInvalidFileError;
    }

    /// Finds the frames from `position` on; how many samples they hold.
    UInt64 readFrames(UInt64 position)
    {
        FrameWindow window(file_);
        std::optional<FrameHeader> current;
        UInt64 start = position, samples = 0;
        const auto addUpTo = [&](UInt64 end) { // false: no more of them
            if (!current)
                return true;
            samples += current->frames;
            const UInt32 frames = format_.mFramesPerPacket > 0 ? 0 : current->frames;
            return end - start <= largestFrame && addPacket({start, static_cast<UInt32>(end - start), frames});
        };
        for (; position < file_.length(); ++position) {
            const auto header = parseHeader(window.at(position, longestHeader));
            if (!header || (current && !follows(*current, *header)))
                continue;
            if (!addUpTo(position))
                return samples;
            current = header;
            start = position;
        }
        addUpTo(file_.length());
        return samples;
    }

    static bool follows(const FrameHeader& before, const FrameHeader& next)
    {
        const UInt64 step = before.isVariable ? before.frames : 1;
        return next.isVariable == before.isVariable && next.number == before.number + step;
    }
};

bool matches(const FileSigns& signs)
{
    return load32(signs.head.data(), ByteOrder::big) == fileID;
}

bool holds(const AudioStreamBasicDescription& format)
{
    constexpr Float64 highestRate = 655350;
    return format.mFormatID == kAudioFormatFLAC && format.mSampleRate == std::floor(format.mSampleRate) &&
           isPlausible(format.mSampleRate, format.mChannelsPerFrame) && format.mSampleRate <= highestRate &&
           format.mChannelsPerFrame <= 8 && format.mFramesPerPacket < mostFramesPerPacket;
}

} // namespace

const ContainerKind flacKind{kAudioFileFLACType, matches, loadPackets<FLACContainer>, holds,
                             createPackets<FLACContainer>};

} // namespace qmx
