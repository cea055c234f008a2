// SPDX-License-Identifier: MIT
// Records from an input device into an audio file.
#include "support/AudioTypes.h"
#include "support/CommandLine.h"
#include "support/Devices.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/LevelLine.h"
#include "support/Recording.h"
#include "support/UnitRecording.h"

#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/Devices/QMXVUMeterData.h>
#include <QMXCoreAudio/Devices/QMXVUMeterDataProvider.h>
#include <QMXCoreAudio/FileRelated/QMXAudioFile.h>
#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>
#include <QMXCoreAudio/Foundation/MainThread/RunLoop.h>
#include <QMXCoreAudio/Foundation/Text/Format.h>
#include <QMXCoreAudio/Recording/QMXAudioRecorder.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <limits>
#include <sstream>

namespace
{

using example::Failure;

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

struct Options {
    std::string path;
    std::optional<AudioFileTypeID> type;
    std::optional<double> rate, seconds;
    std::optional<UInt32> bits;
    bool isFloat = false, hasMeter = false;
};

std::optional<AudioFileTypeID> typeFrom(const std::optional<std::string>& code)
{
    if (!code)
        return std::nullopt;
    const AudioFileTypeID type = example::typeFromCode(*code);
    if (type != kAudioFileAIFFType && type != kAudioFileAIFCType && type != kAudioFileWAVEType)
        throw Failure{*code + ": not aiff, aifc or wave", 2};
    return type;
}

Options optionsOf(const example::CommandLine& line)
{
    if (line.plainArguments().size() != 1 || line.plainArguments()[0].empty())
        throw Failure{"which file? (--help tells more)", 2};
    Options options;
    options.path = line.plainArguments()[0];
    options.type = typeFrom(line.text("--format"));
    options.rate = line.number("--rate", 8000, 768000);
    options.seconds = line.number("--seconds", 0.01, 86400);
    options.isFloat = line.has("--float");
    options.hasMeter = line.has("--meter");
    if (const auto bits = line.wholeNumber("--bits", 16, 32))
        options.bits = static_cast<UInt32>(*bits);
    if (options.bits && *options.bits % 8 != 0)
        throw Failure{"--bits: 16, 24 or 32", 2};
    if (options.bits && options.isFloat)
        throw Failure{"--bits and --float exclude each other", 2};
    if (options.isFloat && options.type == kAudioFileAIFFType)
        throw Failure{"AIFF files hold no floats; --format aifc does", 2};
    if (std::filesystem::exists(options.path) && !line.has("--force"))
        throw Failure{options.path + ": exists already (--force replaces it)"};
    return options;
}

/// The device to record from.
struct Source {
    std::shared_ptr<QMXAudioDevice> device;
    double rate = 0;
    std::optional<UInt64> frames; ///< the length, if it ends by itself
};

/// A simulated device, in manual time, that captures the sound of a file.
Source simulatedSource(const std::string& path)
{
    const auto file = example::openRecording(path);
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset();
    auto description = qmx::VirtualHardware::standardDevice("simulation", "Simulation", file->channelsPerFrame(), 0);
    const double rate = description.nominalSampleRate = description.actualSampleRate = file->sampleRate();
    description.availableSampleRates = {{rate, rate}};
    const auto id = hardware.addDevice(description);
    if (hardware.setInputFile(id, path) != noErr)
        throw Failure{path + ": cannot be played"};
    return {QMXAudioDevice::deviceWithDeviceID(id), rate, example::frameCount(*file)};
}

/// The device object is the program's own, so that nothing else starts or stops it.
Source sourceNamed(const std::optional<std::string>& uid)
{
    const auto standard = uid ? nullptr : QMXAudioDevice::defaultInputDevice();
    if (!uid && !standard)
        throw example::noDevice("no input device");
    auto device =
        uid ? QMXAudioDevice::deviceWithDeviceUID(*uid) : QMXAudioDevice::deviceWithDeviceID(standard->deviceID());
    if (!device)
        throw Failure{*uid + ": no such device (the program devices lists them)"};
    if (!device->canBeInputDevice())
        throw Failure{device->name().value_or(*uid) + ": has no input"};
    return {device, device->nominalSampleRate(true), std::nullopt};
}

QMXAudioStreamBasicDescription fileFormat(const QMXAudioDevice& device, const Options& options)
{
    const auto physical = device.physicalStreamFormat_isInput(0, true);
    if (!physical)
        throw Failure{"the device does not tell its format"};
    const bool isFloat =
        options.isFloat || (physical->isFloat() && !options.bits && options.type != kAudioFileAIFFType);
    const UInt32 bits = isFloat ? 32 : options.bits.value_or(std::max(physical->bitsPerChannel(), 16U));
    AudioStreamBasicDescription record = qmx::packedPhysicalFormat(options.rate.value_or(physical->sampleRate()),
                                                                   physical->channelsPerFrame(), bits, isFloat);
    record.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    return QMXAudioStreamBasicDescription(record);
}

/// "3,4" as channels from 0.
std::vector<SInt32> channelsFrom(const std::optional<std::string>& list)
{
    std::vector<SInt32> channels;
    std::istringstream numbers(list.value_or(""));
    for (std::string number; std::getline(numbers, number, ',');) {
        SInt32 channel = 0;
        const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), channel);
        if (error != std::errc{} || end != number.data() + number.size() || channel < 1)
            throw Failure{"--channels: numbers from 1 up with commas between them, not " + *list, 2};
        channels.push_back(channel - 1);
    }
    return channels;
}

