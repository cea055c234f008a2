// SPDX-License-Identifier: MIT
// Plays what one device captures on another one.
#include "support/CommandLine.h"
#include "support/Devices.h"
#include "support/Failure.h"
#include "support/Interrupt.h"

#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/Foundation/MainThread/RunLoop.h>
#include <QMXCoreAudio/Foundation/Text/Format.h>
#include <QMXCoreAudio/PlayThru/PlayThru.h>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace
{

using example::Failure;

constexpr const char* help = R"(usage: playthru [OPTIONS]

Plays what an input device captures on an output device until Ctrl-C; beware of a microphone that
hears the loudspeaker. Shows latency, rate and how often the output found nothing to play.

  --input UID         from that device (devices lists them); otherwise the default input
  --output UID        on that device; otherwise the default output
  --volume V          0 to 1
  --drift-correction  follows the devices' clocks: for runs of more than minutes
  --seconds S         ends by itself after that time

QMX_AUDIO_BACKEND=virtual in the environment gives simulated devices.
)";

AudioDeviceID deviceNamed(const std::optional<std::string>& uid, bool isInput)
{
    const auto standard = isInput ? QMXAudioDevice::defaultInputDevice() : QMXAudioDevice::defaultOutputDevice();
    const auto device = uid ? QMXAudioDevice::deviceWithDeviceUID(*uid) : standard;
    if (!device && uid)
        throw Failure{*uid + ": no such device (the program devices lists them)"};
    if (!device)
        throw example::noDevice(isInput ? "no input device" : "no output device");
    if (isInput ? !device->canBeInputDevice() : !device->canBeOutputDevice())
        throw Failure{device->name().value_or(uid.value_or("")) + (isInput ? ": has no input" : ": has no output")};
    return device->deviceID();
}

/// The rate of the input, which may change and be away.
double rateOf(AudioDeviceID input, double last)
{
    const auto device = QMXAudioDevice::deviceWithDeviceID(input);
    const double rate = device ? device->nominalSampleRate(true) : 0;
    return rate > 0 ? rate : last;
}

/// What failed by itself, once.
void tellFailure(std::string& told)
{
    const std::string failure = LastErrorForPlayThru();
    if (failure != told && !failure.empty())
        std::fprintf(stderr, "%s%s\n", isatty(STDERR_FILENO) == 1 ? "\r\033[K" : "", failure.c_str());
    told = failure;
}

std::string stateText(double inputRate)
{
    double latency = 0;
    float rate = 0;
    unsigned long refused = 0;
    (void)GetLatencyForPlayThru(&latency); // what cannot be read shows as 0
    (void)GetRateForPlayThru(&rate);
    (void)GetRefusedFetchesForPlayThru(&refused);
    return qmx::format("%s  %.1f ms  rate %.6f  refused %qu", PlayThruIsRunning() ? "running" : "stopped",
                       latency * 1000 / inputRate, static_cast<double>(rate), static_cast<UInt64>(refused));
}

int playThrough(int argumentCount, char** arguments)
{
    const example::CommandLine line(argumentCount, arguments, {"--input", "--output", "--volume", "--seconds"},
                                    {"--drift-correction"});
    if (line.asksForHelp()) {
        example::printAll(help);
        return 0;
    }
    if (!line.plainArguments().empty())
        throw Failure{line.plainArguments()[0] + ": playthru takes no file (--help tells more)", 2};
    const auto volume = line.number("--volume", 0, 1);
    const double seconds = line.number("--seconds", 0.01, 86400).value_or(86400.0 * 365);
    const AudioDeviceID input = deviceNamed(line.text("--input"), true);
    const AudioDeviceID output = deviceNamed(line.text("--output"), false);
    double inputRate = rateOf(input, 44100);

    example::catchInterrupts([]() noexcept { qmx::RunLoop::main().stop(); });
    if (InitPlayThru(input, output) != noErr) {
        std::fputc('\n', stderr); // its line has no end
        throw Failure{LastErrorForPlayThru()};
    }
    if ((volume && SetVolumeForPlayThru(static_cast<float>(*volume)) != noErr) ||
        SetDriftCorrectionForPlayThru(line.has("--drift-correction")) != noErr || StartPlayThru() != noErr)
        throw Failure{LastErrorForPlayThru()};
    std::string told;
    const bool isTerminal = isatty(STDERR_FILENO) == 1;
    constexpr double interval = 0.25;
    for (double elapsed = 0; elapsed < seconds && !example::isInterrupted(); elapsed += interval) {
        tellFailure(told);
        (void)qmx::RunLoop::main().runFor(std::min(interval, seconds - elapsed)); // false: Ctrl-C
        inputRate = rateOf(input, inputRate);
        if (isTerminal)
            std::fprintf(stderr, "\r\033[K%s", stateText(inputRate).c_str());
    }
    if (isTerminal)
        std::fputs("\r\033[K", stderr);
    example::printAll(stateText(inputRate) + "\n");
    if (StopPlayThru() != noErr)
        throw Failure{"play-through does not stop"};
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("playthru", playThrough, argumentCount, arguments);
}
