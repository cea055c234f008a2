// SPDX-License-Identifier: MIT
// The player and the unit recorder in long runs, on simulated devices of two channels at 44100 Hz:
//   soak-units play SECONDS FILE    plays a counting file as fast as possible: every frame has to come out, and the
//                                   render thread allocates, locks and calls nothing that the real-time check traps
//   soak-units stall SECONDS FILE   plays it in real time from a disk that stalls for 2 s every 10 s: nothing is heard
//   soak-units killed ROUNDS FOLDER kills a recorder ROUNDS times each into m4a, FLAC and ADTS: each file has to open
//                                   and to lack a second at most
#include "CoreAudio/VirtualHardware.h"
#include "Devices/QMXAudioDevice.h"
#include "FileRelated/QMXExtAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/Files/FileSystem.h"
#include "Foundation/MainThread/RunLoop.h"
#include "Playback/QMXAUAudioPlayer.h"
#include "Recording/QMXAUAudioRecorder.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <optional>
#include <span>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

constexpr double rate = 44100;
constexpr UInt32 channels = 2;
constexpr UInt32 period = 65535; // samples, which all have different values, none of them 0

using Clock = std::chrono::steady_clock;

std::int32_t counted(UInt64 sample)
{
    const auto value = static_cast<std::int32_t>(sample % period) - static_cast<std::int32_t>(period / 2);
    return value <= 0 ? value - 1 : value; // -32768 to -1, then 1 to 32767
}

AudioStreamBasicDescription coded(AudioFormatID coding)
{
    AudioStreamBasicDescription format;
    format.mSampleRate = rate;
    format.mFormatID = coding;
    format.mChannelsPerFrame = channels;
    return format;
}

std::shared_ptr<QMXAudioDevice> addDevice(UInt32 inputs, UInt32 outputs)
{
    const auto description = qmx::VirtualHardware::standardDevice("soak", "Soak", inputs, outputs);
    return QMXAudioDevice::deviceWithDeviceID(qmx::VirtualHardware::shared().addDevice(description));
}

/// Writes a WAVE file of 16-bit samples that count.
bool writeCount(const char* path, UInt64 frames)
{
    auto format = qmx::packedPhysicalFormat(rate, channels, 16);
    const auto file =
        QMXExtAudioFile::initForWriting_fileType_clientFormat_fileFormat(path, kAudioFileWAVEType, &format, &format);
    if (file->open() != noErr)
        return false;
    std::vector<std::int16_t> samples(channels * std::size_t{32768});
    for (UInt64 done = 0; done < frames;) {
        const auto count = static_cast<UInt32>(std::min<UInt64>(frames - done, 32768));
        for (std::size_t i = 0; i < std::size_t{count} * channels; ++i)
            samples[i] = static_cast<std::int16_t>(counted(done * channels + i));
        AudioBufferList list;
        list.mNumberBuffers = 1;
        list.mBuffers[0] = {channels, static_cast<UInt32>(count * channels * sizeof samples[0]), samples.data()};
        if (file->writeSynch_numberFrames(&list, count) != noErr)
            return false;
        done += count;
    }
    return file->close() == noErr;
}

// --- Playing ---------------------------------------------------------------------------------------------------------

/// The machine's disk, which from begin() on does not answer reads in 2 of every 10 seconds.
class StallingDisk : public qmx::FileSystem
{
public:
    static void begin() { beginning = Clock::now() - std::chrono::seconds(2); } // so that 8 s are left
    static int stalls() { return stalled; }

    qmx::SystemError open(const std::string& path, qmx::FileAccess access, std::unique_ptr<qmx::File>& file) override
    {
        std::unique_ptr<qmx::File> opened;
        const auto error = disk.open(path, access, opened);
        if (opened)
            file = std::make_unique<StallingFile>(std::move(opened));
        return error;
    }
    qmx::SystemError status(const std::string& path, qmx::FileStatus& status) override
    {
        return disk.status(path, status);
    }
    qmx::SystemError rename(const std::string& from, const std::string& to) override { return disk.rename(from, to); }
    qmx::SystemError renameToNew(const std::string& from, const std::string& to) override
    {
        return disk.renameToNew(from, to);
    }
    qmx::SystemError remove(const std::string& path) override { return disk.remove(path); }
    qmx::SystemError attribute(const std::string& path, const std::string& name,
                               std::vector<std::uint8_t>& value) override
    {
        return disk.attribute(path, name, value);
    }
    qmx::SystemError setAttribute(const std::string& path, const std::string& name,
                                  std::span<const std::uint8_t> value) override
    {
        return disk.setAttribute(path, name, value);
    }
    qmx::SystemError copyAttributes(const std::string& from, const std::string& to) override
    {
        return disk.copyAttributes(from, to);
    }
    qmx::SystemError copyPermissions(const std::string& from, const std::string& to) override
    {
        return disk.copyPermissions(from, to);
    }
    qmx::SystemError resolve(const std::string& path, std::string& resolved) override
    {
        return disk.resolve(path, resolved);
    }

private:
    class StallingFile : public qmx::File
    {
    public:
        explicit StallingFile(std::unique_ptr<qmx::File> file) : file_(std::move(file)) {}
        qmx::Transfer read(void* data, std::size_t size, std::int64_t position) override
        {
            stall();
            return file_->read(data, size, position);
        }
        qmx::Transfer write(const void* data, std::size_t size, std::int64_t position) override
        {
            return file_->write(data, size, position);
        }
        qmx::SystemError size(std::int64_t& bytes) override { return file_->size(bytes); }
        qmx::SystemError truncate(std::int64_t bytes) override { return file_->truncate(bytes); }
        qmx::SystemError synchronize() override { return file_->synchronize(); }
        qmx::SystemError close() override { return file_->close(); }
        qmx::SystemError lock() override { return file_->lock(); }
        void unlock() override { file_->unlock(); }

