// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/SampleLayout.h"

#include <cmath>

namespace qmx
{
namespace
{

using Coding = SampleLayout::Coding;

constexpr Float64 largestRate = 10e6;
constexpr UInt32 mostChannels = 1024;

bool has(const AudioStreamBasicDescription& format, AudioFormatFlags flag)
{
    return (format.mFormatFlags & flag) != 0;
}

// Bytes of one sample of a linear format; 0 where its fields contradict each other.
UInt32 bytesOfSample(const AudioStreamBasicDescription& format)
{
    const UInt32 needed = (format.mBitsPerChannel + 7) / 8;
    if (has(format, kAudioFormatFlagIsPacked))
        return needed;
    const UInt32 bytes = format.mBytesPerFrame / format.mChannelsPerFrame;
    const bool divides = bytes * format.mChannelsPerFrame == format.mBytesPerFrame;
    const bool fills = bytes * 8 == format.mBitsPerChannel;
    return divides && bytes >= needed && (fills || has(format, kAudioFormatFlagIsAlignedHigh)) ? bytes : 0;
}

std::optional<SampleLayout> linearLayout(const AudioStreamBasicDescription& format)
{
    if (has(format, kAudioFormatFlagIsNonInterleaved) && format.mChannelsPerFrame > 1)
        return std::nullopt;
    SampleLayout layout;
    layout.order = has(format, kAudioFormatFlagIsBigEndian) ? ByteOrder::big : ByteOrder::little;
    layout.bits = format.mBitsPerChannel;
    if (layout.bits < 8 || layout.bits > 64)
        return std::nullopt;
    layout.bytes = bytesOfSample(format);
    if (has(format, kAudioFormatFlagIsFloat)) {
        layout.coding = Coding::floatingPoint;
        return (layout.bits == 32 || layout.bits == 64) && layout.bytes * 8 == layout.bits ? std::optional(layout)
                                                                                           : std::nullopt;
    }
    layout.coding = has(format, kAudioFormatFlagIsSignedInteger) ? Coding::signedInteger : Coding::unsignedInteger;
    return layout.bytes >= 1 && layout.bytes <= 4 ? std::optional(layout) : std::nullopt;
}

AudioFormatFlags linearFlags(const SampleLayout& layout)
{
    AudioFormatFlags flags = layout.bits == layout.bytes * 8 ? kAudioFormatFlagIsPacked : kAudioFormatFlagIsAlignedHigh;
    if (layout.coding == Coding::floatingPoint)
        flags |= kAudioFormatFlagIsFloat;
    if (layout.coding == Coding::signedInteger)
        flags |= kAudioFormatFlagIsSignedInteger;
    if (layout.order == ByteOrder::big)
        flags |= kAudioFormatFlagIsBigEndian;
    return flags;
}

} // namespace

bool isPlausible(Float64 sampleRate, UInt32 channels)
{
    return std::isfinite(sampleRate) && sampleRate > 0 && sampleRate <= largestRate && channels > 0 &&
           channels <= mostChannels;
}

std::optional<SampleLayout> layoutOf(const AudioStreamBasicDescription& format)
{
    if (!isPlausible(format.mSampleRate, format.mChannelsPerFrame))
        return std::nullopt;
    switch (format.mFormatID) {
    case kAudioFormatLinearPCM:
        return linearLayout(format);
    case kAudioFormatULaw:
        return SampleLayout{Coding::uLaw, ByteOrder::big, 8, 1};
    case kAudioFormatALaw:
        return SampleLayout{Coding::aLaw, ByteOrder::big, 8, 1};
    default:
        return std::nullopt;
    }
}

AudioStreamBasicDescription formatOf(const SampleLayout& layout, Float64 sampleRate, UInt32 channels)
{
    AudioStreamBasicDescription format;
    format.mSampleRate = sampleRate;
    format.mChannelsPerFrame = channels;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = format.mBytesPerPacket = layout.bytes * channels;
    format.mBitsPerChannel = layout.bits;
    if (layout.coding == Coding::uLaw || layout.coding == Coding::aLaw) {
        format.mFormatID = layout.coding == Coding::uLaw ? kAudioFormatULaw : kAudioFormatALaw;
        return format;
    }
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = linearFlags(layout);
    return format;
}

} // namespace qmx
