// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Containers/ContainerFile.h"
#include "AudioToolbox/Containers/ContainerTable.h"

#include <vector>

namespace qmx
{

/// More packets than this (some 100 hours) are taken for damage.
inline constexpr std::size_t mostPackets = std::size_t{1} << 24;

/// Where a packet lies in the file.
struct PacketPlace {
    UInt64 position = 0;
    UInt32 size = 0;
    UInt32 frames = 0; ///< 0: as many as the format says
};

/// A compressed file: an index of packets in memory, made when it is opened, or packet by packet when it is written.
/// Only new files are written, from start to end; a derived class knows what is before, between and after the packets.
class QMX_MODULE_EXPORT PacketContainer : public Container
{
public:
    UInt64 byteCount() const override { return bytes_; }
    UInt64 packetCount() const override { return packets_.size(); }
    UInt32 maximumPacketSize() const override { return largest_; }
    SInt64 dataOffset() const override;
    bool isOptimized() const override { return true; }
    bool keepsReadable() const override { return true; }
    std::vector<UInt32> chunkIDs() override { return {}; }
    [[nodiscard]] OSStatus readBytes(UInt64 start, UInt32& count, void* buffer) override;
    [[nodiscard]] OSStatus writeBytes(UInt64 start, UInt32& count, const void* buffer) override;
    [[nodiscard]] OSStatus readPackets(UInt64 start, UInt32& packets, UInt32& bytes,
                                       AudioStreamPacketDescription* descriptions, void* buffer) override;
    [[nodiscard]] OSStatus writePackets(UInt64 start, UInt32& packets, UInt32 bytes,
                                        const AudioStreamPacketDescription* descriptions, const void* buffer) override;
    [[nodiscard]] OSStatus magicCookie(Bytes& cookie) const override;
    [[nodiscard]] OSStatus setMagicCookie(std::span<const UInt8> cookie) override;
    [[nodiscard]] OSStatus packetTableInfo(AudioFilePacketTableInfo& info) const override;
    [[nodiscard]] OSStatus setPacketTableInfo(const AudioFilePacketTableInfo& info) override;
    std::optional<UInt64> frameOfPacket(UInt64 packet) const override;
    std::pair<UInt64, UInt32> packetOfFrame(UInt64 frame) const override;
    UInt32 rollDistance() const override;
    AudioChannelLayoutTag channelLayoutTag() const override;
    [[nodiscard]] OSStatus finish() override;

    /// Reads an existing file.
    [[nodiscard]] OSStatus load();
    /// Makes the file an empty one.
    [[nodiscard]] OSStatus create(const AudioStreamBasicDescription& format);

protected:
    explicit PacketContainer(std::unique_ptr<File> file) : file_(std::move(file)) {}

    /// Fills in format, packets, cookie (bare) and packet table.
    [[nodiscard]] virtual OSStatus read() = 0;
    /// Writes what comes before the packets; `endOfData_` is where the first one goes.
    [[nodiscard]] virtual OSStatus begin() = 0;
    /// The bytes before a packet that is to be written. False for one that the file cannot hold.
    virtual bool packetHeader(std::span<const UInt8>, Bytes&) { return true; }
    /// Called when a new cookie was taken.
    [[nodiscard]] virtual OSStatus cookieChanged() { return noErr; }
    /// Whether what is written states the format, so that the file can be opened again.
    virtual bool tellsFormat() const { return true; }
    /// Writes packets after the others. Their `places` in `block` become those in the file. On failure none is stored.
    [[nodiscard]] virtual OSStatus append(std::span<const UInt8> block, std::span<PacketPlace> places);
    /// False if the packets can be read without what `tail` makes.
    virtual bool needsTail() const { return true; }
    /// The bytes after the packets that describe them.
    [[nodiscard]] virtual OSStatus tail(Bytes&) { return noErr; }
    /// Called when the tail is written: makes what is before the packets fit them.
    [[nodiscard]] virtual OSStatus end() { return noErr; }
    /// Whether the file is being written.
    bool isNew() const { return isNew_; }
    /// False for a packet that is not wholly in the file, and if there are too many.
    bool addPacket(const PacketPlace& packet);
    const std::vector<PacketPlace>& packets() const { return packets_; }
    UInt64 totalFrames() const;
    /// Completes the packet table from the packets: what is neither valid nor priming is remainder.
    void setTable(UInt64 priming, UInt64 valid);
    AudioFilePacketTableInfo table() const;

    ContainerFile file_;
    Bytes bare_; ///< the cookie without what files put around it
    UInt64 endOfData_ = 0;

private:
    [[nodiscard]] OSStatus readAgain();
    bool takeCookie();
    [[nodiscard]] OSStatus writeTailOverPackets(UInt64 needed);
    void dropLastPacket();
    std::size_t readRun(std::span<const PacketPlace> run, UInt8* to, OSStatus& status);
    bool isVariable() const { return format_.mFramesPerPacket == 0; }

    std::vector<PacketPlace> packets_;
    std::vector<UInt64> firstFrames_; ///< of each packet, if they differ in frames
    UInt64 bytes_ = 0;
    UInt32 largest_ = 0;
    AudioFilePacketTableInfo table_;
    bool isNew_ = false;
    Bytes scratch_;
};

/// Whether new files that can hold AAC and ALAC can be made of this format.
bool holdsPackets(const AudioStreamBasicDescription& format);

template <class Format> OSStatus loadPackets(PlacedFile placed, bool, std::unique_ptr<Container>& container)
{
    auto loaded = std::make_unique<Format>(std::move(placed.file));
    const OSStatus status = loaded->load();
    if (status == noErr)
        container = std::move(loaded);
    return status;
}

template <class Format>
OSStatus createPackets(PlacedFile placed, const AudioStreamBasicDescription& format,
                       std::unique_ptr<Container>& container)
{
    auto created = std::make_unique<Format>(std::move(placed.file));
    const OSStatus status = created->create(format);
    if (status == noErr)
        container = std::move(created);
    return status;
}

} // namespace qmx
