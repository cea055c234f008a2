// SPDX-License-Identifier: MIT
// The frames of an audio file as linear PCM at the file's own rate and channels, from any frame on. Readers need not
// know of packets, of a coding's delay and padding, or of decoding.
#pragma once

#include "AudioToolbox/AudioFile.h"

#include <cstddef>
#include <memory>
#include <span>

namespace qmx
{

/// One thread at a time.
class FrameSupply
{
public:
    virtual ~FrameSupply() = default;
    FrameSupply(const FrameSupply&) = delete;
    FrameSupply& operator=(const FrameSupply&) = delete;

    /// The format of the frames: linear PCM or companded samples in one interleaved buffer.
    const AudioStreamBasicDescription& format() const { return format_; }
    /// Frames of the original signal in the file, or a status.
    virtual OSStatus length(SInt64& frames) const = 0;
    /// The next frames are those from `frame` on, 0 or more.
    virtual void seek(SInt64 frame) = 0;
    /// The next frames, as many as the buffer holds; they stay valid until the next call. None with status 0 means the
    /// end. If reading fails, the frames before that come with status 0, and then none with the failure, until reading
    /// succeeds.
    virtual OSStatus next(const void*& frames, UInt32& count) = 0;
    /// The minimum bytes of a buffer.
    virtual UInt32 leastBufferSize() const = 0;
    /// From the next call of `next` on, the file is read through this memory, which the caller owns.
    virtual void setBuffer(std::span<std::byte> buffer) = 0;

    /// The supply for a file of the service; null and a status if its coding cannot be read.
    static OSStatus make(AudioFileID file, std::unique_ptr<FrameSupply>& supply);

protected:
    explicit FrameSupply(const AudioStreamBasicDescription& format) : format_(format) {}

    AudioStreamBasicDescription format_;
};

} // namespace qmx
