// SPDX-License-Identifier: MIT
// Processor time of play-through between two devices of the same rate, both in cycles of 512 frames: an iteration is a
// second of sound. The counter percent is the share of a processor that it takes in real time, the simulated devices
// and their threads included.
#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/PlayThru/ComplexPlayThru.h>

#include <benchmark/benchmark.h>

#include <ctime>
#include <memory>

namespace
{

void aSecondOfPlayThrough(benchmark::State& state)
{
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset();
    const auto add = [&](const char* uid, UInt32 inputs, UInt32 outputs) {
        auto description = qmx::VirtualHardware::standardDevice(uid, uid, inputs, outputs);
        description.nominalSampleRate = description.actualSampleRate = static_cast<Float64>(state.range(0));
        return hardware.addDevice(description);
    };
    const AudioDeviceID input = add("in", 2, 0), output = add("out", 0, 2);
    OSStatus status = noErr;
    const auto engine = ComplexPlayThru::make(input, output, status);
    if (!engine || engine->Start() != noErr)
        return state.SkipWithError("play-through does not start");
    engine->SetDriftCorrection(state.range(1) != 0);
    const std::clock_t start = std::clock();
    for (auto _ : state)
        hardware.advance(1000000000);
    const double used = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    state.counters["percent"] = 100 * used / static_cast<double>(state.iterations());
    state.counters["refused"] = static_cast<double>(engine->GetRefusedFetches());
}
BENCHMARK(aSecondOfPlayThrough)
    ->ArgNames({"rate", "corrected"})
    ->Args({48000, 0})
    ->Args({48000, 1})
    ->Args({96000, 0})
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
