// SPDX-License-Identifier: MIT
// A long recording of a counting device (48000 Hz, stereo, float), checked sample by sample: soak-recorder fast|real SECONDS FILE
#include "CoreAudio/VirtualHardware.h"
#include "Devices/QMXAudioDevice.h"
#include "FileRelated/QMXAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/RunLoop.h"
#include "Recording/QMXAudioRecorder.h"

#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace
{

constexpr double rate = 48000;
constexpr UInt32 channels = 2;

/// The n-th sample; repeats after 2^24.
Float32 counted(UInt64 n)
{
    return static_cast<Float32>(n & 0xFFFFFF) / 16777216.0F;
}

/// Memory of the process in KiB.
long residentKiB()
{
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

AudioDeviceID addCountingDevice(qmx::VirtualHardware& hardware)
{
    auto description = qmx::VirtualHardware::standardDevice("soak", "Soak", channels, 0);
    description.nominalSampleRate = description.actualSampleRate = rate;
    const auto id = hardware.addDevice(description);
    hardware.setInput(id, [n = UInt64{0}](Float32* samples, UInt32 frames, UInt32 count, SInt64) mutable {
        for (UInt32 i = 0; i < frames * count; ++i)
            samples[i] = counted(n++);
    });
    return id;
}

/// The frames of the file up to the first wrong sample.
UInt64 rightFrames(const char* path)
{
    const auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::read);
    std::vector<UInt32> words(1 << 18);
    UInt64 n = 0;
    file->open();
    for (;;) {
        auto size = static_cast<UInt32>(words.size() * sizeof(UInt32));
        if (!file->read_length(words.data(), &size) || size == 0)
            return n / channels;
        for (std::size_t i = 0; i < size / sizeof(UInt32); ++i, ++n)
            if (std::bit_cast<Float32>(__builtin_bswap32(words[i])) != counted(n))
                return n / channels;
    }
}

/// What the device itself left out, because its thread got no processor in time.
UInt64 framesMissedByDevice(const QMXAudioRecorder& recorder)
{
    UInt64 frames = 0;
    for (const auto& loss : recorder.lostFramePositions())
        if (loss.reason == QMXAudioRecordingLoss::Reason::timeGap)
            frames += loss.frames;
    return frames;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 4)
        return 2;
    const bool isFast = std::string_view(arguments[1]) == "fast";
    const double seconds = std::atof(arguments[2]);
    const char* const path = arguments[3];
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset(isFast ? qmx::VirtualTime::fast : qmx::VirtualTime::real);
    const auto device = QMXAudioDevice::deviceWithDeviceID(addCountingDevice(hardware));
    const auto recorder = QMXAudioRecorder::initWithAudioDevice_filePath(device, path);
    recorder->setFileStreamFormat(QMXAudioStreamBasicDescription(qmx::packedPhysicalFormat(rate, channels, 32, true)));
    recorder->setWritesPartialBufferAtStop(true);

    const double frames = seconds * rate;
    long early = 0;
    const auto observer = qmx::NotificationCenter::defaultCenter().observe(
        QMXAudioRecorderRecordedFrameNotification, recorder, [&](const qmx::Notification&) {
            if (early == 0 && recorder->lengthInFrames() > frames / 10)
                early = residentKiB();
            if (recorder->lengthInFrames() >= frames)
                qmx::RunLoop::main().stop();
        });
    const auto begin = std::chrono::steady_clock::now();
    recorder->record();
    while (device->isRunning() && recorder->lengthInFrames() < frames)
        qmx::RunLoop::main().runFor(1);
    const long late = residentKiB();
    recorder->stop();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;

    const UInt64 right = rightFrames(path), missed = framesMissedByDevice(*recorder);
    const UInt64 dropped = recorder->droppedFrames() - missed;
    std::printf("%s: %.0f s recorded in %.1f s: frames %u, right in the file %llu, dropped %llu, missed by the device "
                "%llu, overruns %u, "
                "memory %ld KiB after a tenth, %ld KiB at the end\n",
                arguments[1], recorder->lengthInFrames() / rate, elapsed.count(), recorder->lengthInFrames(),
                static_cast<unsigned long long>(right), static_cast<unsigned long long>(dropped),
                static_cast<unsigned long long>(missed), recorder->overruns(), early, late);
    constexpr long allowance = 2048; // KiB
    const bool isGood = right == recorder->lengthInFrames() && dropped == 0 && late < early + allowance;
    return isGood ? 0 : 1;
}
