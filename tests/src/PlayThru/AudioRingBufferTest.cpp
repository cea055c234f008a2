// SPDX-License-Identifier: MIT
#include "PlayThru/AudioRingBuffer.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

namespace
{

constexpr SInt32 stored = 1;
using Samples = std::vector<UInt32>;

AudioBufferList listOf(Samples& samples, std::size_t frames)
{
    return {1, {{1, static_cast<UInt32>(frames * sizeof(UInt32)), samples.data()}}};
}

Samples numbered(UInt32 first, std::size_t frames)
{
    Samples samples(frames);
    std::iota(samples.begin(), samples.end(), first);
    return samples;
}

SInt32 store(AudioRingBuffer& ring, Samples samples, long long start)
{
    const AudioBufferList list = listOf(samples, samples.size());
    return ring.Store(&list, samples.size(), start);
}

SInt32 fetch(const AudioRingBuffer& ring, Samples& samples, long long start)
{
    AudioBufferList list = listOf(samples, samples.size());
    return ring.Fetch(&list, samples.size(), start);
}

std::pair<long long, long long> boundsOf(const AudioRingBuffer& ring)
{
    long long start = -1, end = -1;
    EXPECT_EQ(kRingOK, ring.GetTimeBounds(start, end));
    return {start, end};
}

} // namespace

TEST(AudioRingBuffer, StaysInsideOfItsMemoryOfBuffersAndOfTimes)
{
    AudioRingBuffer ring;
    for (const auto& [wanted, capacity] : {std::pair(1000UL, 1024UL), {1024UL, 1024UL}, {0UL, 1UL}, {1UL, 1UL}}) {
        ring.Allocate(1, 4, wanted);
        constexpr long long start = 2500; // no multiple of the capacity
        ASSERT_EQ(stored, store(ring, numbered(7, capacity), start));
        Samples all(capacity);
        EXPECT_EQ(kRingOK, fetch(ring, all, start));
        EXPECT_EQ(all, numbered(7, capacity));
        EXPECT_EQ(kRingTooLarge, store(ring, numbered(0, capacity + 1), start));
        EXPECT_EQ(kRingAhead, ring.CheckTimeBounds(start, start + static_cast<long long>(capacity) + 1));
        EXPECT_EQ(boundsOf(ring), std::pair(start, start + static_cast<long long>(capacity)));
    }
    Samples samples(4, 5);
    EXPECT_FALSE(ring.SetTimeBounds(0, 4)); // more than a ring of one frame holds
    EXPECT_FALSE(ring.SetTimeBounds(4, 0));
    EXPECT_EQ(boundsOf(ring), std::pair(2500LL, 2501LL));
    const struct {
        int channels;
        unsigned long bytes, frames;
    } nothing[] = {{1, 4, 1UL << 29}, {1, 1UL << 31, 1}, {1, 4, ~0UL}, {0, 4, 16}, {-1, 4, 16}, {1, 0, 16}};
    for (const auto& [channels, bytes, frames] : nothing) {
        ring.Allocate(channels, bytes, frames);
        EXPECT_EQ(kRingTooLarge, store(ring, samples, 0));
        EXPECT_EQ(kRingBoundsBusy, fetch(ring, samples, 0));
    }

    ring.Allocate(2, 4, 16);
    ASSERT_EQ(stored, store(ring, numbered(1, 4), 0)); // one of its two channels
    AudioBufferList list = listOf(samples, 2);         // room for two frames of the four
    EXPECT_EQ(kRingOK, ring.Fetch(&list, 4, 0));
    EXPECT_EQ(samples, Samples({1, 2, 5, 5}));
    ASSERT_EQ(stored, ring.Store(&list, 4, 4)); // the rest is silent
    EXPECT_EQ(kRingOK, fetch(ring, samples, 4));
    EXPECT_EQ(samples, Samples({1, 2, 0, 0}));
    list.mBuffers[0].mData = nullptr;
    EXPECT_EQ(kRingOK, ring.Fetch(&list, 4, 4));
    EXPECT_EQ(stored, ring.Store(&list, 0, 0)); // no frames change nothing
    EXPECT_EQ(boundsOf(ring), std::pair(0LL, 8LL));

    constexpr long long latest = std::numeric_limits<long long>::max(),
                        earliest = std::numeric_limits<long long>::min();
    EXPECT_EQ(kRingTooLarge, store(ring, samples, latest - 3));
    EXPECT_EQ(kRingFarAhead, fetch(ring, samples, latest - 1));
    ASSERT_EQ(stored, store(ring, samples, earliest));
    ASSERT_EQ(stored, store(ring, samples, latest - 4));
    EXPECT_EQ(boundsOf(ring), std::pair(latest - 16, latest));
    EXPECT_EQ(kRingAhead, fetch(ring, samples, latest - 1)); // as many frames as there are no times for
}

