// SPDX-License-Identifier: MIT
// Measures one cycle of a device with 1, 8 and 64 subscribers that do nothing. The counter ns_per_subscriber is the
// cycle's time divided by the number of subscribers.
#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/Foundation/RealTime.h>

#include <benchmark/benchmark.h>

#include <chrono>

namespace
{

class Idle final : public QMXCoreAudioIOSubscriber
{
public:
    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& /*device*/, const AudioTimeStamp* /*inNow*/, const AudioBufferList* inInputData,
        const AudioTimeStamp* /*inInputTime*/, AudioBufferList* /*outOutputData*/,
        const AudioTimeStamp* /*inOutputTime*/, QMXAudioDevice& /*inClientData*/) override
    {
        benchmark::DoNotOptimize(inInputData);
        return noErr;
    }
};

/// A started device; the benchmark runs its cycles itself.
std::shared_ptr<QMXAudioDevice> deviceWithSubscribers(int count)
{
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset();
    const auto id = hardware.addDevice(qmx::VirtualHardware::standardDevice("input", "Input", 2, 0));
    const auto device = QMXAudioDevice::deviceWithDeviceID(id);
    for (int i = 0; i < count; ++i)
        device->addAudioIOSubscriber_forInput(std::make_shared<Idle>(), true);
    device->start();
    return device;
}

void cycle(benchmark::State& state)
{
    const auto device = deviceWithSubscribers(static_cast<int>(state.range(0)));
    const AudioTimeStamp time;
    const AudioBufferList input{1, {{2, 0, nullptr}}};
    const qmx::RealTimeScope realTime;
    const auto begin = std::chrono::steady_clock::now();
    for (auto _ : state)
        device->audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
            *device, &time, &input, &time, nullptr, &time, *device);
    const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - begin;
    state.counters["ns_per_subscriber"] =
        elapsed.count() / static_cast<double>(state.iterations()) / static_cast<double>(state.range(0));
}

BENCHMARK(cycle)->Arg(1)->Arg(8)->Arg(64);

} // namespace
