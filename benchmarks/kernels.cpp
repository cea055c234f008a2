// SPDX-License-Identifier: MIT
// Compares sample conversion through the converter service with copying the larger side with memcpy in the same run.
// The counter memcpy_ratio is the conversion's speed divided by the copy's: 1 is as fast as copying.
#include <QMXCoreAudio/AudioToolbox/AudioConverter.h>
#include <QMXCoreAudio/vecLib/Interleaving.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

AudioStreamBasicDescription mono(UInt32 bits, AudioFormatFlags flags)
{
    return {44100, kAudioFormatLinearPCM, flags | kAudioFormatFlagIsPacked, bits / 8, 1, bits / 8, 1, bits, 0};
}

const auto floats = mono(32, kAudioFormatFlagIsFloat);
const auto sixteen = mono(16, kAudioFormatFlagIsSignedInteger);
const auto sixteenBig = mono(16, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsBigEndian);
const auto twentyFourBig = mono(24, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsBigEndian);

template <class Work> double secondsOf(std::size_t calls, Work work)
{
    const auto start = Clock::now();
    for (std::size_t i = 0; i < calls; ++i) {
        work();
        benchmark::ClobberMemory();
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// The time of `copy` divided by that of `work`. Many short turns of both, one after the other, so that a busy machine
/// slows down both; the fastest of each counts.
template <class Copy, class Work> double ratioToCopy(std::size_t bytes, Copy copy, Work work)
{
    // many calls in a turn, so that reading the clock does not count
    const std::size_t calls = std::max<std::size_t>(1, (std::size_t{1} << 22) / bytes);
    const int turns = bytes > (std::size_t{1} << 22) ? 7 : 200;
    double copying = 1e9, working = 1e9;
    for (int i = 0; i < turns; ++i) {
        copying = std::min(copying, secondsOf(calls, copy));
        working = std::min(working, secondsOf(calls, work));
    }
    return copying / working;
}

void convert(benchmark::State& state, const AudioStreamBasicDescription& source,
             const AudioStreamBasicDescription& target)
{
    const auto samples = static_cast<UInt32>(state.range(0));
    AudioConverterRef converter = nullptr;
    if (AudioConverterNew(&source, &target, &converter) != noErr)
        return state.SkipWithError("no converter");
    const UInt32 inputSize = samples * source.mBytesPerFrame, outputSize = samples * target.mBytesPerFrame;
    const std::size_t larger = std::max(inputSize, outputSize);
    std::vector<char> input(larger, 0x21), output(larger, 0);
    const auto convertOnce = [&] {
        UInt32 size = outputSize;
        if (AudioConverterConvertBuffer(converter, inputSize, input.data(), &size, output.data()) != noErr)
            state.SkipWithError("the converter failed");
    };
    for (auto _ : state) {
        convertOnce();
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(larger));

    const auto copy = [&] { std::memcpy(output.data(), input.data(), larger); };
    state.counters["memcpy_ratio"] = ratioToCopy(larger, copy, convertOnce);
    (void)AudioConverterDispose(converter); // nothing depends on it
}

/// A cycle of 512 frames from planes to interleaved order or back, beside copying as many bytes.
void reorder(benchmark::State& state, bool joins)
{
    constexpr std::size_t frames = 512;
    const auto channels = static_cast<std::size_t>(state.range(0));
    std::vector<Float32> planar(channels * frames, 0.5F), interleaved(channels * frames, 0.5F);
    std::vector<Float32*> planes;
    for (std::size_t channel = 0; channel < channels; ++channel)
        planes.push_back(planar.data() + channel * frames);
    const auto reorderOnce = [&] {
        if (joins)
            qmx::interleave(planes, interleaved.data(), channels, frames);
        else
            qmx::deinterleave(interleaved.data(), channels, planes, frames);
    };
    for (auto _ : state) {
        reorderOnce();
        benchmark::ClobberMemory();
    }
    const std::size_t bytes = planar.size() * sizeof(Float32);
    const auto copy = [&] { std::memcpy(interleaved.data(), planar.data(), bytes); };
    state.counters["memcpy_ratio"] = ratioToCopy(bytes, copy, reorderOnce);
}

/// Two sizes: both sides in the second-level cache, and far beyond every cache.
void sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(1 << 15)->Arg(1 << 25);
}

} // namespace

BENCHMARK_CAPTURE(convert, int16BigToFloat, sixteenBig, floats)->Apply(sizes);
BENCHMARK_CAPTURE(convert, floatToInt16Big, floats, sixteenBig)->Apply(sizes);
BENCHMARK_CAPTURE(convert, int16ToFloat, sixteen, floats)->Apply(sizes);
BENCHMARK_CAPTURE(convert, floatToInt16, floats, sixteen)->Apply(sizes);
BENCHMARK_CAPTURE(convert, int16BigToInt16, sixteenBig, sixteen)->Apply(sizes);
BENCHMARK_CAPTURE(convert, int24BigToFloat, twentyFourBig, floats)->Apply(sizes);
BENCHMARK_CAPTURE(convert, floatToInt24Big, floats, twentyFourBig)->Apply(sizes);
BENCHMARK_CAPTURE(reorder, interleave, true)->Arg(2)->Arg(6)->Arg(8);
BENCHMARK_CAPTURE(reorder, deinterleave, false)->Arg(2)->Arg(6)->Arg(8);
