// SPDX-License-Identifier: MIT
#include "Foundation/Threads/Publication.h"

#include "Foundation/RealTime.h"
#include "Foundation/Threads/Retirement.h"
#include "Foundation/Threads/Thread.h"
#include "support/ShortMemory.h"

#include <gtest/gtest.h>

#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace
{

class Publication : public testing::Test
{
protected:
    /// Becomes invalid when destroyed; `alive` counts the existing ones.
    struct Object {
        explicit Object(std::atomic<int>& alive) : count(alive) { ++count; }
        ~Object()
        {
            isValid = false;
            --count;
        }
        std::atomic<int>& count;
        bool isValid = true;
    };

    ~Publication() override { delete slot.load(); }
    std::unique_ptr<Object> another() { return std::make_unique<Object>(alive); }

    std::atomic<int> alive{0};
    std::atomic<Object*> slot{another().release()};
    qmx::Publication publication;
};

} // namespace

TEST_F(Publication, NothingIsFreedWhileSomebodyReadsIt)
{
    std::atomic<int> invalid{0};
    std::atomic<bool> isDone{false};
    std::mutex replacing;
    std::vector<qmx::Thread> readers, writers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back("reader", [&] {
            while (!isDone) {
                const qmx::Publication::Reader reader(publication), nested(publication);
                const Object* const read = slot.load();
                std::this_thread::yield();
                invalid += read->isValid ? 0 : 1;
            }
        });
        writers.emplace_back("writer", [&, isInCallback = i == 0] {
            for (int round = 0; round < 200; ++round) {
                std::optional<qmx::CallbackScope> callback;
                qmx::Replacement replacement(publication); // destroyed without the lock
                if (isInCallback)
                    callback.emplace();
                const std::scoped_lock lock(replacing);
                replacement.replace(slot, another());
                replacement.replace(slot, another());
            }
        });
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
        EXPECT_EQ(alive, 1);
        isReplaced = true;
    });
    for (unsigned newcomer = 1; !isReplaced; newcomer = 1 - newcomer) { // one reader is always inside
        const qmx::RealTimeScope realTime;
        readers[newcomer].emplace(publication);
        readers[1 - newcomer].reset();
    }
}

TEST_F(Publication, InsideACallbackNobodyWaitsForHimself)
{
    {
        const qmx::CallbackScope callback;
        const qmx::Publication::Reader reader(publication);
        const Object* const old = slot.load();
        publication.replaceAndWait(slot, another());
        publication.waitForReaders();
        EXPECT_TRUE(old->isValid);
    }
    qmx::waitUntilRetired();
    EXPECT_EQ(alive, 1);
}

TEST_F(Publication, WithoutMemoryNothingChanges)
{
    qmx::test::withEveryAllocationFailing([&](qmx::test::ShortMemory& memory) {
        const Object* const old = slot.load();
        bool isReplaced = true;
        try {
            memory.during([&] { publication.replaceAndWait(slot, another()); });
        } catch (const std::bad_alloc&) {
            isReplaced = false;
        }
        EXPECT_EQ(slot.load() != old, isReplaced);
        EXPECT_EQ(alive, 1);
    });
}
