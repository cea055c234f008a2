// SPDX-License-Identifier: MIT
// Times each I/O cycle of 512 stereo frames with a recorder and a level meter attached, while the saving thread works.
// Counters in nanoseconds: the median and the 99.9th percentile.
#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/Devices/QMXVUMeterDataProvider.h>
#include <QMXCoreAudio/Foundation/MainThread/RunLoop.h>
#include <QMXCoreAudio/Foundation/RealTime.h>
#include <QMXCoreAudio/Foundation/Threads/Thread.h>
#include <QMXCoreAudio/Recording/QMXAudioRecorder.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <vector>

namespace
{

constexpr UInt32 frames = 512;
constexpr std::size_t cycles = 100000; // nineteen minutes at 44100 Hz

/// Passes one cycle after the other to the device, and returns the time of each.
std::vector<double> timeCycles(QMXAudioDevice& device)
{
    using Clock = std::chrono::steady_clock;
    std::array<Float32, std::size_t{2} * frames> samples;
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<Float32>(i) / samples.size();
    const AudioBufferList input{1, {{2, sizeof samples, samples.data()}}};
    const AudioTimeStamp now;
    std::vector<double> times(cycles);
    for (double& time : times) {
        {
            const qmx::RealTimeScope realTime;
            const auto begin = Clock::now();
            device.audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
                device, &now, &input, &now, nullptr, &now, device);
            time = std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
        }
        qmx::RunLoop::main().runOnce(); // delivers the notifications, as in a program
    }
    return times;
}

void cycle(benchmark::State& state)
{
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset();
    const auto id = hardware.addDevice(qmx::VirtualHardware::standardDevice("input", "Input", 2, 0));
    const auto device = QMXAudioDevice::deviceWithDeviceID(id);
    const std::string path = "/tmp/qmx-benchmark-recorder.aif";
    std::remove(path.c_str());
    const auto recorder = QMXAudioRecorder::initWithAudioDevice_filePath(device, path);
    device->inputVUMeterDataProvider()->start();
    if (!recorder->record())
        state.SkipWithError(recorder->lastError().c_str());
    (void)qmx::Thread::setThreadPriority(1.0); // as device threads do
    for (auto _ : state) {
        auto times = timeCycles(*device);
        std::ranges::sort(times);
        state.counters["median_ns"] = times[times.size() / 2];
        state.counters["p99.9_ns"] = times[times.size() * 999 / 1000];
        state.counters["largest_ns"] = times.back();
    }
    (void)recorder->stop(); // false if it never started
    device->inputVUMeterDataProvider()->stop();
    std::remove(path.c_str());
}

BENCHMARK(cycle)->Iterations(3)->Unit(benchmark::kMillisecond);

} // namespace
