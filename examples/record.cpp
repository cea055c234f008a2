// SPDX-License-Identifier: MIT
// Records from an input device into an audio file.
#include "support/CommandLine.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/ProgressBar.h"
#include "support/SimulatedDevice.h"

#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>
#include <QMXCoreAudio/Foundation/Text/Format.h>
#include <QMXCoreAudio/qmx.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <sstream>

namespace
{

using example::Failure;
using example::valueOf;

constexpr const char* help = R"(usage: record [OPTIONS] FILE

Records from an input device into the new file FILE until Ctrl-C. Prints path, seconds and frames of
the file, with tabs between them; what was lost is told on standard error (exit status 1).

  --device UID    from that device (devices lists them); otherwise the default input
  --seconds S     ends by itself after that time
  --unit          through an audio unit, into a file of the type that FILE's extension stands for:
                  also .m4a (AAC; with --bits lossless), .flac and .caf
  --channels LIST with --unit: these channels of the device, such as 3,4; otherwise the first two
  --format TYPE   aiff, aifc or wave; otherwise aiff, with --float aifc
  --rate HZ       sample rate of the file; otherwise the device's
  --bits N        16, 24 or 32 bits; otherwise as the device's hardware is set
  --float         samples as 32-bit floats
  --meter         shows the levels
  --force         replaces FILE
  --simulate F    instead of a device: what the audio file F holds, at its own rate and as fast as
                  possible; ends with it

QMX_AUDIO_BACKEND=virtual in the environment gives simulated devices.
)";

/// The device to record from.
struct Source {
    qmx::Device device;
    double seconds = std::numeric_limits<double>::infinity(); ///< after which it ends by itself
    bool isSimulated = false;
};

/// A simulated device that captures the sound of a file.
Source simulatedSource(const std::string& path)
{
    const auto file = valueOf(qmx::FrameReader::open(path));
    if (file.length() == 0)
        throw Failure{path + ": holds no audio"};
    const auto device = example::simulatedDevice(file.channels(), 0, file.sampleRate());
    if (qmx::VirtualHardware::shared().setInputFile(device.id(), path) != noErr)
        throw Failure{path + ": cannot be played"};
    return {device, static_cast<double>(file.length()) / file.sampleRate(), true};
}

Source sourceOf(const example::CommandLine& line)
{
    if (const auto path = line.text("--simulate"))
        return simulatedSource(*path);
    const auto uid = line.text("--device");
    return {valueOf(uid ? qmx::device(*uid) : qmx::defaultInput())};
}

/// The type of the file, with its coding where the type leaves a choice.
qmx::Format typeOf(const example::CommandLine& line, const std::string& path, UInt32 bits)
{
    const std::string code = line.text("--format").value_or(line.has("--unit") ? "" : "aiff");
    qmx::Format format = qmx::Format::aiff(0, bits);
    if (code == "aifc")
        format.fileType = kAudioFileAIFCType;
    else if (code == "wave")
        format.fileType = kAudioFileWAVEType;
    else if (code.empty())
        format = valueOf(qmx::Format::forPath(path));
    else if (code != "aiff")
        throw Failure{code + ": not aiff, aifc or wave", 2};
    if (bits > 0 && format.fileType == kAudioFileM4AType)
        return qmx::Format::alac(bits);
    if (bits > 0 && format.fileType == kAudioFileFLACType)
        return qmx::Format::flac(bits);
    format.stream.mBitsPerChannel = bits;
    return format;
}

qmx::Format formatOf(const example::CommandLine& line, const std::string& path, const qmx::Device& device)
{
    auto bits = static_cast<UInt32>(line.wholeNumber("--bits", 16, 32).value_or(0));
    const bool isFloat = line.has("--float"), isAIFF = line.text("--format") == "aiff";
    if (bits % 8 != 0)
        throw Failure{"--bits: 16, 24 or 32", 2};
    if (bits > 0 && isFloat)
        throw Failure{"--bits and --float exclude each other", 2};
    if (isFloat && isAIFF)
        throw Failure{"AIFF files hold no floats; --format aifc does", 2};
    const auto hardware = device.object()->physicalStreamFormat_isInput(0, true);
    if (isAIFF && bits == 0 && hardware && hardware->isFloat())
        bits = 32;
    const auto format =
        typeOf(line, path, bits).withSampleRate(line.number("--rate", 8000, 768000).value_or(device.sampleRate()));
    if (isFloat && !format.isLinear())
        throw Failure{"files of this type hold no floats"};
    return isFloat ? format.withFloats() : format;
}

/// "3,4" as numbers.
std::vector<UInt32> channelsFrom(const std::string& list)
{
    std::vector<UInt32> channels;
    std::istringstream numbers(list);
    for (std::string number; std::getline(numbers, number, ',');) {
        UInt32 channel = 0;
        const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), channel);
        if (error != std::errc{} || end != number.data() + number.size() || channel < 1)
            throw Failure{"--channels: numbers from 1 up with commas between them, not " + list, 2};
        channels.push_back(channel);
    }
    return channels;
}

