// SPDX-License-Identifier: MIT
#include "Foundation/Threads/Retirement.h"

#include "Foundation/RealTime.h"
#include "Foundation/Threads/LastingThread.h"

#include <atomic>
#include <cstdint>
#include <utility>

namespace qmx
{

// A stack that real-time threads push onto and one thread empties as a whole.
struct RetirementList {
    std::atomic<Retirable*> head{nullptr};
    std::atomic<std::int32_t> pushes{0};
    std::atomic<std::int32_t> undestroyed{0};
    LastingThread thread{"qmx-retire", [this] { run(); },
                         [this] { return head.load(std::memory_order_acquire) != nullptr; }};

    static RetirementList& shared()
    {
        static auto* const list = new RetirementList; // never destroyed: its thread outlives everything
        return *list;
    }

    void push(Retirable* object) noexcept
    {
        undestroyed.fetch_add(1);
        object->next_ = head.load(std::memory_order_relaxed);
        while (!head.compare_exchange_weak(object->next_, object, std::memory_order_release, std::memory_order_relaxed))
            ;
        pushes.fetch_add(1, std::memory_order_release);
        pushes.notify_one();
    }

    [[noreturn]] void run()
    {
        for (;;) {
            const std::int32_t seen = pushes.load(std::memory_order_acquire);
            destroyAll(takeAll());
            const Worker::Wait wait(thread.worker());
            pushes.wait(seen, std::memory_order_acquire);
        }
    }

    // Returns the objects in the order in which they were retired.
    Retirable* takeAll() noexcept
    {
        Retirable* newestFirst = head.exchange(nullptr, std::memory_order_acquire);
        Retirable* oldestFirst = nullptr;
        while (newestFirst) {
            Retirable* const next = newestFirst->next_;
            newestFirst->next_ = oldestFirst;
            oldestFirst = newestFirst;
            newestFirst = next;
        }
        return oldestFirst;
    }

    void destroyAll(Retirable* first)
    {
        while (first) {
            delete std::exchange(first, first->next_);
            undestroyed.fetch_sub(1);
            undestroyed.notify_all();
        }
    }
};

Retirable::Retirable()
{
    RetirementList::shared().thread.start(); // here, where allocating is allowed
}

Retirable::~Retirable() = default;

void retire(Retirable* object) noexcept
{
    if (object)
        RetirementList::shared().push(object);
}

void destroyOutsideCallbacks(Retirable* object)
{
    if (isInsideCallback())
        retire(object);
    else
        delete object;
}

bool canRetire()
{
    return RetirementList::shared().thread.start();
}

void waitUntilRetired()
{
    RetirementList& list = RetirementList::shared();
    while (const std::int32_t left = list.undestroyed.load()) {
        if (Retirable* const first = canRetire() ? nullptr : list.takeAll())
            list.destroyAll(first);
        else
            list.undestroyed.wait(left);
    }
}

} // namespace qmx
