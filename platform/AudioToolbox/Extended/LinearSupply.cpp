// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/LinearSupply.h"

#include "AudioToolbox/Extended/FileValues.h"

namespace qmx
{

LinearSupply::LinearSupply(AudioFileID file, const AudioStreamBasicDescription& format)
    : FrameSupply(format), file_(file)
{
}

OSStatus LinearSupply::length(SInt64& frames) const
{
    return fileValue(file_, kAudioFilePropertyAudioDataPacketCount, frames);
}

OSStatus LinearSupply::next(const void*& frames, UInt32& count)
{
    count = framesAtOnce_;
    UInt32 bytes = 0;
    const OSStatus status = readPackets(file_, position_, count, bytes, nullptr, buffer_.data());
    frames = buffer_.data();
    position_ += count;
    return status;
}

void LinearSupply::setBuffer(std::span<std::byte> buffer)
{
    buffer_ = buffer;
    framesAtOnce_ = static_cast<UInt32>(buffer.size() / format_.mBytesPerFrame);
}

} // namespace qmx
