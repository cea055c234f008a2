// SPDX-License-Identifier: MIT
#include "support/UnitRecording.h"

#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/OutputFile.h"

#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/FileRelated/QMXExtAudioFile.h>
#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>
#include <QMXCoreAudio/Foundation/MainThread/NotificationCenter.h>
#include <QMXCoreAudio/Foundation/MainThread/RunLoop.h>
#include <QMXCoreAudio/Foundation/Text/Format.h>
#include <QMXCoreAudio/Recording/QMXAUAudioRecorder.h>
#include <QMXCoreAudio/Recording/QMXAudioRecorder.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>

namespace example
{
namespace
{

/// The first cycle is the odd one, so that the last one ends with the source.
void runSimulation(QMXAUAudioRecorder& recorder, const UnitRecording& recording, UInt64 frames)
{
    auto& hardware = qmx::VirtualHardware::shared();
    const AudioDeviceID device = recording.device->deviceID();
    const UInt64 cycleFrames = recording.device->bufferFrameSize(true);
    if (frames % cycleFrames != 0) {
        (void)hardware.setCycleFrames(device, static_cast<UInt32>(frames % cycleFrames));
        (void)hardware.advanceCycles(device);
        (void)hardware.setCycleFrames(device, 0);
    }
    for (UInt64 cycle = 0; cycle < frames / cycleFrames && !isInterrupted() && recorder.lastStatus() == noErr; ++cycle)
        if (!hardware.advanceCycles(device))
            break;
}

void runForReal(std::optional<double> seconds)
{
    using Clock = std::chrono::steady_clock;
    bool hasEnded = false; // without its device, or as its file takes no more
    const auto end = [&](const qmx::Notification&) { hasEnded = true; };
    auto& center = qmx::NotificationCenter::defaultCenter();
    const std::array observers{center.observe(QMXAudioRecorderStoppedRecordingNotification, nullptr, end),
                               center.observe(QMXAudioRecorderFailedNotification, nullptr, end)};
    const auto start = Clock::now();
    const auto left = [&] {
        return seconds.value_or(1e9) - std::chrono::duration<double>(Clock::now() - start).count();
    };
    while (!isInterrupted() && !hasEnded && left() > 0)
        qmx::RunLoop::main().runFor(std::min(0.5, left()));
}

std::shared_ptr<QMXAUAudioRecorder> makeRecorder(const UnitRecording& recording, const std::string& path)
{
    AudioStreamBasicDescription source = qmx::packedPhysicalFormat(
        recording.device->nominalSampleRate(true),
        recording.channels.empty() ? 2 : static_cast<UInt32>(recording.channels.size()), 16, false);
    AudioFileTypeID type = recording.type;
    const auto format = formatFor(type, source, recording.format);
    auto recorder = QMXAUAudioRecorder::initWithInputDevice_outputPath(recording.device, path);
    if (!recorder)
        throw Failure{"there is no memory for a recorder"};
    if (recorder->setInputChannelMap(recording.channels) != noErr)
        throw Failure{recorder->lastError()};
    recorder->setEventMask(2);
    recorder->setFileType(type);
    recorder->setFileStreamFormat(QMXAudioStreamBasicDescription(format));
    if (recorder->lastStatus() != noErr)
        throw Failure{recorder->lastError()};
    return recorder;
}

} // namespace

std::pair<SInt64, Float64> recordThroughUnit(const UnitRecording& recording)
{
    {
        const OutputFile trial(recording.path, {}, true); // what can be refused is refused before an existing file goes
        makeRecorder(recording, trial.temporaryPath());
    }
    std::filesystem::remove(recording.path);
    const auto recorder = makeRecorder(recording, recording.path);
    if (recorder->start() != noErr)
        throw Failure{recorder->lastError()};
    if (recording.simulatedFrames) {
        UInt64 frames = *recording.simulatedFrames;
        if (recording.seconds)
            frames =
                std::min(frames, static_cast<UInt64>(*recording.seconds * recording.device->nominalSampleRate(true)));
        runSimulation(*recorder, recording, frames);
    } else {
        runForReal(recording.seconds);
    }
    std::string failure = recorder->lastError();
    if (failure.empty() && !recorder->isRecording())
        failure = recording.device->name().value_or("The device") + " is gone";
    if (recorder->stop() != noErr && failure.empty())
        failure = recorder->lastError();
    if (failure.empty() && recorder->droppedFrames() > 0)
        failure = qmx::format("%qu frames are missing", recorder->droppedFrames());
    if (!failure.empty())
        throw Failure{failure + "; what was recorded until then is in " + recording.path};
    const auto file = QMXExtAudioFile::initForReading(recording.path);
    if (file->open() != noErr)
        throw Failure{file->lastError()};
    return {file->lengthInFrames(), file->sampleRate()};
}

} // namespace example
