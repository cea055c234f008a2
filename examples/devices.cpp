// SPDX-License-Identifier: MIT
// Lists the audio devices, describes one, and reports changes.
#include "support/Devices.h"
#include "support/CommandLine.h"
#include "support/Failure.h"

#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/Foundation/MainThread/RunLoop.h>
#include <QMXCoreAudio/Foundation/Text/Format.h>

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

std::string defaultMarks(const QMXAudioDevice& device, bool isInput)
{
    std::string marks = device.isDefaultDevice(isInput) ? "default" : "";
    const auto systemOutput = QMXAudioDevice::defaultSystemOutputDevice();
    if (!isInput && systemOutput && systemOutput->deviceID() == device.deviceID())
        marks += marks.empty() ? "system" : ", system";
    return marks;
}

std::string line(const QMXAudioDevice& device, bool isInput)
{
    return qmx::format("%@\t%@\t%s\t%u\t%.0f\t%@\n", device.deviceUID(), device.name(), isInput ? "input" : "output",
                       device.numberOfChannels(isInput), device.nominalSampleRate(isInput),
                       defaultMarks(device, isInput));
}

std::string listOfDevices()
{
    std::string text;
    for (const auto& device : QMXAudioDevice::allDevicesArray().snapshot())
        for (const bool isInput : {true, false})
            if (isInput ? device->canBeInputDevice() : device->canBeOutputDevice())
                text += line(*device, isInput);
    return text;
}

std::string report(const std::string& uid)
{
    const auto device = QMXAudioDevice::deviceWithDeviceUID(uid);
    if (!device)
        throw Failure{uid + ": no such device (devices without arguments lists them)"};
    return device->printDeviceInfo();
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
    if (QMXAudioDevice::allDevicesArray().snapshot().empty())
        throw example::noDevice("no audio device");
    example::printAll(uid ? report(*uid) : listOfDevices());
    if (line.has("--watch"))
        watchUntilEnter();
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("devices", devices, argumentCount, arguments);
}
