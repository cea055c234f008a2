// SPDX-License-Identifier: MIT
#include "Foundation/Threads/Publication.h"

#include "Foundation/RealTime.h"
#include "Foundation/Threads/Retirement.h"
#include "Foundation/Threads/Thread.h"
#include "support/ShortMemory.h"

#include <gtest/gtest.h>

#include <optional>
#include <thread>
#include <vector>

namespace
{

/// An object that knows how many of it there are.
struct Published {
    explicit Published(std::atomic<int>& alive) : count(alive) { ++count; }
    ~Published()
    {
        isValid = false;
        --count;
    }
    Published(const Published&) = delete;
    Published& operator=(const Published&) = delete;
    std::atomic<int>& count;
    bool isValid = true;
};

class Publication : public testing::Test
{
protected:
    ~Publication() override { delete slot.load(); }
    std::unique_ptr<Published> another() { return std::make_unique<Published>(alive); }

    std::atomic<int> alive{0};
    std::atomic<Published*> slot{another().release()};
    qmx::Publication publication;
};

} // namespace

TEST_F(Publication, NothingIsFreedWhileSomebodyReadsIt)
{
    std::atomic<bool> isDone{false};
    std::atomic<int> invalid{0};
    std::vector<qmx::Thread> readers, writers;
    for (int i = 0; i < 3; ++i)
        readers.emplace_back("reader", [&] {
            while (!isDone) {
                const qmx::Publication::Reader reader(publication), nested(publication);
                const Published* const read = slot.load();
                std::this_thread::yield();
                invalid += read->isValid ? 0 : 1;
            }
        });
    std::mutex replacing;
    for (int i = 0; i < 3; ++i)
        writers.emplace_back("writer", [&, i] {
            for (int round = 0; round < 1000; ++round) {
                std::optional<qmx::CallbackScope> callback;
                qmx::Replacement replacement(publication); // ends without the lock
                if (i == 0)
                    callback.emplace(); // others free it then
                const std::scoped_lock lock(replacing);
                replacement.replace(slot, another());
                replacement.replace(slot, another());
            }
        });
    for (int round = 0; round < 1000; ++round) {
        publication.waitForReaders();
        std::this_thread::yield();
    }
    writers.clear();
    qmx::waitUntilRetired();
    EXPECT_EQ(alive, 1);
    isDone = true;
    readers.clear();
    EXPECT_EQ(invalid, 0);
}

TEST_F(Publication, NewcomersDoNotHoldUpWhoWaits)
{
    std::atomic<bool> isReplaced{false};
    std::optional<qmx::Publication::Reader> readers[2];
    readers[0].emplace(publication);
    qmx::Thread writer("writer", [&] {
        publication.replaceAndWait(slot, another());
        isReplaced = true;
    });
    for (unsigned newcomer = 1; !isReplaced; newcomer = 1 - newcomer, std::this_thread::yield()) {
        // there is always one inside
        const qmx::RealTimeScope realTime;
        readers[newcomer].emplace(publication);
        readers[1 - newcomer].reset();
    }
    EXPECT_EQ(alive, 1);
}

TEST_F(Publication, InsideACallbackNobodyWaitsForHimself)
{
    const Published* const old = slot.load();
    {
        const qmx::CallbackScope callback;
        const qmx::Publication::Reader reader(publication);
        publication.replaceAndWait(slot, another());
        publication.waitForReaders();
        EXPECT_TRUE(old->isValid);
        EXPECT_EQ(alive, 2);
    }
    qmx::waitUntilRetired();
    EXPECT_EQ(alive, 1);
}

TEST_F(Publication, WithoutMemoryNothingChanges)
{
    qmx::test::withEveryAllocationFailing([&](qmx::test::ShortMemory& memory) {
        const Published* const old = slot.load();
        auto next = another();
        bool isReplaced = true;
        try {
            memory.during([&] { publication.replaceAndWait(slot, std::move(next)); });
        } catch (const std::bad_alloc&) {
            isReplaced = false;
        }
        EXPECT_EQ(slot.load() != old, isReplaced);
        next.reset();
        EXPECT_EQ(alive, 1);
    });
}
