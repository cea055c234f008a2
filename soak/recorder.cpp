// SPDX-License-Identifier: MIT
// Long recordings of a counting device (48000 Hz, stereo, float), checked sample by sample:
//   soak-recorder fast SECONDS FILE   as fast as possible: nothing may be lost
//   soak-recorder real SECONDS FILE   in real time: losses must be reported, to the frame
//   soak-recorder full SECONDS FILE   as fast as possible on a disk that fills up: the same, and a write must fail
//   soak-recorder check FILE          prints the number of frames of a file that another process recorded without a gap
#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/FileRelated/QMXAudioFile.h>
#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>
#include <QMXCoreAudio/Foundation/MainThread/RunLoop.h>
#include <QMXCoreAudio/Foundation/Text/Log.h>
#include <QMXCoreAudio/Recording/QMXAudioRecorder.h>

#include <array>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

using Losses = std::vector<QMXAudioRecordingLoss>;

constexpr double rate = 48000;
constexpr UInt32 channels = 2;
constexpr UInt64 period = 1 << 24; // samples, which all have different values

Float32 counted(UInt64 sample)
{
    return static_cast<Float32>(sample % period) / period;
}

/// The memory of the process, in KiB.
long residentKiB()
{
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

double machineLoad()
{
    std::array<double, 1> ofTheLastMinute{};
    return getloadavg(ofTheLastMinute.data(), 1) == 1 ? ofTheLastMinute[0] : 0;
}

/// Adds a device whose samples encode the sample time at which they were captured.
AudioDeviceID addCountingDevice(qmx::VirtualHardware& hardware)
{
    auto description = qmx::VirtualHardware::standardDevice("soak", "Soak", channels, 0);
    description.nominalSampleRate = description.actualSampleRate = rate;
    const auto id = hardware.addDevice(description);
    const auto count = [](Float32* samples, UInt32 frames, UInt32 width, SInt64 firstFrame) {
        for (UInt32 i = 0; i < frames * width; ++i)
            samples[i] = counted(static_cast<UInt64>(firstFrame) * width + i);
    };
    return hardware.setInput(id, count) == noErr ? id : kAudioDeviceUnknown;
}

/// The number of frames in the file if they continue the count, except for the frames that `losses` reports.
std::optional<UInt64> rightFrames(const char* path, const Losses& losses)
{
    const auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::read);
    if (!file->open())
        return std::nullopt;
    std::vector<UInt32> words(1 << 18);
    UInt64 n = 0, expected = 0; // samples
    auto loss = losses.begin();
    for (;;) {
        auto size = static_cast<UInt32>(words.size() * sizeof(UInt32));
        if (!file->read_length(words.data(), &size) || size == 0)
            return n / channels;
        for (std::size_t i = 0; i < size / sizeof(UInt32); ++i, ++n, ++expected) {
            const auto sample = std::bit_cast<Float32>(__builtin_bswap32(words[i]));
            for (; loss != losses.end() && loss->fileFrame * channels <= n; ++loss)
                expected += loss->frames * channels;
            if (n == 0) // sets the start of the count
                expected = static_cast<UInt64>(sample * period);
            if (sample != counted(expected)) {
                std::printf("frame %llu of the file is wrong\n", static_cast<unsigned long long>(n / channels));
                return std::nullopt;
            }
        }
    }
}

UInt64 framesLost(const Losses& losses, QMXAudioRecordingLoss::Reason reason)
{
    UInt64 frames = 0;
    for (const auto& loss : losses)
        frames += loss.reason == reason ? loss.frames : 0;
    return frames;
}

int check(const char* path)
{
    const auto frames = rightFrames(path, {});
    std::printf("%llu\n", static_cast<unsigned long long>(frames.value_or(0)));
    return frames ? 0 : 1;
}

int record(const std::string& mode, double seconds, const char* path)
{
    using Reason = QMXAudioRecordingLoss::Reason;
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset(mode == "real" ? qmx::VirtualTime::real : qmx::VirtualTime::fast);
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
    const bool began = recorder->record();
    while (device->isRunning() && recorder->lengthInFrames() < frames)
        qmx::RunLoop::main().runFor(1);
    const long late = residentKiB();
    const bool ended = recorder->stop();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;

    const Losses losses = recorder->lostFramePositions();
    const UInt64 missed = framesLost(losses, Reason::timeGap), unwritten = framesLost(losses, Reason::write);
    const UInt64 dropped = recorder->droppedFrames() - missed;
    const auto right = rightFrames(path, losses);
    std::printf(
        "%s: %.0f s recorded in %.1f s: frames %u, in the file %llu, lost %llu (%llu of them could not be written), "
        "missed by the device %llu, overruns %u, memory %ld KiB after a tenth, %ld KiB at the end, load %.1f\n",
        mode.c_str(), recorder->lengthInFrames() / rate, elapsed.count(), recorder->lengthInFrames(),
        static_cast<unsigned long long>(right.value_or(0)), static_cast<unsigned long long>(dropped),
        static_cast<unsigned long long>(unwritten), static_cast<unsigned long long>(missed), recorder->overruns(),
        early, late, machineLoad());
    constexpr long allowance = 2048; // KiB
    const bool isAllThere = right && *right + dropped == recorder->lengthInFrames();
    const bool isAsExpected = mode == "real" || (mode == "full" ? dropped > 0 : dropped == 0 && missed == 0);
    const bool isTold = recorder->lastStatus() == (unwritten > 0 ? dskFulErr : noErr);
    return began && ended && isAllThere && isAsExpected && isTold && late < early + allowance ? 0 : 1;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    qmx::setLogHandler([](qmx::LogLevel, const std::string&) {}); // each failed write is logged
    const std::string mode = argumentCount > 1 ? arguments[1] : "";
    if (argumentCount == 3 && mode == "check")
        return check(arguments[2]);
    if (argumentCount == 4 && (mode == "fast" || mode == "real" || mode == "full"))
        return record(mode, std::atof(arguments[2]), arguments[3]);
    return 2;
}
