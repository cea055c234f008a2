// SPDX-License-Identifier: MIT
// Lists the audio devices, describes one, and reports changes.
#include "support/CommandLine.h"
#include "support/Failure.h"

#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/Foundation/MainThread/NotificationCenter.h>
#include <QMXCoreAudio/Foundation/Text/Format.h>
#include <QMXCoreAudio/qmx.h>

#include <array>
#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace
{

using example::Failure;

constexpr const char* help = R"(usage: devices [--info UID] [--watch]

Prints one line for each direction of each audio device: UID, name, direction, channels, sample
rate in Hz, and what it is the default for, with tabs between them.

  --info UID   print all that is known about one device instead
  --watch      then print every change, with whom it concerns, until Enter is pressed

QMX_AUDIO_BACKEND=virtual in the environment gives simulated devices.
)";

std::string defaultMarks(const qmx::Device& device, qmx::Direction direction)
{
    const bool isInput = direction == qmx::Direction::input;
    const auto standard = isInput ? qmx::defaultInput() : qmx::defaultOutput();
    const auto system = isInput ? nullptr : QMXAudioDevice::defaultSystemOutputDevice();
    std::string marks = standard && *standard == device ? "default" : "";
    if (system && qmx::Device(system) == device)
        marks += marks.empty() ? "system" : ", system";
    return marks;
}

std::string listOfDevices()
{
    using qmx::Direction;
    std::string text;
    for (const qmx::Device& device : qmx::devices())
        for (const Direction direction : {Direction::input, Direction::output})
            if (const UInt32 channels = device.channels(direction); channels > 0)
                text += qmx::format("%@\t%@\t%s\t%u\t%.0f\t%@\n", device.uid(), device.name(),
                                    direction == Direction::input ? "input" : "output", channels, device.sampleRate(),
                                    defaultMarks(device, direction));
    return text;
}

void checkThereAreSome()
{
    if (!qmx::devices().empty())
        return;
    const auto backend = qmx::backendStatus();
    throw Failure{"no audio device: " + (backend ? "the machine has none" : backend.error().text()) +
                  "; QMX_AUDIO_BACKEND=virtual gives simulated ones"};
}

/// Whether a line or the end of the input has arrived.
bool endOfLineCame()
{
    std::array<char, 256> bytes{};
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    return count <= 0 ||
           std::string_view(bytes.data(), static_cast<std::size_t>(count)).find('\n') != std::string_view::npos;
}

void watchUntilEnter()
{
    auto& loop = qmx::RunLoop::main();
    const auto observer = qmx::NotificationCenter::defaultCenter().observe("", nullptr, [](const auto& notification) {
        example::printAll(qmx::format("%@\t%@\n", notification.name, notification.sender));
    });
    for (;;) {
        std::array<pollfd, 2> ends{{{STDIN_FILENO, POLLIN, 0}, {loop.fileDescriptor(), POLLIN, 0}}};
        if (poll(ends.data(), ends.size(), -1) < 0 && errno != EINTR)
            throw Failure{"cannot wait for changes: " + example::systemErrorText(errno)};
        if (ends[1].revents != 0)
            loop.runOnce();
        if (ends[0].revents != 0 && endOfLineCame())
            return;
    }
}

int devices(int argumentCount, char** arguments)
{
    const example::CommandLine line(argumentCount, arguments, {"--info"}, {"--watch"});
    if (line.asksForHelp()) {
        example::printAll(help);
        return 0;
    }
    if (!line.plainArguments().empty())
        throw Failure{"what is " + line.plainArguments()[0] + "? (--help tells more)", 2};
    const auto uid = line.text("--info");
    checkThereAreSome();
    example::printAll(uid ? example::valueOf(qmx::device(*uid)).object()->printDeviceInfo() : listOfDevices());
    if (line.has("--watch"))
        watchUntilEnter();
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("devices", devices, argumentCount, arguments);
}
