// SPDX-License-Identifier: MIT
#include "Foundation/Retirement.h"

#include "Foundation/RealTime.h"
#include "Foundation/Thread.h"
#include "Foundation/Worker.h"

#include <atomic>
#include <cstdint>
#include <future>

namespace qmx
{

// A stack that threads in real time push onto and one thread empties as a whole.
struct RetirementList {
    std::atomic<Retirable*> head{nullptr};
    std::atomic<std::int32_t> count{0};
    Worker worker{[this] { return head.load(std::memory_order_acquire) != nullptr; }};

    static RetirementList& shared()
    {
        static RetirementList* const list = [] {
            auto* const made = new RetirementList; // never destroyed: its thread outlives everything
            Thread::detachNewThread("qmx-retire", [made] { made->run(); });
            return made;
        }();
        return *list;
    }

    void push(Retirable* object) noexcept
    {
        object->next_ = head.load(std::memory_order_relaxed);
        while (!head.compare_exchange_weak(object->next_, object, std::memory_order_release, std::memory_order_relaxed))
            ;
        count.fetch_add(1, std::memory_order_release);
        count.notify_one();
    }

    [[noreturn]] void run()
    {
        for (;;) {
            const std::int32_t seen = count.load(std::memory_order_acquire);
            destroyAll(takeAll());
            const Worker::Wait wait(worker);
            count.wait(seen, std::memory_order_acquire);
        }
    }

    // In the order in which they were retired.
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

    static void destroyAll(Retirable* first)
    {
        while (first) {
            const std::unique_ptr<Retirable> object(first);
            first = object->next_;
        }
    }
};

Retirable::Retirable()
{
    RetirementList::shared(); // made here, where allocating is allowed
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

void waitUntilRetired()
{
    struct Signal final : Retirable {
        std::promise<void> reached;
        ~Signal() override { reached.set_value(); }
    };
    auto* const signal = new Signal;
    const std::future<void> reached = signal->reached.get_future();
    retire(signal);
    reached.wait();
}

} // namespace qmx
