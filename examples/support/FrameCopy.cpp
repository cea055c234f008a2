// SPDX-License-Identifier: MIT
#include "support/FrameCopy.h"

#include "support/Failure.h"
#include "support/StatusText.h"

#include <algorithm>
#include <vector>

namespace example
{

AudioStreamBasicDescription linearFormat(const AudioStreamBasicDescription& source, AudioFormatFlags kind, UInt32 bits)
{
    AudioStreamBasicDescription format = source;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = kind | kAudioFormatFlagIsPacked | kAudioFormatFlagsNativeEndian;
    format.mBitsPerChannel = bits;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = format.mBytesPerPacket = format.mChannelsPerFrame * bits / 8;
    return format;
}

void copyFrames(QMXExtAudioFile& source, SInt64 count, QMXExtAudioFile& target, const std::string& targetName,
                const std::function<void(double fraction)>& progress)
{
    constexpr UInt32 framesAtOnce = 16384;
    const UInt32 channels = source.clientChannelsPerFrame(), frameBytes = source.clientBytesPerFrame();
    std::vector<Byte> block(std::size_t{framesAtOnce} * frameBytes);
    for (SInt64 left = count; left > 0;) {
        auto frames = static_cast<UInt32>(std::min<SInt64>(framesAtOnce, left));
        AudioBufferList list;
        list.mNumberBuffers = 1;
        list.mBuffers[0] = {channels, frames * frameBytes, block.data()};
        check(source.read_numberFrames(&list, &frames), "cannot read", source.path());
        if (frames == 0)
            throw Failure{source.path() + ": cannot be read to its end"};
        check(target.write_numberFrames(&list, frames), "cannot write", targetName);
        left -= frames;
        progress(1 - static_cast<double>(left) / static_cast<double>(count));
    }
    check(target.close(), "cannot write", targetName);
}

} // namespace example
