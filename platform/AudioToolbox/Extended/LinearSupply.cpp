// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/LinearSupply.h"

#include "AudioToolbox/Extended/FileValues.h"

#include <algorithm>

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
    buffer_.resize(std::size_t{framesAtOnce_} * format_.mBytesPerFrame);
    count = framesAtOnce_;
    UInt32 bytes = 0;
    const OSStatus status = AudioFileReadPackets(file_, false, &bytes, nullptr, position_, &count, buffer_.data());
    frames = buffer_.data();
    position_ += count;
    return status == eofErr ? noErr : status;
}

void LinearSupply::setBufferSize(UInt32 bytes)
{
    framesAtOnce_ = std::max<UInt32>(1, bytes / format_.mBytesPerFrame);
}

} // namespace qmx
