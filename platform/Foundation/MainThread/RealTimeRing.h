// SPDX-License-Identifier: MIT
// Notifications that real-time threads have sent and the main thread has not delivered yet.
#pragma once

#include "Foundation/MainThread/RealTimeNotification.h"
#include "Foundation/Object.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace qmx
{

struct RealTimeNotification::Route {
    const std::string name;
    const std::weak_ptr<Object> sender;
    const Kind kind;
    const Delivery delivery;
    std::atomic<bool> isPending{false}; // of a frame notification
};

/// A bounded queue of many senders and one receiver. Each cell has a turn number: a sender may fill the cell when the
/// number is its position, the receiver may empty it when it is one more.
class RealTimeRing
{
public:
    struct Entry {
        std::uint64_t order = 0; ///< its place among everything sent to the main thread
        std::shared_ptr<RealTimeNotification::Route> route;
        std::shared_ptr<Object> sender; ///< set for state notifications only
    };

    RealTimeRing();
    /// Queues one, numbered from `orders`. False, and counted as dropped, if there is no room for its kind. Any thread.
    bool send(const std::shared_ptr<RealTimeNotification::Route>& route, std::atomic<std::uint64_t>& orders) noexcept;
    /// The oldest entry; null if there is none. Receiver only, like the next call.
    const Entry* front() const;
    Entry pop();
    /// The number dropped for lack of room since the last call.
    std::uint32_t takeDropped();

private:
    static constexpr std::size_t size = 1024;
    static constexpr std::size_t keptForStates = 256;
    struct Cell {
        std::atomic<std::size_t> turn{0};
        Entry entry;
    };
    Cell* claim(std::size_t room) noexcept;
    Cell& cellAt(std::size_t position) { return cells_[position % size]; }

    std::array<Cell, size> cells_;
    alignas(64) std::atomic<std::size_t> filled_{0};
    alignas(64) std::atomic<std::size_t> emptied_{0};
    std::atomic<std::uint32_t> dropped_{0};
};

} // namespace qmx
