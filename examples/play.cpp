// SPDX-License-Identifier: MIT
// Plays an audio file.
#include "support/CommandLine.h"
#include "support/Devices.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/Keys.h"
#include "support/ProgressBar.h"
#include "support/TrackStore.h"

#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/FileRelated/QMXExtAudioFile.h>
#include <QMXCoreAudio/Foundation/MainThread/NotificationCenter.h>
#include <QMXCoreAudio/Foundation/MainThread/RunLoop.h>
#include <QMXCoreAudio/Foundation/Text/Format.h>
#include <QMXCoreAudio/Playback/QMXAUAudioPlayer.h>
#include <QMXCoreAudio/Tracks/QMXAudioTrackInfo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <poll.h>

namespace
{

using example::Failure;
using example::Key;

constexpr const char* help = R"(usage: play [OPTIONS] FILE

Plays FILE, or a part of it to the frame, until its end, q or Ctrl-C. On a terminal the space bar
pauses, the arrows go back and forth by 5 seconds and change the volume by a decibel.

  --device UID   on that device (devices lists them); otherwise on the default output, also when
                 another one becomes that
  --from S       from that second on
  --to S         up to that second
  --track N      that track of those that split stored in FILE, counted from 1
  --volume DB    so much louder (or, below 0, softer)
  --loop         again and again
  --simulate     on no device, as fast as possible; prints path, frames played, and how many of them
                 are those of FILE, with tabs between them

QMX_AUDIO_BACKEND=virtual in the environment gives simulated devices.
)";

/// What to play: frames.
struct Part {
    SInt64 start = 0, end = std::numeric_limits<SInt64>::max();
};

Part partOf(const example::CommandLine& line, const std::string& path, double rate)
{
    constexpr double most = 1e9; // seconds
    const auto frameAt = [&](double second) { return static_cast<SInt64>(std::llround(second * rate)); };
    Part part;
    if (const auto number = line.wholeNumber("--track", 1, 9999)) {
        const auto record = example::readRecord(path);
        const auto tracks = record ? record->trackInfos() : nullptr;
        if (!tracks || tracks->size() < static_cast<std::size_t>(*number))
            throw Failure{qmx::format("%@: has no stored track %ld", path, *number)};
        const auto& track = *(*tracks)[static_cast<std::size_t>(*number - 1)];
        part = {static_cast<SInt64>(track.trackBegin()), static_cast<SInt64>(track.trackEnd())};
    }
    if (const auto to = line.number("--to", 0, most))
        part.end = std::min(part.end, part.start + frameAt(*to));
    if (const auto from = line.number("--from", 0, most))
        part.start += frameAt(*from);
    return part;
}

/// Plays a part of a file, with what a person does meanwhile.
class Playing
{
public:
    Playing(QMXAUAudioPlayer& player, const Part& part, double rate, bool loops)
        : player_(player), part_(part), rate_(rate), loops_(loops),
          finished_(qmx::NotificationCenter::defaultCenter().observe(QMXAudioPlayerFinishedPlayingNotification, nullptr,
                                                                     [this](const qmx::Notification&) { finish(); }))
    {
    }

    bool isOver() const { return isOver_ || example::isInterrupted(); }

    void playFrom(SInt64 frame)
    {
        const auto bounds = QMXAudioTrackInfo::initWithTrackTitle_trackBegin_trackEnd_isActive(
            std::nullopt, static_cast<UInt64>(frame), static_cast<UInt64>(part_.end), true);
        if (player_.playTrack(*bounds) != noErr)
            throw Failure{player_.lastError()};
    }

    void press(Key key)
    {
        switch (key) {
        case Key::space:
            pauseOrGoOn();
            break;
        case Key::left:
            jump(-5);
            break;
        case Key::right:
            jump(5);
            break;
        case Key::up:
        case Key::down:
            player_.setVolumeScalar(player_.volumeScalar() * (key == Key::up ? 1.122F : 1 / 1.122F));
            break;
        case Key::quit:
            isOver_ = true;
            break;
        }
    }

