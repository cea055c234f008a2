// SPDX-License-Identifier: MIT
#include "Foundation/MainThread/RealTimeRing.h"

#include <utility>

namespace qmx
{

RealTimeRing::RealTimeRing()
{
    for (std::size_t position = 0; position < size; ++position)
        cells_[position].turn.store(position, std::memory_order_relaxed);
}

RealTimeRing::Cell* RealTimeRing::claim(std::size_t room) noexcept
{
    std::size_t position = filled_.load(std::memory_order_relaxed);
    for (;;) {
        const std::size_t emptied = emptied_.load(std::memory_order_acquire);
        const bool isOutOfDate = position < emptied; // since it was read, other senders filled cells that were emptied
        if (!isOutOfDate && position - emptied >= room)
            return nullptr;
        Cell& cell = cellAt(position);
        if (isOutOfDate || cell.turn.load(std::memory_order_acquire) != position) {
            position = filled_.load(std::memory_order_relaxed);
            continue;
        }
        if (filled_.compare_exchange_weak(position, position + 1, std::memory_order_relaxed))
            return &cell;
    }
}

bool RealTimeRing::send(const std::shared_ptr<RealTimeNotification::Route>& route,
                        std::atomic<std::uint64_t>& orders) noexcept
{
    const bool isState = route->kind == RealTimeNotification::Kind::state;
    Cell* const cell = claim(isState ? size : size - keptForStates);
    if (!cell) {
        dropped_.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    cell->entry.order = orders.fetch_add(1, std::memory_order_relaxed);
    cell->entry.route = route;
    if (isState)
        cell->entry.sender = route->sender.lock(); // with a place for it: a last reference must not end here
    cell->turn.fetch_add(1, std::memory_order_release);
    return true;
}

const RealTimeRing::Entry* RealTimeRing::front() const
{
    const std::size_t position = emptied_.load(std::memory_order_relaxed);
    const Cell& cell = cells_[position % size];
    return cell.turn.load(std::memory_order_acquire) == position + 1 ? &cell.entry : nullptr;
}

RealTimeRing::Entry RealTimeRing::pop()
{
    const std::size_t position = emptied_.load(std::memory_order_relaxed);
    Cell& cell = cellAt(position);
    Entry entry = std::exchange(cell.entry, {});
    cell.turn.store(position + size, std::memory_order_release);
    emptied_.store(position + 1, std::memory_order_release);
    return entry;
}

std::uint32_t RealTimeRing::takeDropped()
{
    return dropped_.exchange(0, std::memory_order_relaxed);
}

} // namespace qmx
