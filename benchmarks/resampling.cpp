// SPDX-License-Identifier: MIT
// Compares rate conversion of a buffer at the best quality through the converter service with direct use of the library
// that it uses, on the same data with the same filter. The counter soxr_ratio is the service's time divided by the
// library's.
#include <QMXCoreAudio/AudioToolbox/AudioConverter.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <soxr.h>
#include <vector>

namespace
{

constexpr UInt32 channels = 2, frames = 10 * 44100;
constexpr Float64 inputRate = 44100, outputRate = 48000;
constexpr std::size_t blockFrames = 8192;
constexpr int turns = 7;
constexpr double passband = 0.997; // as in the service's best quality

AudioStreamBasicDescription floatsAt(Float64 rate)
{
    constexpr UInt32 frameBytes = channels * sizeof(Float32);
    return {rate, kAudioFormatLinearPCM, kAudioFormatFlagsNativeFloatPacked, frameBytes, 1, frameBytes, channels, 32,
            0};
}

template <class Work> double secondsOf(Work work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    benchmark::ClobberMemory();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void bestQuality(benchmark::State& state)
{
    std::vector<Float32> input(channels * frames);
    for (std::size_t i = 0; i < input.size(); ++i)
        input[i] = static_cast<Float32>(std::sin(static_cast<double>(i) * 0.01));
    std::vector<Float32> output(channels * (frames + frames / 10));
    const auto bytesOf = [](const auto& samples) { return static_cast<UInt32>(samples.size() * sizeof(Float32)); };
    const auto source = floatsAt(inputRate), target = floatsAt(outputRate);
    const auto viaService = [&] {
        AudioConverterRef converter = nullptr;
        const UInt32 best = kAudioConverterQuality_Max;
        UInt32 size = bytesOf(output);
        if (AudioConverterNew(&source, &target, &converter) != noErr ||
            AudioConverterSetProperty(converter, kAudioConverterSampleRateConverterQuality, sizeof best, &best) !=
                noErr ||
            AudioConverterConvertBuffer(converter, bytesOf(input), input.data(), &size, output.data()) != noErr)
            state.SkipWithError("the converter failed");
        (void)AudioConverterDispose(converter); // nothing depends on it
    };
    const auto directly = [&] {
        const soxr_io_spec_t floats = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
        soxr_quality_spec_t quality = soxr_quality_spec(SOXR_28_BITQ, 0);
        quality.passband_end = passband;
        const soxr_runtime_spec_t oneThread = soxr_runtime_spec(1);
        soxr_t const filter = soxr_create(inputRate, outputRate, channels, nullptr, &floats, &quality, &oneThread);
        std::size_t made = 0;
        for (std::size_t fed = 0; filter && fed < frames; fed += blockFrames) { // whole buffers would be slower
            std::size_t done = 0;
            soxr_process(filter, &input[channels * fed], std::min<std::size_t>(blockFrames, frames - fed), nullptr,
                         &output[channels * made], output.size() / channels - made, &done);
            made += done;
        }
        if (!filter || made == 0)
            state.SkipWithError("the library failed");
        soxr_delete(filter);
    };
    double service = 1e9, library = 1e9; // measured in turns, under the same load
    for (int turn = 0; turn < turns; ++turn) {
        service = std::min(service, secondsOf(viaService));
        library = std::min(library, secondsOf(directly));
    }
    for (auto _ : state)
        viaService();
    state.counters["soxr_ratio"] = service / library;
}
BENCHMARK(bestQuality)->Unit(benchmark::kMillisecond);

} // namespace
