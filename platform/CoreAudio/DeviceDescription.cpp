// SPDX-License-Identifier: MIT
#include "CoreAudio/DeviceDescription.h"

namespace qmx
{

UInt32 numberOfChannels(const SectionDescription& section)
{
    UInt32 channels = 0;
    for (const StreamDescription& stream : section.streams)
        channels += stream.channels;
    return channels;
}

AudioStreamBasicDescription packedPhysicalFormat(Float64 sampleRate, UInt32 channels, UInt32 bits, bool isFloat)
{
    const UInt32 bytesPerFrame = (bits + 7) / 8 * channels;
    return {.mSampleRate = sampleRate,
            .mFormatID = kAudioFormatLinearPCM,
            .mFormatFlags =
                kAudioFormatFlagIsPacked | (isFloat ? kAudioFormatFlagIsFloat : kAudioFormatFlagIsSignedInteger),
            .mBytesPerPacket = bytesPerFrame,
            .mFramesPerPacket = 1,
            .mBytesPerFrame = bytesPerFrame,
            .mChannelsPerFrame = channels,
            .mBitsPerChannel = bits,
            .mReserved = 0};
}

} // namespace qmx
