// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/PcmLayout.h"

#include <bit>
#include <cmath>

namespace qmx
{
namespace
{

constexpr bool machineIsBigEndian = std::endian::native == std::endian::big;

/// Bytes of one sample by the record; none if its counts do not add up.
std::optional<UInt32> sampleBytes(const AudioStreamBasicDescription& description)
{
    if (description.mFormatFlags & kAudioFormatFlagIsPacked)
        return (description.mBitsPerChannel + 7) / 8;
    const bool interleaved = !(description.mFormatFlags & kAudioFormatFlagIsNonInterleaved);
    const UInt32 samples = interleaved ? description.mChannelsPerFrame : 1;
    if (description.mBytesPerPacket != description.mBytesPerFrame || description.mBytesPerFrame % samples != 0)
        return std::nullopt;
    return description.mBytesPerFrame / samples;
}

bool isHighAligned(const AudioStreamBasicDescription& description, UInt32 bytes)
{
    // 20-bit samples in 3 bytes are left-justified whatever the flags say, and so is a packed sample that leaves bits
    // over
    const bool twentyInThree = description.mBitsPerChannel == 20 && bytes == 3;
    return twentyInThree || description.mBitsPerChannel == 8 * bytes ||
           (description.mFormatFlags & (kAudioFormatFlagIsAlignedHigh | kAudioFormatFlagIsPacked));
}

std::optional<SampleFormat> linearFormat(const AudioStreamBasicDescription& description)
{
    const UInt32 bits = description.mBitsPerChannel;
    if (bits == 0 || bits > 64)
        return std::nullopt;
    const auto bytes = sampleBytes(description);
    if (!bytes)
        return std::nullopt;

    // the float bit outranks the signed bit
    const bool isFloat = description.mFormatFlags & kAudioFormatFlagIsFloat;
    const bool fits =
        isFloat ? (bits == 32 || bits == 64) && *bytes * 8 == bits : bits <= 32 && *bytes <= 4 && bits <= *bytes * 8;
    if (!fits)
        return std::nullopt;

    const bool isBigEndian = description.mFormatFlags & kAudioFormatFlagIsBigEndian;
    SampleFormat format;
    format.coding = isFloat ? SampleCoding::floating : SampleCoding::integer;
    format.bytes = static_cast<UInt8>(*bytes);
    format.bits = static_cast<UInt8>(bits);
    format.isSigned = isFloat || (description.mFormatFlags & kAudioFormatFlagIsSignedInteger);
    format.isSwapped = *bytes > 1 && isBigEndian != machineIsBigEndian;
    format.isHighAligned = isHighAligned(description, *bytes);
    return format;
}

std::optional<SampleFormat> sampleFormat(const AudioStreamBasicDescription& description)
{
    switch (description.mFormatID) {
    case kAudioFormatLinearPCM:
        return linearFormat(description);
    case kAudioFormatULaw:
        return SampleFormat{.coding = SampleCoding::uLaw, .bytes = 1, .bits = 16};
    case kAudioFormatALaw:
        return SampleFormat{.coding = SampleCoding::aLaw, .bytes = 1, .bits = 16};
    default:
        return std::nullopt;
    }
}

} // namespace

bool isUsableSampleRate(Float64 rate)
{
    return std::isfinite(rate) && rate > 0 && rate <= maximumSampleRate;
}

std::optional<PcmLayout> PcmLayout::of(const AudioStreamBasicDescription& description)
{
    const UInt32 channels = description.mChannelsPerFrame;
    const bool isPacked = description.mFormatFlags & kAudioFormatFlagIsPacked;
    if (channels == 0 || channels > maximumChannels || (description.mFramesPerPacket > 1 && !isPacked))
        return std::nullopt;
    const auto sample = sampleFormat(description);
    if (!sample)
        return std::nullopt;
    const bool mayBeSplit = description.mFormatID == kAudioFormatLinearPCM && channels > 1;
    const bool isSplit = mayBeSplit && (description.mFormatFlags & kAudioFormatFlagIsNonInterleaved);
    return PcmLayout{*sample, channels, !isSplit};
}

AudioStreamBasicDescription withByteCounts(AudioStreamBasicDescription description, const PcmLayout& layout)
{
    description.mFramesPerPacket = 1;
    description.mBytesPerFrame = static_cast<UInt32>(layout.planeFrameBytes());
    description.mBytesPerPacket = description.mBytesPerFrame;
    return description;
}

} // namespace qmx
