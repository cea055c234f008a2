// SPDX-License-Identifier: MIT
#include "Foundation/Threads/Publication.h"

#include "Foundation/RealTime.h"
#include "Foundation/Threads/Retirement.h"

#include <cstdint>
#include <mutex>
#include <vector>

namespace qmx
{

struct Publication::Readers {
    std::mutex waiting;                     // one thread waits at a time
    std::atomic<std::uint32_t> present{0};  // the count that new readers join
    std::atomic<std::uint32_t> counts[2]{}; // of the readers inside, and whether the thread waits for them

    // A reader that leaves notifies only where it is awaited: the library of the language wakes by memory addresses,
    // several of which it takes for one, so that it would call the system for threads that wait for something else.
    static constexpr std::uint32_t awaited = 0x80000000;

    void wait()
    {
        const std::scoped_lock lock(waiting);
        const std::uint32_t before = present.load();
        const std::uint32_t other = 1 - before;
        waitUntilZero(counts[other]);
        present.store(other);
        waitUntilZero(counts[before]);
    }

    static void waitUntilZero(std::atomic<std::uint32_t>& count)
    {
        std::uint32_t left = count.fetch_or(awaited) | awaited;
        for (; left != awaited; left = count.load())
            count.wait(left);
        count.fetch_and(~awaited);
    }
};

Publication::Publication() : readers_(std::make_shared<Readers>()) {}

Publication::~Publication() = default;

unsigned Publication::enter() const noexcept
{
    const std::uint32_t place = readers_->present.load();
    readers_->counts[place].fetch_add(1);
    return place;
}

void Publication::leave(unsigned place) const noexcept
{
    std::atomic<std::uint32_t>& count = readers_->counts[place];
    if (count.fetch_sub(1) == (Readers::awaited | 1))
        count.notify_all();
}

// A reader that loaded an old pointer was counted before that. So it has left when each count has been zero at some
// time since the replacement. New readers join the other count, so that they cannot keep the awaited one above zero.
void Publication::waitForReaders() const
{
    if (mayWait())
        readers_->wait();
}

struct Replacement::Former final : Retirable {
    explicit Former(std::shared_ptr<Publication::Readers> of) : readers(std::move(of)) {}
    ~Former() override
    {
        if (!objects.empty())
            readers->wait();
    }
    std::shared_ptr<Publication::Readers> readers;
    std::vector<std::unique_ptr<const void, void (*)(const void*)>> objects;
};

Replacement::Replacement(const Publication& publication) : readers_(publication.readers_) {}

Replacement::~Replacement()
{
    if (!mayWait())
        retire();
}

void Replacement::reserve(std::size_t count)
{
    if (!former_)
        former_ = std::make_unique<Former>(readers_);
    former_->objects.reserve(former_->objects.size() + count);
}

void Replacement::keep(const void* object, void (*destroy)(const void*)) noexcept
{
    former_->objects.emplace_back(object, destroy);
}

void Replacement::retire() noexcept
{
    qmx::retire(former_.release());
}

} // namespace qmx
