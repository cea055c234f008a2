// SPDX-License-Identifier: MIT
// Writes a copy of an audio file in another type, coding, rate or number of channels.
#include "support/CommandLine.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/ProgressBar.h"

#include <QMXCoreAudio/qmx.h>

#include <limits>

namespace
{

using example::CommandLine;
using example::Failure;

constexpr const char* help =
    R"(usage: convert [--type CODE] [--rate HZ] [--bits N | --float] [--channels N] [--bit-rate BPS] IN OUT

Writes a copy of the audio file IN as OUT. What is not asked for stays as it is in IN.

  --type CODE      type of OUT: AIFF, AIFC, WAVE, RF64, caff, Sd2f, NeXT, m4af, mp4f, adts, MPG3, flac;
                   without it the extension of OUT tells
  --rate HZ        sample rate
  --bits N         integers of N bits (8, 16, 20, 24, 32); in m4af and mp4f this asks for the lossless coding
  --float          32-bit floats
  --channels N     number of channels; surround sound of a known layout is mixed to two
  --bit-rate BPS   bits per second of a lossy coding
  --force          replace OUT if it exists
)";

/// The type that is asked for, or that the path's extension stands for.
qmx::Format typeFrom(const CommandLine& line, const std::string& path)
{
    const auto code = line.text("--type");
    const auto format = code ? qmx::Format::forTypeCode(*code) : qmx::Format::forPath(path);
    if (!format)
        throw Failure{format.error().text(), 2};
    return *format;
}

qmx::Format formatFrom(const CommandLine& line, const std::string& path)
{
    constexpr long most = std::numeric_limits<SInt32>::max();
    const auto bits = line.wholeNumber("--bits", 1, 32);
    if (bits && line.has("--float"))
        throw Failure{"--bits and --float do not go together", 2};
    qmx::Format format = typeFrom(line, path)
                             .withSampleRate(line.number("--rate", 1, 10'000'000).value_or(0))
                             .withChannels(static_cast<UInt32>(line.wholeNumber("--channels", 1, 1024).value_or(0)));
    format.bitRate = static_cast<UInt32>(line.wholeNumber("--bit-rate", 1, most).value_or(0));
    if (line.has("--float")) {
        if (!format.isLinear())
            throw Failure{"files of this type hold no floats"};
        return format.withFloats();
    }
    if (bits && (format.fileType == kAudioFileM4AType || format.fileType == kAudioFileMPEG4Type))
        format.stream.mFormatID = kAudioFormatAppleLossless;
    if (bits && format.isLossless())
        format.stream.mBitsPerChannel = static_cast<UInt32>(*bits);
    return format;
}

int convert(int argumentCount, char** arguments)
{
    const CommandLine line(argumentCount, arguments, {"--type", "--rate", "--bits", "--channels", "--bit-rate"},
                           {"--float", "--force"});
    if (line.asksForHelp()) {
        example::printAll(help);
        return 0;
    }
    const auto& paths = line.plainArguments();
    if (paths.size() != 2)
        throw Failure{"which file, and where to? (--help tells more)", 2};
    const qmx::Format format = formatFrom(line, paths[1]);
    example::catchInterrupts(nullptr);
    example::ProgressBar bar;
    const auto show = [&](float done) {
        bar.show("converting", static_cast<double>(done));
        return !example::isInterrupted();
    };
    example::valueOf(qmx::convert(paths[0], paths[1], format, {.progress = show, .replace = line.has("--force")}));
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("convert", convert, argumentCount, arguments);
}
