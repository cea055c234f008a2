// SPDX-License-Identifier: MIT
// Changes the level of a range of a recording, in the file itself or in a new one, and stores a record of the change in
// the file.
#include "support/CommandLine.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/ProgressBar.h"

#include <QMXCoreAudio/Tracks/QMXAudioProcessingRangeInfo.h>
#include <QMXCoreAudio/qmx.h>

#include <cmath>
#include <cstdio>
#include <limits>

namespace
{

using example::CommandLine;
using example::Failure;

constexpr const char* help =
    R"(usage: process --gain DB [--from FRAME] [--to FRAME] (--in-place | OUT) IN

Changes the level of the recording IN by DB decibels, from frame FRAME (0) up to, and without, frame FRAME (the
end): in the file itself, of which nothing else is changed, or as a new file OUT with the range alone.

  --gain DB       decibels, from -144 to 144
  --from FRAME    first frame of the range, counted from 0
  --to FRAME      frame past the last
  --in-place      change IN itself
  --force         replace OUT if it exists

What was done is kept in the file (AIFF and AIFF-C), where split --history shows it.
)";

/// The record of the change; null if the file that is changed or made cannot keep one.
std::shared_ptr<QMXAudioProcessingRangeInfo> recordOf(double decibels, const std::string& input,
                                                      const std::string& output)
{
    const auto format = output.empty() ? qmx::Format::of(input) : qmx::Format::forPath(output);
    if (!format || !format->keepsTracks())
        return nullptr;
    auto record = QMXAudioProcessingRangeInfo::initWithProcessName("Gain");
    record->addProcessingSettingFloat_value("Decibels", static_cast<Float32>(decibels));
    return record;
}

int process(int argumentCount, char** arguments)
{
    const CommandLine line(argumentCount, arguments, {"--gain", "--from", "--to"}, {"--in-place", "--force"});
    if (line.asksForHelp()) {
        example::printAll(help);
        return 0;
    }
    constexpr long most = std::numeric_limits<long>::max();
    const auto decibels = line.number("--gain", -144, 144);
    if (!decibels)
        throw Failure{"how much? --gain tells (--help tells more)", 2};
    const auto& paths = line.plainArguments();
    if (paths.size() != (line.has("--in-place") ? 1U : 2U))
        throw Failure{"either --in-place and one file, or OUT and IN (--help tells more)", 2};
    const std::string& input = paths.back();
    const std::string output = paths.size() == 2 ? paths.front() : "";
    const qmx::FrameRange range{line.wholeNumber("--from", 0, most).value_or(0),
                                line.wholeNumber("--to", 0, most).value_or(most)};

    example::catchInterrupts(nullptr);
    example::ProgressBar bar;
    const auto record = recordOf(*decibels, input, output);
    const auto gain = [factor = static_cast<float>(std::pow(10, *decibels / 20))](std::span<float> samples, UInt32) {
        for (float& sample : samples)
            sample *= factor;
        return !example::isInterrupted();
    };
    const auto show = [&](float done) {
        bar.show("processing", static_cast<double>(done));
        return true;
    };
    example::valueOf(qmx::process(
        input, range, gain,
        {.progress = show, .output = output, .replace = line.has("--force"), .format = {}, .record = record}));
    bar.wipe();
    if (!record)
        std::fputs("Processed, but without a record of it: AIFF and AIFF-C files keep one\n", stderr);
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("process", process, argumentCount, arguments);
}
