// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Libav/LibavFile.h"

#include <algorithm>
#include <utility>

namespace qmx::libav
{
namespace
{

constexpr int bufferBytes = 1 << 16;
constexpr std::size_t longestPacketHeader = 64;

IO makeIO(bool isWritten, void* self, int (*read)(void*, std::uint8_t*, int), int (*write)(void*, std::uint8_t*, int),
          std::int64_t (*seek)(void*, std::int64_t, int))
{
    auto* const buffer = static_cast<std::uint8_t*>(av_malloc(bufferBytes));
    IO context(buffer ? avio_alloc_context(buffer, bufferBytes, isWritten ? 1 : 0, self, read, write, seek) : nullptr);
    if (!context)
        av_free(buffer);
    return context;
}

/// Puts bytes into a block at `offset`; the block grows as needed.
void put(Bytes& block, std::size_t offset, std::span<const UInt8> bytes)
{
    if (block.size() < offset + bytes.size())
        block.resize(offset + bytes.size());
    std::ranges::copy(bytes, block.begin() + static_cast<std::ptrdiff_t>(offset));
}

} // namespace

void FreeIO::operator()(AVIOContext* context) const
{
    av_freep(&context->buffer); // not the original one if libavformat took a larger one
    avio_context_free(&context);
}

InputFile::InputFile(ContainerFile& file)
    : file_(file), end_(file.length()), context_(makeIO(false, this, read, nullptr, seek))
{
}

int InputFile::read(void* self, std::uint8_t* to, int size)
{
    auto& input = *static_cast<InputFile*>(self);
    const auto position = static_cast<UInt64>(input.position_), end = input.end_;
    Transfer done;
    if (position < end)
        done = input.file_.read(position, to,
                                static_cast<std::size_t>(std::min(static_cast<UInt64>(size), end - position)));
    if (done.count == 0 && done.error == 0 && position >= end && position - end < input.padding_.size()) {
        const auto padding = std::span(input.padding_).subspan(static_cast<std::size_t>(position - end));
        done.count = std::min(static_cast<std::size_t>(size), padding.size());
        std::ranges::copy(padding.first(done.count), to);
    }
    input.position_ += static_cast<std::int64_t>(done.count);
    if (done.error != 0 && input.status_ == noErr)
        input.status_ = statusForSystemError(done.error);
    if (done.count > 0)
        return static_cast<int>(done.count);
    return done.error != 0 ? AVERROR(done.error) : AVERROR_EOF;
}

// Positions are always absolute.
std::int64_t InputFile::seek(void* self, std::int64_t offset, int whence)
{
    auto& input = *static_cast<InputFile*>(self);
    if (whence == AVSEEK_SIZE)
        return static_cast<std::int64_t>(input.end_);
    if (offset < 0)
        return AVERROR(EINVAL);
    return input.position_ = offset;
}

Surroundings::Surroundings() : context_(makeIO(true, this, nullptr, write, seek)) {}

void Surroundings::endHead()
{
    flush();
    part_ = Part::packets;
    packetStart_ = position_;
}

void Surroundings::endPackets()
{
    flush();
    part_ = Part::tail;
    packetsEnd_ = position_;
}

std::pair<Bytes, std::size_t> Surroundings::takePacket()
{
    flush();
    const std::size_t size = position_ - packetStart_;
    packetStart_ = position_;
    return {std::exchange(packet_, {}), size};
}

int Surroundings::write(void* self, std::uint8_t* from, int size)
{
    static_cast<Surroundings*>(self)->take({from, static_cast<std::size_t>(size)});
    return size;
}

void Surroundings::take(std::span<const UInt8> bytes)
{
    const std::size_t start = position_;
    position_ += bytes.size();
    if (part_ == Part::head || start < head_.size())
        put(head_, start, part_ == Part::head ? bytes : bytes.first(std::min(bytes.size(), head_.size() - start)));
    else if (part_ == Part::packets)
        packet_.insert(packet_.end(), bytes.begin(),
                       bytes.begin() +
                           static_cast<std::ptrdiff_t>(std::min(bytes.size(), longestPacketHeader - packet_.size())));
    else if (start >= packetsEnd_)
        put(tail_, start - packetsEnd_, bytes);
}

std::int64_t Surroundings::seek(void* self, std::int64_t offset, int whence)
{
    if (whence == AVSEEK_SIZE || offset < 0) // the size is not available
        return AVERROR(EINVAL);
    static_cast<Surroundings*>(self)->position_ = static_cast<std::size_t>(offset);
    return offset;
}

} // namespace qmx::libav
