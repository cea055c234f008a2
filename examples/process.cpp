// SPDX-License-Identifier: MIT
// Changes the level of a range of a recording, in the file itself or in a new one, and stores a record of the change in
// the file.
#include "support/CommandLine.h"
#include "support/Failure.h"
#include "support/GainProcessor.h"
#include "support/Interrupt.h"
#include "support/OutputFile.h"
#include "support/ProgressBar.h"
#include "support/Recording.h"
#include "support/StatusText.h"
#include "support/TrackStore.h"

#include <QMXCoreAudio/FileRelated/QMXAudioFileProcessor.h>
#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>
#include <QMXCoreAudio/Processing/QMXProgressSubscriber.h>

#include <algorithm>
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

struct Job {
    std::string input;
    std::string output; ///< empty: in place
    AudioFileTypeID inputType = 0;
    std::shared_ptr<QMXAudioStreamBasicDescription> inputFormat;
    double decibels = 0;
    SInt64 from = 0;
    SInt64 to = 0;
};

Job jobFrom(const CommandLine& line)
{
    const auto gain = line.number("--gain", -144, 144);
    if (!gain)
        throw Failure{"how much? --gain tells (--help tells more)", 2};
    const auto& paths = line.plainArguments();
    if (paths.size() != (line.has("--in-place") ? 1U : 2U))
        throw Failure{"either --in-place and one file, or OUT and IN (--help tells more)", 2};
    Job job;
    job.decibels = *gain;
    job.input = paths.back();
    if (paths.size() == 2)
        job.output = paths.front();
    const auto input = example::openRecording(job.input);
    job.inputType = input->fileType();
    job.inputFormat = input->fileStreamFormat();
    const auto frames = static_cast<SInt64>(example::frameCount(*input));
    constexpr long most = std::numeric_limits<long>::max();
    job.from = line.wholeNumber("--from", 0, most).value_or(0);
    job.to = std::min<SInt64>(line.wholeNumber("--to", 0, most).value_or(most), frames);
    if (job.from >= job.to)
        throw Failure{job.input + ": has no frames from " + std::to_string(job.from) + " on to " +
                      std::to_string(job.to)};
    return job;
}

/// The processor reports for each pass the part that is still to be done; the bar shows the sum of what was done.
class Progress : public QMXProgressSubscriber
{
public:
    void progressUpdate(float leftByPass) override
    {
        done_ += 1 - static_cast<double>(leftByPass);
        bar_.show("processing", std::min(done_, 1.0));
    }

private:
    example::ProgressBar bar_;
    double done_ = 0;
};

/// The reason why a file cannot keep a record of the change; empty if it can.
std::string objectionToRecord(const std::string& path, AudioFileTypeID type)
{
    try {
        example::checkCanStore(path, type);
    } catch (const Failure& failure) {
        return failure.line;
    }
    return "";
}

void keepRecord(const Job& job, const std::string& path, const example::Record& record, SInt64 from, SInt64 to)
{
    const auto range = QMXAudioProcessingRangeInfo::initWithProcessNameAndRange_processingStartFrame_processingEndFrame(
        "Gain", static_cast<UInt64>(from), static_cast<UInt64>(to));
    range->addProcessingSettingFloat_value("Decibels", static_cast<Float32>(job.decibels));
    example::storeProcessingRange(path, record, range);
}

/// Checks that the output file can hold the samples: AIFF files hold big-endian integers, AIFF-C files also 32-bit
/// floats; the processor makes no others.
void checkCanHold(const Job& job)
{
    const AudioStreamBasicDescription& format = *job.inputFormat->audioStreamBasicDescription();
    constexpr AudioFormatFlags bigSigned = kAudioFormatFlagIsBigEndian | kAudioFormatFlagIsSignedInteger;
    const bool isFloat = (format.mFormatFlags & kAudioFormatFlagIsFloat) != 0;
    const bool isBig = (format.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0;
    const bool fits = format.mFormatID == kAudioFormatLinearPCM &&
                      (format.mBitsPerChannel == 32 ? isBig
                       : format.mBitsPerChannel > 8 ? !isFloat && (format.mFormatFlags & bigSigned) == bigSigned
                                                    : (format.mFormatFlags & kAudioFormatFlagIsSignedInteger) != 0);
    if (!fits)
        throw Failure{job.output + ": would be an AIFF file, which does not hold the samples of " + job.input +
                      " as they are (--in-place works, and so does convert)"};
}

std::shared_ptr<QMXAudioFileProcessor> processorFor(const Job& job)
{
    return QMXAudioFileProcessor::initWithSourcePath_processFramesWith_progressSubscriber(
        job.input, std::make_shared<example::GainProcessor>(job.decibels), std::make_shared<Progress>());
}

void check(const Job& job, const QMXAudioFileProcessor& processor)
{
    if (processor.lastStatus() != noErr)
        throw Failure{"cannot process " + job.input + ": " + example::statusText(processor.lastStatus())};
}

void processInPlace(const Job& job)
{
    const std::string objection = objectionToRecord(job.input, job.inputType);
    example::Record record;
    if (objection.empty())
        record = example::readRecord(job.input, false); // fails now rather than later if the record cannot be read
    const auto processor = processorFor(job);
    (void)processor->processFrames_endFrame(job.from, job.to); // lastStatus() has more
    check(job, *processor);
    if (objection.empty())
        keepRecord(job, job.input, record, job.from, job.to);
    else
        std::fprintf(stderr, "Processed, but without a record of it: %s\n", objection.c_str());
}

void processToFile(const Job& job, bool mayReplace)
{
    checkCanHold(job);
    example::OutputFile output(job.output, job.input, mayReplace);
    const auto processor = processorFor(job);
    (void)processor->copyFramesToPath_startFrame_endFrame(output.temporaryPath(), job.from, job.to); // as above
    check(job, *processor);
    const std::string objection = objectionToRecord(output.temporaryPath(), kAudioFileAIFFType);
    if (objection.empty())
        keepRecord(job, output.temporaryPath(), nullptr, 0, job.to - job.from);
    output.finish();
    if (!objection.empty())
        std::fprintf(stderr, "Processed, but without a record of it: files called .aif, .aiff or .aifc keep one\n");
}

int process(int argumentCount, char** arguments)
{
    const CommandLine line(argumentCount, arguments, {"--gain", "--from", "--to"}, {"--in-place", "--force"});
    if (line.asksForHelp()) {
        example::printAll(help);
        return 0;
    }
    const Job job = jobFrom(line);
    if (job.output.empty())
        processInPlace(job);
    else
        processToFile(job, line.has("--force"));
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("process", process, argumentCount, arguments);
}
