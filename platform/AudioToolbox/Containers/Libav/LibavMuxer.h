// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Codings/Libav.h"
#include "AudioToolbox/Containers/Libav/LibavFile.h"

namespace qmx::libav
{

/// Frames that are no sound, at the start and at the end.
struct Gaps {
    UInt32 priming = 0, remainder = 0;
};

/// What a muxer of libavformat puts before, between and after packets. The packets stay with the caller. The same input
/// always makes the same file.
class Muxer
{
public:
    /// `muxer`: its name. `options` are its own. If `isOpen` is false afterwards, call nothing else.
    Muxer(const char* muxer, const AudioStreamBasicDescription& format, std::span<const UInt8> bare, UInt32 priming,
          const char* options = "");

    bool isOpen() const { return isOpen_; }
    /// `start` and `duration` in frames. The first packet carries the priming, the last one the remainder.
    bool add(std::span<const UInt8> packet, SInt64 start, SInt64 duration, const Gaps& gaps = {});
    /// The next packet is at this place of the file, which is not before the end of the last one.
    void moveTo(UInt64 position) { surroundings_.moveTo(position); }
    /// The bytes before the last packet that was added.
    Bytes packetHeader();
    bool finish();

    /// Final when it is finished.
    const Bytes& head() const { return surroundings_.head(); }
    const Bytes& tail() const { return surroundings_.tail(); }

private:
    bool open(const char* muxer, const AudioStreamBasicDescription& format, std::span<const UInt8> bare, UInt32 priming,
              const char* options);

    Surroundings surroundings_; // destroyed after what writes to it
    Output context_;
    Packet packet_;
    bool isOpen_ = false;
    std::size_t lastSize_ = 0;
};

} // namespace qmx::libav
