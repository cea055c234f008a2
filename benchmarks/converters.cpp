// SPDX-License-Identifier: MIT
// Makes and destroys converters with their pull chains, and measures the time that pulling sound through one takes.
#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>
#include <QMXCoreAudio/Processing/QMXAudioConverter.h>

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <vector>

namespace
{

auto deviceFormatAt(Float64 rate)
{
    auto format = QMXAudioStreamBasicDescription::defaultStandardDeviceFormat();
    format->setSampleRate(rate);
    return format;
}

auto converterTo(Float64 rate)
{
    return QMXAudioConverter::initWithSourceFormat_destinationFormat(
        QMXAudioStreamBasicDescription::defaultStandardFileFormat(), deviceFormatAt(rate));
}

/// Makes a thousand converters in turn; the bytes in use afterwards must not depend on their number.
void makeAndDestroy(benchmark::State& state)
{
    constexpr int count = 1000;
    const auto rate = static_cast<Float64>(state.range(0));
    converterTo(rate);
    const auto before = mallinfo2().uordblks;
    for (auto _ : state)
        for (int i = 0; i < count; ++i)
            benchmark::DoNotOptimize(converterTo(rate));
    const auto after = mallinfo2().uordblks;
    state.counters["seconds_each"] =
        benchmark::Counter(count, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["bytes_left"] = static_cast<double>(after) - static_cast<double>(before);
}
BENCHMARK(makeAndDestroy)->Arg(44100)->Arg(48000)->Unit(benchmark::kMillisecond);

/// Measures the seconds of sound per second of processor time.
void pull(benchmark::State& state)
{
    const auto rate = static_cast<Float64>(state.range(0));
    const auto converter = converterTo(rate);
    const UInt32 frames = 512;
    std::vector<Float32> samples(2 * frames);
    for (auto _ : state) {
        AudioBufferList list{1, {{2, static_cast<UInt32>(samples.size() * sizeof(Float32)), samples.data()}}};
        if (converter->fillComplexBuffer_buffer_packetDescription(&frames, &list, nullptr) != noErr)
            state.SkipWithError("the chain failed");
    }
    state.counters["times_real_time"] =
        benchmark::Counter(frames / rate, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(pull)->Arg(44100)->Arg(48000)->Arg(96000);

} // namespace
