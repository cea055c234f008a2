// SPDX-License-Identifier: MIT
// Writes a copy of an audio file in another type, coding, rate or number of channels.
#include "support/AudioTypes.h"
#include "support/CommandLine.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/OutputFile.h"
#include "support/ProgressBar.h"
#include "support/Recording.h"
#include "support/StatusText.h"

#include <QMXCoreAudio/FileRelated/QMXAudioFileConverter.h>
#include <QMXCoreAudio/FileRelated/QMXExtAudioFile.h>
#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>
#include <QMXCoreAudio/Foundation/Modules.h>

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

example::RequestedFormat requestFrom(const CommandLine& line)
{
    example::RequestedFormat request;
    request.sampleRate = line.number("--rate", 1, 10'000'000);
    if (const auto channels = line.wholeNumber("--channels", 1, 1024))
        request.channels = static_cast<UInt32>(*channels);
    if (const auto bits = line.wholeNumber("--bits", 1, 32))
        request.bits = static_cast<UInt32>(*bits);
    request.isFloat = line.has("--float");
    if (request.isFloat && request.bits)
        throw Failure{"--bits and --float do not go together", 2};
    return request;
}

class Progress : public QMXProgressSubscriber
{
public:
    void progressUpdate(float progress) override
    {
        example::endIfInterrupted();
        bar_.show("converting", static_cast<double>(progress));
    }

private:
    example::ProgressBar bar_;
};

/// Checks that the services can make a file of this type and format, by making one in a folder that is removed.
void checkCanBeMade(const std::string& path, AudioFileTypeID type, const AudioStreamBasicDescription& format)
{
    const auto probe = QMXExtAudioFile::initForWriting_fileType_fileFormat(path + ".probe", type, &format);
    (void)probe->open(); // lastStatus() has the first step that failed
    const OSStatus status = probe->lastStatus();
    const std::string missing = qmx::missingModule();
    (void)probe->close(); // it is removed with its folder
    if (status == kAudioFileUnsupportedFileTypeError)
        throw Failure{"files of type " + qmx::fourCharString(type) + " cannot be written here" +
                      (missing.empty() ? "" : ": " + missing)};
    if (status == kAudioFileUnsupportedDataFormatError || status == kAudioConverterErr_FormatNotSupported)
        throw Failure{"files of type " + qmx::fourCharString(type) + " do not hold such samples"};
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
    const example::RequestedFormat request = requestFrom(line);
    const auto code = line.text("--type");
    AudioFileTypeID type = code ? example::typeFromCode(*code) : example::typeFromExtension(paths[1]);
    const auto source = example::openAudioFile(paths[0])->fileStreamFormat();
    const AudioStreamBasicDescription format =
        example::formatFor(type, *source->audioStreamBasicDescription(), request);

    example::catchInterrupts(nullptr);
    example::OutputFile output(paths[1], paths[0], line.has("--force"));
    checkCanBeMade(output.temporaryPath(), type, format);
    const auto converter = QMXAudioFileConverter::initWithInputFilePath(paths[0]);
    constexpr long most = std::numeric_limits<SInt32>::max();
    converter->setBitRate(static_cast<UInt32>(line.wholeNumber("--bit-rate", 1, most).value_or(0)));
    Progress progress;
    (void)converter->convertFileToPath_toFileType_toFormat_subscriber(
        output.temporaryPath(), type, std::make_shared<QMXAudioStreamBasicDescription>(format), &progress);
    if (const OSStatus status = converter->lastStatus(); status != noErr) // a failed read, too
        throw Failure{"cannot convert " + paths[0] + " to " + paths[1] + ": " + example::statusText(status)};
    output.finish();
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("convert", convert, argumentCount, arguments);
}
