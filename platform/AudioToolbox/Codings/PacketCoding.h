// SPDX-License-Identifier: MIT
// Compressed codings as the converter uses them. What makes them is in the sources named after the library that does
// it; a build without it has none.
#pragma once

#include "CoreAudioTypes/CoreAudioTypes.h"
#include "Foundation/ByteFields.h"

#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace qmx
{

/// No packet stands for more frames; hostile ones that say so are refused.
inline constexpr UInt32 mostFramesPerPacket = 1 << 16;

/// Packets of one stream to native interleaved linear PCM at the stream's rate: 32-bit integers for lossless codings,
/// 32-bit floats for the others. One thread at a time.
class PacketDecoder
{
public:
    virtual ~PacketDecoder() = default;

    /// The compressed format, complete.
    virtual const AudioStreamBasicDescription& source() const = 0;
    virtual const AudioStreamBasicDescription& output() const = 0;
    /// False for one that is no cookie of this coding.
    virtual bool setCookie(std::span<const UInt8> cookie) = 0;
    /// Appends exactly `frames` frames to `pcm`; what the packet does not give is silence. False where nothing can be
    /// decoded at all.
    virtual bool decode(std::span<const UInt8> packet, UInt32 frames, Bytes& pcm) = 0;
    /// The next packet does not follow the last one: it is decoded as the first one of a stream.
    virtual void restart() = 0;

    /// Null for a coding that is not there, or a record without rate and channels.
    static std::unique_ptr<PacketDecoder> forFormat(const AudioStreamBasicDescription& source);
};

/// Native linear PCM to packets of one stream. One thread at a time.
class PacketEncoder
{
public:
    virtual ~PacketEncoder() = default;

    /// Native interleaved linear PCM as it takes it.
    virtual const AudioStreamBasicDescription& input() const = 0;
    /// The compressed format, complete.
    virtual const AudioStreamBasicDescription& target() const = 0;
    virtual UInt32 primingFrames() const = 0;
    virtual UInt32 maximumPacketSize() const = 0;
    /// Empty for codings without; final after `finish`.
    virtual Bytes cookie() const = 0;
    /// 0 for codings without.
    virtual UInt32 bitRate() const = 0;
    /// Takes the nearest bit rate that is applicable. False where there is none, and once frames were taken.
    virtual bool setBitRate(UInt32 bitsPerSecond) = 0;

    /// Takes `frames` frames: as many as a packet of `target` stands for, but for the last ones.
    virtual bool encode(std::span<const UInt8> pcm, UInt32 frames) = 0;
    /// No more frames follow.
    virtual bool finish() = 0;
    /// The next packet that is ready; false where there is none.
    virtual bool take(Bytes& packet) = 0;
    virtual void restart() = 0;

    /// Null for what cannot be encoded. `sourceBits` are taken where `target` does not say how many a lossless coding
    /// is to keep.
    static std::unique_ptr<PacketEncoder> forFormat(const AudioStreamBasicDescription& target, UInt32 sourceBits);
};

/// The codings that are there, without those that are linear or companded.
std::vector<AudioFormatID> decodableCodings();
std::vector<AudioFormatID> encodableCodings();

} // namespace qmx