    private:
        static void stall()
        {
            using std::chrono::seconds;
            const auto begun = beginning.load();
            const auto phase = (Clock::now() - begun) % seconds(10);
            if (begun == Clock::time_point() || phase >= seconds(2))
                return;
            ++stalled;
            std::this_thread::sleep_for(seconds(2) - phase);
        }
        std::unique_ptr<qmx::File> file_;
    };

    qmx::FileSystem& disk = posix();
    static inline std::atomic<Clock::time_point> beginning{Clock::time_point()};
    static inline std::atomic<int> stalled{0};
};

int play(bool stalls, double seconds, const char* path)
{
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset(stalls ? qmx::VirtualTime::real : qmx::VirtualTime::fast);
    const auto frames = static_cast<UInt64>(seconds * rate);
    StallingDisk disk;
    if (stalls)
        qmx::FileSystem::setCurrent(&disk);
    int result = 1;
    {
        const auto device = addDevice(0, channels);
        const auto player = QMXAUAudioPlayer::initWithAudioDevice(device);
        if (!writeCount(path, frames) || (player->setAudioFilePath(path), player->lastStatus() != noErr))
            return 2;
        // on the device's I/O thread
        UInt64 samples = 0, wrong = 0, silent = 0;
        const auto compare = [&](const Float32* given, UInt32 count, UInt32 width, SInt64) {
            for (UInt32 i = 0; i < count * width; ++i) {
                const bool isRight = std::lround(given[i] * 32768) == counted(samples);
                wrong += given[i] != 0 && !isRight ? 1 : 0;
                silent += given[i] == 0 && samples < frames * channels ? 1 : 0;
                samples += given[i] != 0 ? 1 : 0;
            }
        };
        if (hardware.setOutput(device->deviceID(), compare) != noErr)
            return 2;
        player->setStopsAtEndOfFile(true);
        const auto observer = qmx::NotificationCenter::defaultCenter().observe(
            QMXAudioPlayerFinishedPlayingNotification, player,
            [](const qmx::Notification&) { qmx::RunLoop::main().stop(); });
        const auto begin = Clock::now();
        if (stalls)
            StallingDisk::begin();
        const OSStatus status = player->play();
        while (player->isPlaying())
            qmx::RunLoop::main().runFor(1);
        const std::chrono::duration<double> elapsed = Clock::now() - begin;
        (void)hardware.setOutput(device->deviceID(), {});
        std::printf("%s: %.0f s played in %.1f s: frames %llu of %llu, wrong samples %llu, silent ones %llu, dropped "
                    "frames %llu, stalls %d\n",
                    stalls ? "stall" : "play", seconds, elapsed.count(),
                    static_cast<unsigned long long>(samples / channels), static_cast<unsigned long long>(frames),
                    static_cast<unsigned long long>(wrong), static_cast<unsigned long long>(silent),
                    static_cast<unsigned long long>(player->droppedFrames()), StallingDisk::stalls());
        const bool isWhole = samples == frames * channels && wrong == 0 && silent == 0 && player->droppedFrames() == 0;
        result = status == noErr && player->lastStatus() == noErr && isWhole ? 0 : 1;
    }
    qmx::FileSystem::setCurrent(nullptr);
    return result;
}

// --- Recording -------------------------------------------------------------------------------------------------------

struct Kind {
    const char* name;
    AudioFileTypeID type;
    AudioFormatID coding;
};
constexpr Kind kinds[] = {{"m4a", kAudioFileM4AType, kAudioFormatMPEG4AAC},
                          {"flac", kAudioFileFLACType, kAudioFormatFLAC},
                          {"aac", kAudioFileAAC_ADTSType, kAudioFormatMPEG4AAC}};

/// A process that records until it is killed.
struct Victim {
    const Kind* kind = nullptr;
    std::string path;
    pid_t process = 0;
    const std::atomic<UInt64>* captured = nullptr; ///< frames, told by the process
    UInt64 capturedAtEnd = 0;
};

