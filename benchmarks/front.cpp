// SPDX-License-Identifier: MIT
// The front beside what it stands on: a tap beside a subscriber of the device, and FrameReader beside an extended file
// read in blocks of the same size. Both take turns, each time in the other order; the counter `ratio` divides the least
// times of the two.
#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/FileRelated/QMXExtAudioFile.h>
#include <QMXCoreAudio/qmx.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>

namespace
{

constexpr UInt32 frames = 4096;

float sumOf(std::span<const float> samples)
{
    float sum = 0;
    for (const float sample : samples)
        sum += sample;
    return sum;
}

/// Runs both in turns and sets the counters of their least times.
void compare(benchmark::State& state, const std::function<void()>& front, const std::function<void()>& described)
{
    const std::array<const std::function<void()>*, 2> runs{&front, &described};
    std::array<double, 2> least{};
    least.fill(std::numeric_limits<double>::max());
    std::size_t turn = 0;
    for (auto _ : state) {
        for (const std::size_t which : {turn % 2, (turn + 1) % 2}) {
            const auto begin = std::chrono::steady_clock::now();
            (*runs[which])();
            const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - begin;
            least[which] = std::min(least[which], time.count());
        }
        ++turn;
    }
    state.counters["front_us"] = least[0];
    state.counters["described_us"] = least[1];
    state.counters["ratio"] = least[0] / least[1];
}

class Idle final : public QMXCoreAudioIOSubscriber
{
public:
    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& /*device*/, const AudioTimeStamp* /*inNow*/, const AudioBufferList* inInputData,
        const AudioTimeStamp* /*inInputTime*/, AudioBufferList* /*outOutputData*/,
        const AudioTimeStamp* /*inOutputTime*/, QMXAudioDevice& /*inClientData*/) override
    {
        benchmark::DoNotOptimize(inInputData->mBuffers[0].mData);
        return noErr;
    }
};

/// A thousand cycles of 512 stereo frames of each of two devices, which differ in who listens. The listeners do
/// nothing.
void tap(benchmark::State& state)
{
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset();
    const auto add = [&](const char* uid) {
        return hardware.addDevice(qmx::VirtualHardware::standardDevice(uid, uid, 2, 0));
    };
    const auto tapped = QMXAudioDevice::deviceWithDeviceID(add("tapped"));
    const auto subscribed = QMXAudioDevice::deviceWithDeviceID(add("subscribed"));
    const auto handle = qmx::Device(tapped).onInput(
        [](std::span<const float> samples, unsigned) noexcept { benchmark::DoNotOptimize(samples.data()); });
    subscribed->addAudioIOSubscriber_forInput(std::make_shared<Idle>(), true);
    if (!handle || !subscribed->start())
        return state.SkipWithError("a device does not start");
    std::array<float, 1024> samples{};
    const AudioBufferList input{1, {{2, sizeof samples, samples.data()}}};
    const AudioTimeStamp now;
    const auto cycles = [&](QMXAudioDevice& device) {
        for (int i = 0; i < 1000; ++i)
            device.audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
                device, &now, &input, &now, nullptr, &now, device);
    };
    compare(
        state, [&] { cycles(*handle->object()); }, [&] { cycles(*subscribed); });
}

void readByFront(const std::string& path)
{
    for (const std::span<const float> block : qmx::FrameReader(path, frames))
        benchmark::DoNotOptimize(sumOf(block));
}

void readByObject(const std::string& path)
{
    const auto file = QMXExtAudioFile::initForReading_clientFormat(path, nullptr);
    if (file->open() != noErr)
        return;
    const UInt32 channels = file->channelsPerFrame(), frameBytes = channels * UInt32{sizeof(float)};
    const AudioStreamBasicDescription floats{file->sampleRate(),
                                             kAudioFormatLinearPCM,
                                             kAudioFormatFlagsNativeFloatPacked,
                                             frameBytes,
                                             1,
                                             frameBytes,
                                             channels,
                                             32,
                                             0};
    if (file->setClientStreamFormat(floats) != noErr)
        return;
    std::vector<float> samples(std::size_t{frames} * channels);
    UInt32 count = frames;
    while (count > 0) {
        count = frames;
        AudioBufferList list{1, {{channels, frames * frameBytes, samples.data()}}};
        if (file->read_numberFrames(&list, &count) != noErr)
            return;
        benchmark::DoNotOptimize(sumOf({samples.data(), std::size_t{count} * channels}));
    }
}

/// Reads a minute of noise, 16 bits in stereo.
void reader(benchmark::State& state, const qmx::Format& format)
{
    const std::string path = "/tmp/qmx-benchmark-front" + format.extension();
    auto writer = qmx::FrameWriter::create(path, format.withSampleRate(44100).withChannels(2), {.replace = true});
    if (!writer)
        return state.SkipWithError(writer.error().text().c_str());
    std::vector<float> second(std::size_t{2} * 44100);
    UInt32 noise = 1;
    for (float& sample : second)
        sample = static_cast<float>((noise = noise * 1664525 + 1013904223) >> 16) / 65536 - 0.5F;
    for (int i = 0; i < 60; ++i)
        (void)writer->write(second); // the end has the failure
    if (const auto done = writer->finish(); !done)
        return state.SkipWithError(done.error().text().c_str());
    compare(
        state, [&] { readByFront(path); }, [&] { readByObject(path); });
    std::remove(path.c_str());
}

BENCHMARK(tap)->Iterations(200)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(reader, aiff, qmx::Format::aiff(0, 16))->Iterations(40)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(reader, flac, qmx::Format::flac(16))->Iterations(40)->Unit(benchmark::kMillisecond);

} // namespace