qmx::RecorderOptions optionsOf(const example::CommandLine& line, const std::string& path, const qmx::Device& device)
{
    qmx::RecorderOptions options{.replace = line.has("--force"), .format = formatOf(line, path, device)};
    if (line.has("--unit")) // named channels are recorded through one
        options.channels = channelsFrom(line.text("--channels").value_or(device.inputChannels() < 2 ? "1" : "1,2"));
    options.meters = line.has("--meter");
    return options;
}

/// Shows the time, what is lost, and slowly falling bars from -60 to 0 dB.
class State
{
public:
    void show(qmx::Recorder& recorder, double rate)
    {
        const double seconds = recorder.seconds();
        const auto whole = static_cast<UInt64>(seconds);
        std::string text = qmx::format("%qu:%02qu.%qu", whole / 60, whole % 60, static_cast<UInt64>(seconds * 10) % 10);
        if (const UInt64 lost = recorder.summary().lost; lost > 0)
            text += qmx::format("  LOST: %.1f s ", static_cast<double>(lost) / rate);
        const auto levels = recorder.levels();
        shown_.resize(levels.size(), quietest);
        for (std::size_t i = 0; i < levels.size(); ++i) {
            shown_[i] = std::clamp(levels[i].peak, std::max(shown_[i] - fall, quietest), 0.0);
            const auto filled = static_cast<std::size_t>((1 - shown_[i] / quietest) * double{width});
            text += " [" + std::string(filled, '#') + std::string(width - filled, ' ') + "]";
        }
        line_.showText(text);
    }

private:
    static constexpr double quietest = -60, fall = 1; // dB
    static constexpr std::size_t width = 20;
    example::ProgressBar line_;
    std::vector<double> shown_;
};

/// Starts and records for `seconds` of the device, unless it ends before or Ctrl-C is pressed.
qmx::Recorder recordFor(double seconds, const Source& source, const std::string& path,
                        const qmx::RecorderOptions& options)
{
    auto& hardware = qmx::VirtualHardware::shared();
    auto& loop = qmx::RunLoop::main();
    const double rate = source.device.sampleRate();
    const UInt32 cycleFrames = source.device.bufferFrames();
    const auto frames = source.isSimulated ? static_cast<UInt64>(std::llround(seconds * rate)) : 0;
    // In a simulation the first cycle has the odd number of frames, so that the last one ends with the file.
    if (source.isSimulated)
        (void)hardware.setCycleFrames(source.device.id(), static_cast<UInt32>(frames % cycleFrames));
    auto recorder = valueOf(qmx::Recorder::start(source.device, path, options));
    State state;
    if (source.isSimulated)
        (void)hardware.setCycleFrames(source.device.id(), 0);
    UInt64 cyclesLeft = (frames + cycleFrames - 1) / cycleFrames;
    while (!example::isInterrupted() && !recorder.hasEnded()) {
        if (source.isSimulated ? cyclesLeft-- == 0 : recorder.seconds() >= seconds)
            break;
        if (source.isSimulated)
            (void)hardware.advanceCycles(source.device.id());
        (void)loop.runFor(source.isSimulated ? 0 : 0.05); // false: Ctrl-C
        state.show(recorder, rate);
    }
    return recorder;
}

int record(int argumentCount, char** arguments)
{
    const example::CommandLine line(
        argumentCount, arguments, {"--device", "--seconds", "--format", "--rate", "--bits", "--simulate", "--channels"},
        {"--float", "--meter", "--force", "--unit"});
    if (line.asksForHelp()) {
        example::printAll(help);
        return 0;
    }
    if (line.plainArguments().size() != 1 || line.plainArguments()[0].empty())
        throw Failure{"which file? (--help tells more)", 2};
    const std::string path = line.plainArguments()[0];
    const auto seconds = line.number("--seconds", 0.01, 86400);
    example::catchInterrupts([]() noexcept { qmx::RunLoop::main().stop(); });
    const Source source = sourceOf(line);
    const auto options = optionsOf(line, path, source.device);
    auto recorder = recordFor(std::min(seconds.value_or(source.seconds), source.seconds), source, path, options);
    const auto stopped = recorder.stop();
    const auto summary = recorder.summary();
    if (!stopped && summary.frames == 0)
        throw Failure{stopped.error().text()};
    example::printAll(qmx::format("%@\t%.2f\t%qi\n", path,
                                  static_cast<double>(summary.frames) / options.format->stream.mSampleRate,
                                  summary.frames));
    if (!stopped)
        throw Failure{stopped.error().text() + "; what was recorded until then is in " + path};
    if (!summary.loss.empty())
        throw Failure{summary.loss};
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("record", record, argumentCount, arguments);
}
