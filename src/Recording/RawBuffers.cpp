// SPDX-License-Identifier: MIT
#include "Recording/RawBuffers.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace
{

constexpr unsigned indexBits = 16;

UInt64 placed(UInt64 number, std::size_t block)
{
    return number << indexBits | block;
}

UInt64 number(UInt64 place)
{
    return place >> indexBits;
}

std::size_t block(UInt64 place)
{
    return place & ((UInt64{1} << indexBits) - 1);
}

} // namespace

bool RawBuffers::allocate(UInt32 size, UInt32 waiting)
{
    std::vector<Block> blocks(std::size_t{waiting} + 2);
    for (Block& each : blocks) {
        each.bytes.reset(new (std::nothrow) Byte[size]()); // written once here, so that filling causes no page fault
        if (!each.bytes) {
            blocks_.clear();
            return false;
        }
    }
    blocks_ = std::move(blocks);
    row_ = std::vector<Place>(waiting);
    for (std::size_t i = 0; i < row_.size(); ++i)
        row_[i] = placed(0, i);
    filling_ = waiting;
    saving_ = std::size_t{waiting} + 1;
    nextPlace_ = 0;
    return true;
}

void RawBuffers::append(const Byte* bytes, UInt32 count)
{
    Block& current = blocks_[filling_];
    if (current.byteCount == 0)
        current.firstByte = bytesFilled_;
    std::memcpy(current.bytes.get() + current.byteCount, bytes, count);
    current.byteCount += count;
    bytesFilled_ += count;
}

std::optional<RawBuffers::Loss> RawBuffers::handOver()
{
    const UInt64 former = row_[nextPlace_].exchange(placed(++handOvers_, filling_), std::memory_order_acq_rel);
    nextPlace_ = (nextPlace_ + 1) % row_.size();
    filling_ = block(former);
    Block& current = blocks_[filling_];
    const Loss held{current.firstByte, current.byteCount};
    current.byteCount = 0;
    return number(former) != 0 ? std::optional(held) : std::nullopt;
}

const RawBuffers::Block* RawBuffers::take()
{
    for (;;) {
        Place* oldest = nullptr;
        UInt64 content = 0;
        for (Place& place : row_) {
            const UInt64 now = place.load(std::memory_order_acquire);
            if (number(now) != 0 && (!oldest || now < content)) {
                oldest = &place;
                content = now;
            }
        }
        if (!oldest)
            return nullptr;
        if (oldest->compare_exchange_strong(content, placed(0, saving_), std::memory_order_acq_rel)) {
            saving_ = block(content);
            return &blocks_[saving_];
        } // replaced meanwhile
    }
}
