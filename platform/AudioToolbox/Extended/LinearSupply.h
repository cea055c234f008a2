// SPDX-License-Identifier: MIT
// Codings whose packets are single frames of constant size: nothing to decode beyond what the converter does anyway.
#pragma once

#include "AudioToolbox/Extended/FrameSupply.h"

namespace qmx
{

class LinearSupply : public FrameSupply
{
public:
    LinearSupply(AudioFileID file, const AudioStreamBasicDescription& format);

    OSStatus length(SInt64& frames) const override;
    void seek(SInt64 frame) override { position_ = frame; }
    OSStatus next(const void*& frames, UInt32& count) override;
    UInt32 leastBufferSize() const override { return format_.mBytesPerFrame; }
    void setBuffer(std::span<std::byte> buffer) override;

private:
    AudioFileID file_;
    SInt64 position_ = 0;
    UInt32 framesAtOnce_ = 0;
    std::span<std::byte> buffer_;
};

} // namespace qmx