// A plain reference: what was stored under each time, and bounds and codes by their definition.
TEST(AudioRingBuffer, DoesWhatAMapFromTimesToValuesDoes)
{
    constexpr long long capacity = 32;
    AudioRingBuffer ring;
    ring.Allocate(1, 4, capacity);
    std::map<long long, UInt32> reference;
    long long start = 0, end = 0;
    UInt32 value = 1;
    std::mt19937 random(6);
    const auto from = [&random](long long low, long long high) {
        return std::uniform_int_distribution<long long>(low, high)(random);
    };
    for (int operation = 0; operation < 1000000; ++operation) {
        const auto frames = static_cast<std::size_t>(from(1, from(0, 15) == 0 ? capacity : 8));
        if (from(0, 1) == 0) {
            const long long at = end + (from(0, 3) > 0 ? 0 : from(-capacity, capacity + 8));
            ASSERT_EQ(stored, store(ring, numbered(value, frames), at));
            if (at < end) { // what is held is thrown away
                reference.clear();
                start = end = at;
            }
            for (; end < at; ++end) // a gap is silent
                reference[end] = 0;
            for (std::size_t i = 0; i < frames; ++i)
                reference[end++] = value++;
            start = std::max(start, end - capacity);
            reference.erase(reference.begin(), reference.lower_bound(start));
            ASSERT_EQ(boundsOf(ring), std::pair(start, end)) << "operation " << operation;
            continue;
        }
        const long long at = from(start - capacity, end + 8), last = at + static_cast<long long>(frames);
        const SInt32 code = at >= start && last <= end ? kRingOK
                            : at >= start              ? (at <= end ? kRingAhead : kRingFarAhead)
                            : last > end               ? kRingTooLarge
                                                       : (last < start ? kRingFarBehind : kRingBehind);
        Samples read(frames), expected(frames);
        ASSERT_EQ(code, fetch(ring, read, at)) << "operation " << operation;
        for (std::size_t i = 0; i < frames && code == kRingOK; ++i)
            expected[i] = reference.at(at + static_cast<long long>(i));
        ASSERT_EQ(read, expected) << "operation " << operation;
    }
}

// Now and then the writer goes back; every sample says its frame and how often that was. So a fetch that is accepted is
// all of one age, and each frame what its time says.
TEST(AudioRingBuffer, GivesAReaderOnAnotherThreadOnlyWhatIsRight)
{
    constexpr long long slice = 64;
    AudioRingBuffer ring;
    ring.Allocate(1, 4, 512);
    const auto sample = [](long long frame, UInt32 age) { return age << 20 | (static_cast<UInt32>(frame) & 0xfffff); };
    std::atomic<bool> isDone = false;
    std::thread writer([&] {
        Samples samples(slice);
        UInt32 age = 0;
        for (long long at = 0; !isDone.load(); at += slice) {
            if (at % (50 * slice) == 49 * slice) {
                at -= 20 * slice;
                age = (age + 1) % 1024;
            }
            for (long long i = 0; i < slice; ++i)
                samples[static_cast<std::size_t>(i)] = sample(at + i, age);
            ASSERT_EQ(stored, store(ring, samples, at));
        }
    });
    std::mt19937 random(6);
    for (int accepted = 0; accepted < 20000 && !testing::Test::HasFailure();) {
        Samples read(std::uniform_int_distribution<std::size_t>(1, 256)(random));
        long long start = 0, end = 0;
        if (ring.GetTimeBounds(start, end) != kRingOK || end - start < static_cast<long long>(read.size()))
            continue;
        const long long latest = end - static_cast<long long>(read.size());
        long long at = std::uniform_int_distribution<long long>(start, latest)(random);
        if (fetch(ring, read, at) != kRingOK)
            continue;
        ++accepted;
        const UInt32 age = read[0] >> 20;
        for (const UInt32 each : read)
            EXPECT_EQ(each, sample(at++, age)) << "frame " << at;
    }
    isDone.store(true);
    writer.join();
}
