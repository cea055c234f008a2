// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Codings/Libav.h"
#include "AudioToolbox/Containers/ContainerFile.h"

namespace qmx::libav
{

struct FreeIO {
    void operator()(AVIOContext* context) const;
};
using IO = std::unique_ptr<AVIOContext, FreeIO>;

/// A file as libavformat reads it. It stays where it is while `context` is in use.
class InputFile
{
public:
    explicit InputFile(ContainerFile& file);
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// Nothing is read from here on.
    void setEnd(UInt64 end) { end_ = end; }
    /// Bytes that are read past the end.
    void setPadding(Bytes padding) { padding_ = std::move(padding); }

    AVIOContext* context() const { return context_.get(); }
    /// The status of the first read that failed; libavformat goes on after some failures, so check it.
    OSStatus status() const { return status_; }

private:
    static int read(void* self, std::uint8_t* to, int size);
    static std::int64_t seek(void* self, std::int64_t offset, int whence);

    ContainerFile& file_;
    UInt64 end_;
    Bytes padding_;
    std::int64_t position_ = 0;
    OSStatus status_ = noErr;
    IO context_;
};

/// What a muxer of libavformat writes, without the packets themselves.
class Surroundings
{
public:
    Surroundings();
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    AVIOContext* context() const { return context_.get(); }
    /// Packets follow from here.
    void endHead();
    /// What follows belongs after the packets, unless it goes into the head.
    void endPackets();
    /// What comes next is at this place.
    void moveTo(UInt64 position) { avio_seek(context_.get(), static_cast<std::int64_t>(position), SEEK_SET); }
    void flush() { avio_flush(context_.get()); }

    const Bytes& head() const { return head_; }
    const Bytes& tail() const { return tail_; }
    /// The first bytes written since the head or the last call, and how many were written in all.
    std::pair<Bytes, std::size_t> takePacket();

private:
    enum class Part { head, packets, tail };

    static int write(void* self, std::uint8_t* from, int size);
    static std::int64_t seek(void* self, std::int64_t offset, int whence);
    void take(std::span<const UInt8> bytes);

    Part part_ = Part::head;
    std::size_t position_ = 0;
    std::size_t packetStart_ = 0, packetsEnd_ = 0;
    Bytes head_, packet_, tail_;
    IO context_;
};

} // namespace qmx::libav
