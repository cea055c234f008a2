// SPDX-License-Identifier: MIT
// Compares counting the crossings of one block, and taking the levels of its bands, with copying it.
#include "Tracks/BandLevels.h"

#include <QMXCoreAudio/Tracks/SilenceAnalysis.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace
{

constexpr std::size_t framesPerBlock = 8820;

/// A signal like music: a few tones and noise, so that some samples equal the level.
std::vector<SInt16> musicBlock(std::size_t channels)
{
    std::minstd_rand random(1);
    std::uniform_int_distribution<int> noise(-600, 600);
    std::vector<SInt16> samples(framesPerBlock * channels);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double time = static_cast<double>(i / channels) / 44100;
        const double tones = 5000 * std::sin(2000 * time) + 3000 * std::sin(5300 * time) + 2000 * std::sin(9100 * time);
        samples[i] = static_cast<SInt16>(tones + noise(random));
    }
    return samples;
}

/// Counts the bytes of the whole block, of which 1/channels is examined.
void countBlock(benchmark::State& state)
{
    const auto channels = static_cast<UInt32>(state.range(0));
    const auto samples = musicBlock(channels);
    const auto bytes = static_cast<UInt32>(samples.size() * sizeof(SInt16));
    const AudioStreamBasicDescription format{.mBytesPerFrame = 2 * channels, .mChannelsPerFrame = channels};
    for (auto _ : state)
        benchmark::DoNotOptimize(countZeroCrossings(format, samples.data(), bytes, 500));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * bytes);
}

/// The levels of the bands that the search by noise floor looks at; bytes are those of 16-bit samples here, too.
void takeLevels(benchmark::State& state)
{
    const auto channels = static_cast<UInt32>(state.range(0));
    const auto block = musicBlock(channels);
    std::vector<float> samples(block.size());
    std::ranges::transform(block, samples.begin(), [](SInt16 sample) { return static_cast<float>(sample) / 32768; });
    qmx::BandLevels levels(44100, channels, 0);
    for (auto _ : state)
        levels.add(samples);
    benchmark::DoNotOptimize(levels.steps().data());
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(block.size() * sizeof(SInt16)));
}

void copyBlock(benchmark::State& state)
{
    const auto samples = musicBlock(2);
    std::vector<SInt16> copy(samples.size());
    for (auto _ : state) {
        std::memcpy(copy.data(), samples.data(), samples.size() * sizeof(SInt16));
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(samples.size() * sizeof(SInt16)));
}

BENCHMARK(countBlock)->Arg(1)->Arg(2)->Arg(3)->Arg(4)->Arg(8)->ArgName("channels");
BENCHMARK(takeLevels)->Arg(1)->Arg(2)->Arg(6)->ArgName("channels");
BENCHMARK(copyBlock);

} // namespace
