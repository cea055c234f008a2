// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/SampleLayout.h"

#include "AudioToolbox/Conversion/PcmLayout.h"

#include <bit>

namespace qmx
{
namespace
{

using Coding = SampleLayout::Coding;

constexpr UInt32 fewestBits = 8;

Coding codingOf(const SampleFormat& sample)
{
    switch (sample.coding) {
    case SampleCoding::floating:
        return Coding::floatingPoint;
    case SampleCoding::uLaw:
        return Coding::uLaw;
    case SampleCoding::aLaw:
        return Coding::aLaw;
    default:
        return sample.isSigned ? Coding::signedInteger : Coding::unsignedInteger;
    }
}

ByteOrder orderOf(const SampleFormat& sample)
{
    const bool isBig = sample.isSwapped != (std::endian::native == std::endian::big);
    return isBig ? ByteOrder::big : ByteOrder::little;
}

bool isCompanded(const SampleLayout& layout)
{
    return layout.coding == Coding::uLaw || layout.coding == Coding::aLaw;
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
    return isUsableSampleRate(sampleRate) && channels > 0 && channels <= maximumChannels;
}

std::optional<SampleLayout> layoutOf(const AudioStreamBasicDescription& format)
{
    const auto pcm = PcmLayout::of(format);
    if (!pcm || !isUsableSampleRate(format.mSampleRate) || !pcm->isInterleaved || !pcm->sample.isHighAligned ||
        pcm->sample.bits < fewestBits)
        return std::nullopt;
    SampleLayout layout{codingOf(pcm->sample), orderOf(pcm->sample), pcm->sample.bits, pcm->sample.bytes};
    return isCompanded(layout) ? SampleLayout{layout.coding, ByteOrder::big, 8, 1} : layout;
}

AudioStreamBasicDescription formatOf(const SampleLayout& layout, Float64 sampleRate, UInt32 channels)
{
    AudioStreamBasicDescription format;
    format.mSampleRate = sampleRate;
    format.mChannelsPerFrame = channels;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = format.mBytesPerPacket = layout.bytes * channels;
    format.mBitsPerChannel = layout.bits;
    if (isCompanded(layout)) {
        format.mFormatID = layout.coding == Coding::uLaw ? kAudioFormatULaw : kAudioFormatALaw;
        return format;
    }
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = linearFlags(layout);
    return format;
}

} // namespace qmx
