// SPDX-License-Identifier: MIT
// Codings with packets: decoded to linear PCM, cut to the frames of the original signal.
#pragma once

#include "AudioToolbox/AudioConverter.h"
#include "AudioToolbox/Extended/ExtendedFile.h"
#include "AudioToolbox/Extended/FrameSupply.h"

#include <vector>

namespace qmx
{

class DecodedSupply : public FrameSupply
{
public:
    /// Returns a status and makes no supply for a coding without a decoder.
    static OSStatus make(AudioFileID file, const AudioStreamBasicDescription& coding,
                         std::unique_ptr<FrameSupply>& supply);

    OSStatus length(SInt64& frames) const override;
    void seek(SInt64 frame) override;
    OSStatus next(const void*& frames, UInt32& count) override;
    UInt32 leastBufferSize() const override;
    void setBuffer(std::span<std::byte> buffer) override;

private:
    DecodedSupply(AudioFileID file, const AudioStreamBasicDescription& decoded, ConverterHandle decoder);

    OSStatus loadTable();
    OSStatus begin();
    OSStatus givePackets(UInt32& count, AudioBuffer& buffer, AudioStreamPacketDescription** descriptions);

    AudioFileID file_;
    ConverterHandle decoder_;
    AudioFilePacketTableInfo table_;

    SInt64 position_ = 0;
    bool mustBegin_ = true; // the decoder is not at the position
    SInt64 nextPacket_ = 0;
    UInt32 packetsAtOnce_ = 1, framesAtOnce_ = 1;
    std::span<std::byte> packets_;
    std::vector<std::byte> frames_; // decoded
    std::vector<AudioStreamPacketDescription> descriptions_;
};

} // namespace qmx