[[noreturn]] void recordForEver(const Victim& victim, std::atomic<UInt64>& captured)
{
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset(qmx::VirtualTime::real);
    const auto device = addDevice(channels, 0);
    const auto sweep = [&](Float32* samples, UInt32 frames, UInt32 width, SInt64 first) {
        for (UInt32 i = 0; i < frames * width; ++i) {
            const auto second = static_cast<double>(first + i / width) / rate;
            samples[i] = static_cast<Float32>(0.7 * std::sin(2 * std::numbers::pi * 300 * second * (1 + second)));
        }
        captured += frames;
    };
    const auto recorder = QMXAUAudioRecorder::initWithInputDevice_outputPath_fileType_fileStreamFormat(
        device, victim.path, victim.kind->type, QMXAudioStreamBasicDescription(coded(victim.kind->coding)));
    if (hardware.setInput(device->deviceID(), sweep) == noErr && recorder->start() == noErr)
        while (true)
            qmx::RunLoop::main().runFor(1);
    _exit(1);
}

/// The frames of a file that another process left; -1 if it does not open or ends with an error.
SInt64 framesOf(const std::string& path)
{
    const auto client = qmx::packedPhysicalFormat(rate, channels, 32, true);
    const auto file = QMXExtAudioFile::initForReading_clientFormat(path, &client);
    if (file->open() != noErr)
        return -1;
    std::vector<Float32> samples(channels * std::size_t{16384});
    SInt64 frames = 0;
    while (true) {
        UInt32 count = 16384;
        AudioBufferList list;
        list.mNumberBuffers = 1;
        list.mBuffers[0] = {channels, static_cast<UInt32>(samples.size() * sizeof samples[0]), samples.data()};
        if (file->read_numberFrames(&list, &count) != noErr)
            return -1;
        if (count == 0)
            return frames;
        frames += count;
    }
}

/// Kills a recorder after a number of frames; false if it ended before.
bool killAfter(Victim& victim, UInt64 frames)
{
    int status = 0;
    while (*victim.captured <= frames) {
        if (waitpid(victim.process, &status, WNOHANG) != 0)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    kill(victim.process, SIGKILL);
    const bool wasKilled = waitpid(victim.process, &status, 0) == victim.process && WIFSIGNALED(status);
    victim.capturedAtEnd = *victim.captured;
    return wasKilled;
}

/// The frames that a file lacks, with a line if it does not open or lacks too many.
std::optional<SInt64> framesLost(const Victim& victim)
{
    const SInt64 frames = framesOf(victim.path);
    const SInt64 lost = static_cast<SInt64>(victim.capturedAtEnd) - std::max<SInt64>(frames, 0);
    const std::string decode = "ffmpeg -v error -i " + victim.path + " -f null - </dev/null";
    const bool opens = frames < 0 ? victim.kind->type == kAudioFileAAC_ADTSType // which opens with its first packet
                                  : frames == 0 || std::system(decode.c_str()) == 0;
    if (opens && static_cast<double>(lost) <= rate)
        return lost;
    std::printf("killed: %s has %lld of %llu frames\n", victim.path.c_str(), static_cast<long long>(frames),
                static_cast<unsigned long long>(victim.capturedAtEnd));
    return std::nullopt;
}

int killAll(int rounds, const std::string& folder)
{
    const std::size_t number = static_cast<std::size_t>(rounds) * std::size(kinds);
    auto* const counts = static_cast<std::atomic<UInt64>*>(
        mmap(nullptr, number * sizeof(std::atomic<UInt64>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    if (counts == MAP_FAILED)
        return 2;
    std::vector<Victim> victims(number);
    // those of a round at once, each round at a later moment of the recording; this process has one thread until then
    for (std::size_t first = 0; first < number; first += std::size(kinds)) {
        const std::span round(&victims[first], std::size(kinds));
        for (std::size_t i = 0; i < round.size(); ++i) {
            round[i] = {.kind = &kinds[i],
                        .path = folder + "/killed" + std::to_string(first + i) + '.' + kinds[i].name,
                        .process = 0,
                        .captured = &counts[first + i]};
            round[i].process = fork();
            if (round[i].process == 0)
                recordForEver(round[i], counts[first + i]);
        }
        const double seconds = 4 * static_cast<double>(first) / static_cast<double>(number);
        for (Victim& victim : round)
            if (!killAfter(victim, static_cast<UInt64>(seconds * rate)))
                return 2;
    }
    SInt64 most = 0;
    bool areRight = true;
    for (const Victim& victim : victims) {
        const auto lost = framesLost(victim);
        areRight = areRight && lost;
        most = std::max(most, lost.value_or(0));
    }
    std::printf("killed: %zu recorders, at most %.2f s lost\n", number, static_cast<double>(most) / rate);
    return areRight ? 0 : 1;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    const std::string mode = argumentCount == 4 ? arguments[1] : "";
    if (mode == "play" || mode == "stall")
        return play(mode == "stall", std::atof(arguments[2]), arguments[3]);
    if (mode == "killed")
        return killAll(std::atoi(arguments[2]), arguments[3]);
    return 2;
}