int recordByUnit(const example::CommandLine& line, const Options& options, const Source& source)
{
    if (options.hasMeter)
        throw Failure{"--meter does not go together with --unit", 2};
    const auto [frames, rate] = example::recordThroughUnit(
        {source.device,
         options.path,
         options.type ? *options.type : example::typeFromExtension(options.path),
         {.sampleRate = options.rate, .channels = {}, .bits = options.bits, .isFloat = options.isFloat},
         channelsFrom(line.text("--channels")),
         options.seconds,
         source.frames});
    example::printAll(qmx::format("%@\t%.2f\t%qi\n", options.path, static_cast<double>(frames) / rate, frames));
    return 0;
}

std::shared_ptr<QMXAudioRecorder> makeRecorder(const std::shared_ptr<QMXAudioDevice>& device, const Options& options)
{
    const auto file = QMXAudioFile::initWithPath_accessMode(options.path, QMXAudioFileAccessMode::write);
    auto recorder = QMXAudioRecorder::initWithAudioDevice_audioFile(device, file);
    if (!file->setFileStreamFormat(fileFormat(*device, options)))
        throw Failure{file->lastError()};
    if (options.type)
        file->setFileType(*options.type); // last, because setting a format also sets the type
    recorder->setWritesPartialBufferAtStop(true);
    if (!recorder->setSpareRawBuffers(16)) // for disks that stall for up to about ten seconds
        throw Failure{recorder->lastError()};
    return recorder;
}

/// The frames recorded so far, in 64 bits, unlike lengthInFrames().
UInt64 framesRecorded(const QMXAudioRecorder& recorder)
{
    const UInt32 frameBytes = recorder.bytesPerFrame();
    return frameBytes == 0 ? 0 : recorder.lengthInBytes() / frameBytes;
}

