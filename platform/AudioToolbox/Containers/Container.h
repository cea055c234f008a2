// SPDX-License-Identifier: MIT
// What the audio file service asks of a container. A new container is a class that implements this interface and a line
// in ContainerTable.cpp; the service knows neither.
#pragma once

#include "AudioToolbox/AudioFile.h"
#include "Foundation/ByteFields.h"

#include <memory>
#include <optional>
#include <span>
#include <utility>

namespace qmx
{

/// An open audio file of one kind. Positions and sizes count audio data only. One thread at a time. Every failure is a
/// status and leaves the file as usable as it was.
class QMX_MODULE_EXPORT Container
{
public:
    virtual ~Container();
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;

    virtual AudioFileTypeID type() const = 0;
    const AudioStreamBasicDescription& format() const { return format_; }

    /// Bytes of whole packets, those not yet in the header included.
    virtual UInt64 byteCount() const = 0;
    virtual UInt64 packetCount() const;
    virtual UInt32 maximumPacketSize() const;
    /// Where the audio data start in the file.
    virtual SInt64 dataOffset() const = 0;
    /// Whether the audio data can grow without moving anything.
    virtual bool isOptimized() const = 0;
    /// The codes of the file's chunks in file order; empty for containers without chunks.
    virtual std::vector<UInt32> chunkIDs() = 0;

    /// `count` becomes what was transferred, on failure too. `start` is not negative.
    [[nodiscard]] virtual OSStatus readBytes(UInt64 start, UInt32& count, void* buffer) = 0;
    [[nodiscard]] virtual OSStatus writeBytes(UInt64 start, UInt32& count, const void* buffer) = 0;
    /// Packets; by arithmetic unless the container says otherwise. `descriptions` may be null.
    [[nodiscard]] virtual OSStatus readPackets(UInt64 start, UInt32& packets, UInt32& bytes,
                                               AudioStreamPacketDescription* descriptions, void* buffer);
    [[nodiscard]] virtual OSStatus writePackets(UInt64 start, UInt32& packets, UInt32 bytes,
                                                const AudioStreamPacketDescription* descriptions, const void* buffer);

    /// The coding's own parameters; 'pty?' for codings that have none.
    [[nodiscard]] virtual OSStatus magicCookie(Bytes& cookie) const;
    [[nodiscard]] virtual OSStatus setMagicCookie(std::span<const UInt8> cookie);
    /// Of compressed files; 'pty?' for others.
    [[nodiscard]] virtual OSStatus packetTableInfo(AudioFilePacketTableInfo& info) const;
    [[nodiscard]] virtual OSStatus setPacketTableInfo(const AudioFilePacketTableInfo& info);

    /// The first frame of a packet; empty if no frame can have such a number.
    virtual std::optional<UInt64> frameOfPacket(UInt64 packet) const;
    /// The packet that holds a frame, and which of its frames it is.
    virtual std::pair<UInt64, UInt32> packetOfFrame(UInt64 frame) const;
    /// How many packets before one a decoder needs.
    virtual UInt32 rollDistance() const { return 0; }
    /// The places of its channels; 0 if the file does not state them.
    virtual AudioChannelLayoutTag channelLayoutTag() const { return 0; }

    bool defersSizeUpdates() const { return defersSizeUpdates_; }
    /// Leaves the header as it is until the file is closed.
    void setDefersSizeUpdates(bool defers) { defersSizeUpdates_ = defers; }

    /// Whether a file whose writer is killed opens with the whole packets that were written.
    virtual bool keepsReadable() const { return !defersSizeUpdates_; }
    /// Only before the first packet. 'op??' if the file cannot be given the value.
    [[nodiscard]] virtual OSStatus setKeepsReadable(bool keeps);

    /// Brings the file up to date. Writes nothing if nothing was changed.
    [[nodiscard]] virtual OSStatus finish() = 0;

protected:
    Container() = default;

    AudioStreamBasicDescription format_;

private:
    bool defersSizeUpdates_ = false;
};

} // namespace qmx
