// SPDX-License-Identifier: MIT
// Plays what one device captures on another one.
#include "support/CommandLine.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/ProgressBar.h"

#include <QMXCoreAudio/Foundation/Text/Format.h>
#include <QMXCoreAudio/qmx.h>

#include <algorithm>
#include <cstdio>

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

std::string stateText(const qmx::PlayThru& playing)
{
    return qmx::format("%s  %.1f ms  rate %.6f  refused %qu", playing.isRunning() ? "running" : "stopped",
                       playing.latency() * 1000, playing.rate(), UInt64{playing.refusedFetches()});
}

/// Shows the state, and once each what failed meanwhile.
void run(const qmx::PlayThru& playing, double seconds)
{
    example::ProgressBar state;
    std::string told;
    constexpr double interval = 0.25;
    for (double elapsed = 0; elapsed < seconds && !example::isInterrupted(); elapsed += interval) {
        const auto failure = playing.failure();
        if (failure && failure->text() != told) {
            state.wipe();
            std::fprintf(stderr, "%s\n", failure->text().c_str());
        }
        told = failure ? failure->text() : "";
        (void)qmx::RunLoop::main().runFor(std::min(interval, seconds - elapsed)); // false: Ctrl-C
        state.showText(stateText(playing));
    }
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
    const auto from = line.text("--input"), to = line.text("--output");
    const auto input = example::valueOf(from ? qmx::device(*from) : qmx::defaultInput());
    const auto output = example::valueOf(to ? qmx::device(*to) : qmx::defaultOutput());

    example::catchInterrupts([]() noexcept { qmx::RunLoop::main().stop(); });
    qmx::PlayThruOptions options{.driftCorrection = line.has("--drift-correction")};
    if (volume)
        options.volume = static_cast<float>(*volume);
    const auto playing = example::valueOf(qmx::PlayThru::start(input, output, options));
    run(playing, seconds);
    example::printAll(stateText(playing) + "\n");
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("playthru", playThrough, argumentCount, arguments);
}