    void show(example::ProgressBar& bar) const
    {
        const auto minutes = [this](SInt64 frame) {
            const auto seconds = static_cast<UInt32>(static_cast<double>(frame) / rate_);
            return qmx::format("%u:%02u", seconds / 60, seconds % 60);
        };
        const SInt64 at = std::clamp(player_.currentFrameOffset(), part_.start, part_.end);
        bar.show((isPaused_ ? "paused " : "") + minutes(at - part_.start) + " of " + minutes(part_.end - part_.start),
                 static_cast<double>(at - part_.start) / static_cast<double>(part_.end - part_.start));
    }

private:
    void finish()
    {
        if (isPaused_) // with its last frame
            return;
        if (loops_ && player_.lastStatus() == noErr)
            playFrom(part_.start);
        else
            isOver_ = true;
    }

    void pauseOrGoOn()
    {
        const SInt64 at = player_.currentFrameOffset();
        if (std::exchange(isPaused_, !isPaused_))
            return at < part_.end ? playFrom(at) : finish(); // it was paused in the silence after the last frame
        (void)player_.stop();                                // lastError() tells
    }

    void jump(int seconds)
    {
        const SInt64 wanted = player_.currentFrameOffset() + static_cast<SInt64>(seconds * rate_);
        player_.setCurrentFrameOffset(std::clamp(wanted, part_.start, part_.end - 1));
    }

    QMXAUAudioPlayer& player_;
    Part part_;
    double rate_;
    bool loops_, isPaused_ = false, isOver_ = false;
    std::shared_ptr<qmx::Object> finished_;
};

void playToTheEnd(Playing& playing, const QMXAUAudioPlayer& player)
{
    auto& loop = qmx::RunLoop::main();
    const example::Keys keys;
    example::ProgressBar bar;
    while (!playing.isOver()) {
        if (!player.followsDefaultDevice() && !player.outputDevice()->isAlive())
            throw Failure{player.outputDevice()->name().value_or("The device") + " is gone"};
        std::array<pollfd, 2> ends{{{keys.fileDescriptor(), POLLIN, 0}, {loop.fileDescriptor(), POLLIN, 0}}};
        poll(ends.data(), ends.size(), 200);
        while (loop.runOnce())
            continue;
        if ((ends[0].revents & POLLIN) != 0)
            for (const Key key : keys.pressed())
                playing.press(key);
        playing.show(bar);
    }
}

std::shared_ptr<QMXAudioDevice> deviceNamed(const std::optional<std::string>& uid)
{
    auto device = uid ? QMXAudioDevice::deviceWithDeviceUID(*uid) : QMXAudioDevice::defaultOutputDevice();
    if (!device && uid)
        throw Failure{*uid + ": no such device (the program devices lists them)"};
    if (!device)
        throw example::noDevice("no output device");
    if (!device->canBeOutputDevice())
        throw Failure{device->name().value_or(*uid) + ": has no output"};
    return device;
}

/// A simulated output, in manual time, at a file's rate.
std::shared_ptr<QMXAudioDevice> simulatedDevice(double rate)
{
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset();
    auto description = qmx::VirtualHardware::standardDevice("simulation", "Simulation", 0, 2);
    description.nominalSampleRate = description.actualSampleRate = rate;
    description.availableSampleRates = {{rate, rate}};
    return QMXAudioDevice::deviceWithDeviceID(hardware.addDevice(description));
}

/// Frames of the file as the player gets them: stereo floats, interleaved.
std::vector<Float32> framesOf(QMXExtAudioFile& file, UInt32 count)
{
    std::vector<Float32> samples(std::size_t{count} * 2);
    AudioBufferList list;
    list.mNumberBuffers = 1;
    list.mBuffers[0] = {2, static_cast<UInt32>(samples.size() * sizeof(Float32)), samples.data()};
    if (file.read_numberFrames(&list, &count) != noErr)
        throw Failure{file.lastError()};
    samples.resize(std::size_t{count} * 2);
    return samples;
}

