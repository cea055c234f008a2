// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Containers/ContainerFile.h"

#include <algorithm>

namespace qmx
{

/// Whether a file begins with an ID3 tag.
inline bool isTagged(std::span<const UInt8> head)
{
    return head.size() >= 3 && head[0] == 'I' && head[1] == 'D' && head[2] == '3';
}

/// A part of a file in memory that moves on with a scan, for streams whose frames are found one behind the other.
class FrameWindow
{
public:
    explicit FrameWindow(ContainerFile& file) : file_(file) {}

    /// The bytes from `position` on: `count` of them, or those up to the end of the file. They stay until the next call.
    std::span<const UInt8> at(UInt64 position, std::size_t count)
    {
        if (position < start_ || position + count > start_ + bytes_.size()) {
            bytes_.resize(std::max(count, blockBytes));
            bytes_.resize(file_.read(position, bytes_.data(), bytes_.size()).count);
            start_ = position;
        }
        const auto offset = static_cast<std::size_t>(position - start_);
        return std::span<const UInt8>(bytes_).subspan(offset, std::min(count, bytes_.size() - offset));
    }

    /// Behind an ID3 tag that begins the file; 0 where there is none.
    UInt64 behindTag()
    {
        const auto head = at(0, 10);
        if (head.size() < 10 || !isTagged(head))
            return 0;
        const bool hasFooter = (head[5] & 0x10) != 0;
        UInt64 size = 0;
        for (std::size_t i = 6; i < 10; ++i)
            size = size << 7 | (head[i] & 0x7FU);
        return 10 + size + (hasFooter ? 10 : 0);
    }

private:
    static constexpr std::size_t blockBytes = std::size_t{1} << 16;

    ContainerFile& file_;
    UInt64 start_ = 0;
    Bytes bytes_;
};

/// Other bytes between frames are passed over, up to so many in a row.
inline constexpr UInt64 mostStrayBytes = std::size_t{1} << 16;

} // namespace qmx
