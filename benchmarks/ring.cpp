// SPDX-License-Identifier: MIT
// What storing and fetching 512 stereo float frames costs: through the ring buffer, as the bare copies of two times two
// channels, and through the sound server's ring of bytes, which has one reader and no times. The counter memcpy_ratio
// is the ring's time in parts of the copies' in the same run.
#include <QMXCoreAudio/PlayThru/AudioRingBuffer.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <vector>

#ifdef QMX_WITH_PIPEWIRE
#include <spa/utils/ringbuffer.h>
#endif

namespace
{

constexpr std::size_t frames = 512, channels = 2, capacity = 16384;
using Samples = std::array<Float32, frames>;

/// Two buffers of 512 frames as a list.
struct Slice {
    std::array<Samples, channels> samples{};
    std::array<std::byte, sizeof(AudioBufferList) + sizeof(AudioBuffer)> memory{};

    AudioBufferList* list()
    {
        auto* const list = reinterpret_cast<AudioBufferList*>(memory.data());
        AudioBuffer* const buffers = list->mBuffers;
        list->mNumberBuffers = channels;
        for (std::size_t i = 0; i < channels; ++i)
            buffers[i] = {1, sizeof(Samples), samples[i].data()};
        return list;
    }
};

/// Seconds that many calls take.
template <class Work> double seconds(Work work)
{
    using Clock = std::chrono::steady_clock;
    constexpr int calls = 1000;
    const auto start = Clock::now();
    for (int i = 0; i < calls; ++i)
        work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// How long the first one takes in parts of the second, by the fastest of many short runs in turn: the machine may be
/// busy.
template <class First, class Second> double ratio(First first, Second second)
{
    double shortest = 1e9, other = 1e9;
    for (int run = 0; run < 200; ++run) {
        shortest = std::min(shortest, seconds(first));
        other = std::min(other, seconds(second));
    }
    return shortest / other;
}

/// The size of a copy, as the compiler does not know it: it would write the copy out in place.
std::size_t sizeOf(std::size_t bytes)
{
    benchmark::DoNotOptimize(bytes);
    return bytes;
}

void copies(const Slice& in, Slice& out, std::vector<Float32>& middle, std::size_t at)
{
    const std::size_t bytes = sizeOf(sizeof(Samples));
    for (std::size_t channel = 0; channel < channels; ++channel)
        std::memcpy(middle.data() + channel * capacity + at, in.samples[channel].data(), bytes);
    benchmark::ClobberMemory();
    for (std::size_t channel = 0; channel < channels; ++channel)
        std::memcpy(out.samples[channel].data(), middle.data() + channel * capacity + at, bytes);
    benchmark::ClobberMemory();
}

void storeAndFetch(benchmark::State& state)
{
    Slice in, out;
    const AudioBufferList* const source = in.list();
    AudioBufferList* const destination = out.list();
    AudioRingBuffer ring;
    ring.Allocate(channels, sizeof(Float32), capacity);
    long long at = 0;
    const auto once = [&] {
        if (ring.Store(source, frames, at) != 1 || ring.Fetch(destination, frames, at) != kRingOK)
            state.SkipWithError("the ring refused");
        benchmark::ClobberMemory();
        at += frames;
    };
    for (auto _ : state)
        once();
    std::vector<Float32> middle(channels * capacity);
    std::size_t place = 0;
    const auto copy = [&] {
        copies(in, out, middle, place);
        place = (place + frames) % capacity;
    };
    state.counters["memcpy_ratio"] = ratio(once, copy);
}
BENCHMARK(storeAndFetch);

#ifdef QMX_WITH_PIPEWIRE
void throughARingOfBytes(benchmark::State& state)
{
    std::array<Float32, frames * channels> in{}, out{};
    std::vector<Float32> memory(capacity * channels);
    const auto size = static_cast<UInt32>(memory.size() * sizeof(Float32));
    spa_ringbuffer ring;
    spa_ringbuffer_init(&ring);
    const auto bytes = static_cast<UInt32>(sizeOf(sizeof in));
    for (auto _ : state) {
        UInt32 at = 0;
        (void)spa_ringbuffer_get_write_index(&ring, &at); // there is always room
        spa_ringbuffer_write_data(&ring, memory.data(), size, at % size, in.data(), bytes);
        spa_ringbuffer_write_update(&ring, static_cast<SInt32>(at + bytes));
        benchmark::ClobberMemory();
        (void)spa_ringbuffer_get_read_index(&ring, &at);
        spa_ringbuffer_read_data(&ring, memory.data(), size, at % size, out.data(), bytes);
        spa_ringbuffer_read_update(&ring, static_cast<SInt32>(at + bytes));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(throughARingOfBytes);
#endif

} // namespace