/// Runs until the end is reached, something fails, or Ctrl-C is pressed.
void recordToTheEnd(QMXAudioRecorder& recorder, const Source& source, const Options& options)
{
    auto& loop = qmx::RunLoop::main();
    auto& center = qmx::NotificationCenter::defaultCenter();
    auto& hardware = qmx::VirtualHardware::shared();
    auto& device = *source.device;
    UInt64 end = source.frames.value_or(std::numeric_limits<UInt64>::max());
    if (options.seconds)
        end = std::min(end, static_cast<UInt64>(*options.seconds * source.rate));
    example::LevelLine levelLine(device.numberOfChannels(true));
    const auto frames =
        center.observe(QMXAudioRecorderRecordedFrameNotification, nullptr, [&](const qmx::Notification&) {
            levelLine.show(static_cast<double>(framesRecorded(recorder)) / source.rate,
                           static_cast<double>(recorder.droppedFrames()) / source.rate);
            if (framesRecorded(recorder) >= end)
                loop.stop();
        });
    const auto failure =
        center.observe(QMXAudioRecorderFailedNotification, nullptr, [&](const qmx::Notification&) { loop.stop(); });
    const auto levels = center.observe(QMXVUMeterDataProviderNewDataIsAvailableNotification, nullptr,
                                       [&](const qmx::Notification& notification) {
                                           levelLine.take(dynamic_cast<const QMXVUMeterData&>(*notification.sender));
                                       });
    // In a simulation the first cycle has the odd number of frames, so that the last one ends with the file.
    if (source.frames)
        (void)hardware.setCycleFrames(device.deviceID(), static_cast<UInt32>(end % device.bufferFrameSize(true)));
    if (options.hasMeter)
        device.inputVUMeterDataProvider()->start();
    if (!recorder.record())
        throw Failure{recorder.lastError()};
    if (source.frames)
        (void)hardware.setCycleFrames(device.deviceID(), 0);
    while (!example::isInterrupted() && recorder.lastStatus() == noErr && framesRecorded(recorder) < end) {
        if (source.frames) {
            if (!hardware.advanceCycles(device.deviceID()))
                break;
            loop.runOnce();
        } else {
            loop.runFor(0.5);
        }
    }
    device.inputVUMeterDataProvider()->stop();
}

const char* reasonText(QMXAudioRecordingLoss::Reason reason)
{
    using Reason = QMXAudioRecordingLoss::Reason;
    switch (reason) {
    case Reason::overrun:
        return "the disk is too slow";
    case Reason::conversion:
        return "a conversion failed";
    case Reason::write:
        return "the file cannot be written";
    case Reason::partialBuffer:
        return "the end was not written";
    case Reason::timeGap:
        return "the device left out time";
    case Reason::rateChange:
        return "the device changed its sample rate";
    }
    return "";
}

/// Describes how much of a recording with losses is missing, where and why.
std::string lossText(const QMXAudioRecorder& recorder)
{
    const auto losses = recorder.lostFramePositions();
    const std::string what =
        recorder.droppedFrames() > 0 ? qmx::format("%qu frames are missing ", recorder.droppedFrames()) : "";
    const std::string many =
        losses.size() > 1 ? qmx::format("in %u places, first ", static_cast<UInt32>(losses.size())) : "";
    return what + many +
           qmx::format("at frame %qu: ", losses.front().fileFrame).append(reasonText(losses.front().reason));
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
    const Options options = optionsOf(line);
    example::catchInterrupts([]() noexcept { qmx::RunLoop::main().stop(); });
    const auto simulated = line.text("--simulate");
    const Source source = simulated ? simulatedSource(*simulated) : sourceNamed(line.text("--device"));
    if (line.has("--unit"))
        return recordByUnit(line, options, source);
    const auto recorder = makeRecorder(source.device, options);
    recordToTheEnd(*recorder, source, options);
    std::string failure = recorder->lastError();
    (void)recorder->stop(); // false if it never started
    if (failure.empty())
        failure = recorder->lastError(); // from writing the rest
    QMXAudioFile& file = *recorder->audioFile();
    const UInt64 frames = example::frameCount(file);
    if (!failure.empty() && frames == 0)
        throw Failure{failure};
    example::printAll(
        qmx::format("%@\t%.2f\t%qu\n", options.path, static_cast<double>(frames) / file.sampleRate(), frames));
    if (!failure.empty())
        throw Failure{failure + "; what was recorded until then is in " + options.path};
    if (!recorder->lostFramePositions().empty())
        throw Failure{lossText(*recorder)};
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("record", record, argumentCount, arguments);
}