/// Plays to the end and compares what the device was given with the file.
void playSimulated(Playing& playing, const QMXAudioDevice& device, const std::string& path, const Part& part)
{
    AudioStreamBasicDescription stereo = qmx::packedPhysicalFormat(device.nominalSampleRate(false), 2, 32, true);
    const auto file = QMXExtAudioFile::initForReading_clientFormat(path, &stereo);
    if (file->open() != noErr || file->seek(part.start) != noErr)
        throw Failure{file->lastError()};
    auto& hardware = qmx::VirtualHardware::shared();
    const UInt32 cycleFrames = device.bufferFrameSize(false);
    SInt64 left = part.end - part.start;
    UInt64 matching = 0;
    while (!playing.isOver() && left > 0) {
        (void)hardware.captureOutput(device.deviceID(), cycleFrames);
        if (!hardware.advanceCycles(device.deviceID()))
            break;
        const auto given = hardware.capturedOutput(device.deviceID());
        const auto frames = static_cast<UInt32>(std::min<SInt64>(left, cycleFrames));
        const auto expected = framesOf(*file, frames);
        for (std::size_t i = 0; i + 1 < std::min(given.size(), expected.size()); i += 2)
            matching += given[i] == expected[i] && given[i + 1] == expected[i + 1] ? 1 : 0;
        left -= frames;
        qmx::RunLoop::main().runOnce();
    }
    example::printAll(qmx::format("%@\t%qi\t%qu\n", path, part.end - part.start - left, matching));
}

/// The file's rate and length; a Failure where it cannot be opened.
std::pair<double, SInt64> factsOf(const std::string& path)
{
    const auto file = QMXExtAudioFile::initForReading(path);
    if (!file || file->open() != noErr)
        throw Failure{file ? file->lastError() : path + ": there is no memory for it"};
    return {file->sampleRate(), file->lengthInFrames()};
}

int play(int argumentCount, char** arguments)
{
    const example::CommandLine line(argumentCount, arguments, {"--device", "--from", "--to", "--track", "--volume"},
                                    {"--loop", "--simulate"});
    if (line.asksForHelp()) {
        example::printAll(help);
        return 0;
    }
    if (line.plainArguments().size() != 1)
        throw Failure{"which file? (--help tells more)", 2};
    const std::string path = line.plainArguments()[0];
    const bool isSimulated = line.has("--simulate");
    if (isSimulated && (line.has("--loop") || line.has("--device")))
        throw Failure{"--simulate goes without --loop and --device", 2};
    const auto [rate, length] = factsOf(path);
    Part part = partOf(line, path, rate);
    part.end = std::min(part.end, length);
    if (part.start >= part.end)
        throw Failure{path + ": has nothing to play there"};
    example::catchInterrupts([]() noexcept { qmx::RunLoop::main().stop(); });
    const auto device = isSimulated ? simulatedDevice(rate) : deviceNamed(line.text("--device"));
    const auto player = QMXAUAudioPlayer::initWithAudioDevice_pathToFile(device, path);
    if (!player || player->lastStatus() != noErr)
        throw Failure{player ? player->lastError() : "there is no memory for a player"};
    player->setFollowsDefaultDevice(!isSimulated && !line.has("--device"));
    if (const auto decibels = line.number("--volume", -120, 40))
        player->setVolumeScalar(static_cast<Float32>(std::pow(10, *decibels / 20)));
    Playing playing(*player, part, rate, line.has("--loop"));
    playing.playFrom(part.start);
    if (isSimulated)
        playSimulated(playing, *device, path, part);
    else
        playToTheEnd(playing, *player);
    (void)player->stop(); // lastError() tells
    example::endIfInterrupted();
    if (player->lastStatus() != noErr)
        throw Failure{player->lastError()};
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("play", play, argumentCount, arguments);
}
