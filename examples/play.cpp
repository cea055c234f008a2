// SPDX-License-Identifier: MIT
// Plays an audio file.
#include "support/CommandLine.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/ProgressBar.h"
#include "support/SimulatedDevice.h"

#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/Foundation/Text/Format.h>
#include <QMXCoreAudio/qmx.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace
{

using example::Failure;
using example::valueOf;

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

qmx::PlayerOptions optionsOf(const example::CommandLine& line, const std::string& path, double rate)
{
    constexpr double most = 1e9; // seconds
    const auto frameAt = [&](double second) { return static_cast<SInt64>(std::llround(second * rate)); };
    qmx::PlayerOptions options{.loop = line.has("--loop")};
    if (const auto number = line.wholeNumber("--track", 1, 9999)) {
        const auto stored = valueOf(qmx::readTracks(path));
        if (!stored || stored->tracks.size() < static_cast<std::size_t>(*number))
            throw Failure{qmx::format("%@: has no stored track %ld", path, *number)};
        const qmx::Track& track = stored->tracks[static_cast<std::size_t>(*number - 1)];
        options.from = track.first;
        options.to = track.end;
    }
    if (const auto to = line.number("--to", 0, most))
        options.to = std::min(options.to.value_or(frameAt(most)), options.from + frameAt(*to));
    if (const auto from = line.number("--from", 0, most))
        options.from += frameAt(*from);
    if (const auto decibels = line.number("--volume", -120, 40))
        options.volume = static_cast<float>(std::pow(10, *decibels / 20));
    if (const auto uid = line.text("--device"))
        options.device = valueOf(qmx::device(*uid));
    return options;
}

/// The keys of the terminal that is standard input, unseen; elsewhere there are none. The terminal is as before in the
/// end.
class Keys
{
public:
    Keys() : isTerminal_(isatty(STDIN_FILENO) == 1 && tcgetattr(STDIN_FILENO, &before_) == 0)
    {
        termios unseen = before_;
        unseen.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        if (isTerminal_)
            tcsetattr(STDIN_FILENO, TCSANOW, &unseen);
    }
    ~Keys()
    {
        if (isTerminal_)
            tcsetattr(STDIN_FILENO, TCSANOW, &before_);
    }
    Keys(const Keys&) = delete;
    Keys& operator=(const Keys&) = delete;

    /// Waits a little, for a key or for what is due in the run loop, and returns what was typed.
    std::string wait() const
    {
        std::array<pollfd, 2> ends{
            {{isTerminal_ ? STDIN_FILENO : -1, POLLIN, 0}, {qmx::RunLoop::main().fileDescriptor(), POLLIN, 0}}};
        poll(ends.data(), ends.size(), 200);
        if ((ends[0].revents & (POLLIN | POLLHUP)) == 0)
            return "";
        std::array<char, 64> bytes{};
        const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
        return count > 0 ? std::string(bytes.data(), static_cast<std::size_t>(count)) : "q";
    }

private:
    bool isTerminal_;
    termios before_{};
};

/// False for the key that ends it.
bool press(const std::string& key, qmx::Player& player)
{
    constexpr float decibel = 1.122F;
    const auto jump = static_cast<SInt64>(5 * player.sampleRate());
    if (key == " ")
        valueOf(player.isPaused() ? player.resume() : player.pause());
    else if (key == "\x1b[A" || key == "\x1b[B") // up, down
        player.setVolume(key.back() == 'A' ? player.volume() * decibel : player.volume() / decibel);
    else if (key == "\x1b[C" || key == "\x1b[D") // right, left
        player.seek(player.position() + (key.back() == 'C' ? jump : -jump));
    return key != "q";
}

void show(const qmx::Player& player, example::ProgressBar& bar)
{
    const auto minutes = [&](SInt64 frames) {
        const auto seconds = static_cast<UInt32>(static_cast<double>(frames) / player.sampleRate());
        return qmx::format("%u:%02u", seconds / 60, seconds % 60);
    };
    const SInt64 length = player.to() - player.from();
    const SInt64 at = std::clamp(player.position() - player.from(), SInt64{0}, length);
    bar.show((player.isPaused() ? "paused " : "") + minutes(at) + " of " + minutes(length),
             static_cast<double>(at) / static_cast<double>(length));
}

void playToTheEnd(qmx::Player& player)
{
    const Keys keys;
    example::ProgressBar bar;
    bool goesOn = true;
    while (goesOn && !player.hasEnded() && !example::isInterrupted()) {
        const std::string typed = keys.wait();
        for (std::size_t i = 0, size = 1; i < typed.size(); i += size) {
            size = typed.compare(i, 2, "\x1b[") == 0 ? 3 : 1;
            goesOn = press(typed.substr(i, size), player) && goesOn;
        }
        while (qmx::RunLoop::main().runOnce())
            continue;
        show(player, bar);
    }
}

/// Plays to the end and compares what the device, of two channels, was given with the file.
void playSimulated(const qmx::Player& player, const qmx::Device& device, qmx::FrameReader& file,
                   const std::string& path)
{
    auto& hardware = qmx::VirtualHardware::shared();
    const UInt32 cycleFrames = device.bufferFrames(), channels = file.channels();
    std::vector<float> expected(std::size_t{cycleFrames} * channels);
    SInt64 played = 0, matching = 0;
    valueOf(file.seek(player.from()));
    while (!player.hasEnded() && !example::isInterrupted() && played < player.to() - player.from()) {
        (void)hardware.captureOutput(device.id(), cycleFrames);
        if (!hardware.advanceCycles(device.id()))
            break;
        const auto given = hardware.capturedOutput(device.id());
        const auto left = static_cast<std::size_t>(player.to() - player.from() - played);
        const std::size_t wanted = std::min<std::size_t>(left, cycleFrames);
        const std::size_t frames = valueOf(file.read(std::span(expected).first(wanted * channels)));
        for (std::size_t i = 0; i < std::min(frames, given.size() / 2); ++i) {
            const float* const frame = &expected[i * channels];
            matching += given[2 * i] == frame[0] && given[2 * i + 1] == frame[channels > 1 ? 1 : 0] ? 1 : 0;
        }
        played += static_cast<SInt64>(wanted);
        qmx::RunLoop::main().runOnce();
    }
    example::printAll(qmx::format("%@\t%qi\t%qi\n", path, played, matching));
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
    auto file = valueOf(qmx::FrameReader::open(path));
    auto options = optionsOf(line, path, file.sampleRate());
    example::catchInterrupts([]() noexcept { qmx::RunLoop::main().stop(); });
    if (isSimulated)
        options.device = example::simulatedDevice(0, 2, file.sampleRate());
    auto player = valueOf(qmx::Player::play(path, options));
    qmx::Result<void> end;
    player.onEnd([&](const qmx::Result<void>& how) { end = how; });
    if (isSimulated)
        playSimulated(player, *options.device, file, path);
    else
        playToTheEnd(player);
    qmx::RunLoop::main().runOnce(); // how it ended
    if (!end && !end.error().isCancelled())
        throw Failure{end.error().text()};
    example::endIfInterrupted();
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("play", play, argumentCount, arguments);
}
