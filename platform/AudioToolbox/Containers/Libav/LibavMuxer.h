// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Codings/Libav.h"
#include "AudioToolbox/Containers/Libav/LibavFile.h"

namespace qmx::libav
{

/// Frames that are no sound, at the begin and at the end.
struct Gaps {
    UInt32 priming = 0, remainder = 0;
};

/// What a muxer of libavformat puts in front of packets, between and behind them. The packets stay with the caller.
/// Files are the same each time they are made of the same.
class Muxer
{
public:
    /// `muxer`: its name. `options` are its own. Call no more of it where `isOpen` is false then.
    Muxer(const char* muxer, const AudioStreamBasicDescription& format, std::span<const UInt8> bare, UInt32 priming,
          const char* options = "");

    bool isOpen() const { return isOpen_; }
    /// `start` and `duration` in frames. The first packet tells the priming, the last one the remainder.
    bool add(std::span<const UInt8> packet, SInt64 start, SInt64 duration, const Gaps& gaps = {});
    /// What stands in front of the last packet that was added.
    Bytes packetHeader();
    bool finish();

    /// Final when it is finished.
    const Bytes& head() const { return surroundings_.head(); }
    const Bytes& tail() const { return surroundings_.tail(); }

private:
    bool open(const char* muxer, const AudioStreamBasicDescription& format, std::span<const UInt8> bare, UInt32 priming,
              const char* options);

    Surroundings surroundings_; // goes after what writes to it
    Output context_;
    Packet packet_;
    bool isOpen_ = false;
    std::size_t lastSize_ = 0;
};

} // namespace qmx::libav
