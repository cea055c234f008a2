// SPDX-License-Identifier: MIT
// Compressed codings as the converter uses them. A module makes them; without it there are none.
#pragma once

#include "CoreAudioTypes/CoreAudioTypes.h"
#include "Foundation/ByteFields.h"
#include "Foundation/Export.h"

#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace qmx
{

/// Maximum frames of one packet; hostile ones that claim more are refused.
inline constexpr UInt32 mostFramesPerPacket = 1 << 16;

/// Packets of one stream to native interleaved linear PCM at the stream's rate: 32-bit integers for lossless codings,
/// 32-bit floats for the others. One thread at a time.
class QMX_MODULE_EXPORT PacketDecoder
{
public:
    virtual ~PacketDecoder() = default;

    /// The compressed format, complete.
    virtual const AudioStreamBasicDescription& source() const = 0;
    virtual const AudioStreamBasicDescription& output() const = 0;
    /// False if the bytes are no cookie of this coding.
    virtual bool setCookie(std::span<const UInt8> cookie) = 0;
    /// Appends exactly `frames` frames to `pcm`; frames that the packet lacks are silence. False if nothing can be
    /// decoded at all.
    virtual bool decode(std::span<const UInt8> packet, UInt32 frames, Bytes& pcm) = 0;
    /// The next packet does not follow the last one: it is decoded as the first of a stream.
    virtual void restart() = 0;

    /// Null for a coding that is missing, or a record without rate and channels.
    static std::unique_ptr<PacketDecoder> forFormat(const AudioStreamBasicDescription& source);
};

/// Native linear PCM to packets of one stream. One thread at a time.
class QMX_MODULE_EXPORT PacketEncoder
{
public:
    virtual ~PacketEncoder() = default;

    /// The native interleaved linear PCM that it takes.
    virtual const AudioStreamBasicDescription& input() const = 0;
    /// The compressed format, complete.
    virtual const AudioStreamBasicDescription& target() const = 0;
    virtual UInt32 primingFrames() const = 0;
    virtual UInt32 maximumPacketSize() const = 0;
    /// Empty for codings without; final after `finish`.
    virtual Bytes cookie() const = 0;
    /// 0 for codings without.
    virtual UInt32 bitRate() const = 0;
    /// Takes the nearest applicable bit rate. False if there is none, and once frames were taken.
    virtual bool setBitRate(UInt32 bitsPerSecond) = 0;

    /// Takes `frames` frames: as many as a packet of `target` holds, except for the last ones.
    virtual bool encode(std::span<const UInt8> pcm, UInt32 frames) = 0;
    /// No more frames follow.
    virtual bool finish() = 0;
    /// The next packet that is ready; false if there is none.
    virtual bool take(Bytes& packet) = 0;
    virtual void restart() = 0;

    /// Null for what cannot be encoded. `sourceBits` apply if `target` does not say how many a lossless coding should
    /// keep.
    static std::unique_ptr<PacketEncoder> forFormat(const AudioStreamBasicDescription& target, UInt32 sourceBits);
};

/// The codings that there are, except linear and companded ones.
std::vector<AudioFormatID> decodableCodings();
std::vector<AudioFormatID> encodableCodings();

} // namespace qmx
