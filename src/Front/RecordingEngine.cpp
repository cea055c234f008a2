// SPDX-License-Identifier: MIT
#include "Front/RecordingEngine.h"

#include "CoreServices/Files.h"
#include "FileRelated/QMXAudioFile.h"
#include "FileRelated/QMXExtAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/Files/FileManager.h"
#include "Front/NoMemory.h"
#include "Front/OutputFile.h"
#include "Front/StatusText.h"

#include <utility>

namespace qmx
{
namespace
{

constexpr UInt32 spareBuffers = 16; // for disks that stall for up to about ten seconds

/// Takes a name at once, with an empty file; an error if anything has it.
Result<void> claim(const std::string& path)
{
    std::unique_ptr<File> file;
    const SystemError error = FileSystem::current().open(path, FileAccess::createNew, file);
    if (error != 0)
        return Error(statusForSystemError(error), path + ": " + systemErrorText(error), path);
    return {};
}

void remove(const std::string& path)
{
    (void)FileManager::defaultManager().removeFileAtPath_handler(path, nullptr); // the first failure counts
}

template <class Recorder> std::optional<Error> failureOf(const Recorder& recorder, const std::string& path)
{
    const OSStatus status = recorder.lastStatus();
    return status != noErr ? std::optional(Error(status, recorder.lastError(), path)) : std::nullopt;
}

class DeviceEngine final : public RecordingEngine
{
public:
    DeviceEngine(std::shared_ptr<QMXAudioRecorder> recorder, std::string path, bool replaces)
        : recorder_(std::move(recorder)), path_(std::move(path)), replaces_(replaces)
    {
    }
    ~DeviceEngine() override { (void)recorder_->stop(); } // it may have been stopped

    Result<void> start() override
    {
        const bool isFirst = !std::exchange(hasStarted_, true);
        if (isFirst && !replaces_)
            if (auto claimed = claim(path_); !claimed)
                return claimed;
        if (recorder_->record() && recorder_->lastStatus() == noErr)
            return {};
        const auto failed = failure();
        (void)recorder_->stop(); // false if it never started
        if (isFirst && !replaces_)
            remove(path_);
        return failed.value_or(Error(kAudioHardwareIllegalOperationError, path_ + ": The recording has ended", path_));
    }
    Result<void> pause() override
    {
        (void)recorder_->pause(); // false if it does not record
        return {};
    }
    std::optional<Error> stop() override
    {
        (void)recorder_->stop(); // false if it was stopped before
        return failure();
    }
    Result<void> goOnWith(std::shared_ptr<QMXAudioDevice>) override
    {
        return Error(kAudioHardwareUnsupportedOperationError, path_ + ": The recording cannot change its device",
                     path_);
    }

    std::optional<Error> failure() const override { return failureOf(*recorder_, path_); }
    SInt64 capturedFrames() const override
    {
        const UInt32 frameBytes = recorder_->bytesPerFrame(); // lengthInFrames() has 32 bits only
        return frameBytes > 0 ? static_cast<SInt64>(recorder_->lengthInBytes() / frameBytes) : 0;
    }
    UInt64 lostFrames() const override { return recorder_->droppedFrames(); }
    std::shared_ptr<Object> sender() const override { return recorder_; }
    std::shared_ptr<QMXAudioRecorder> deviceRecorder() const override { return recorder_; }

private:
    const std::shared_ptr<QMXAudioRecorder> recorder_;
    const std::string path_;
    const bool replaces_;
    bool hasStarted_ = false;
};

class UnitEngine final : public RecordingEngine
{
public:
    UnitEngine(std::shared_ptr<QMXAUAudioRecorder> recorder, std::string path, std::optional<OutputFile> output)
        : recorder_(std::move(recorder)), path_(std::move(path)), output_(std::move(output)),
          temporaryPath_(output_ ? output_->temporaryPath() : std::string())
    {
    }
    ~UnitEngine() override { (void)recorder_->stop(); } // nobody is left to be told

    Result<void> start() override
    {
        const OSStatus status = recorder_->start();
        const bool isFirst = !std::exchange(hasStarted_, true);
        Result<void> result = status == noErr ? Result<void>() : Result<void>(reason());
        if (result && output_)
            result = output_->finish(); // the file goes on under its own name
        if (!result && isFirst) {
            (void)recorder_->stop(); // the first failure counts
            if (!output_)
                remove(path_);
        }
        return result;
    }
    Result<void> pause() override { return recorder_->pause() == noErr ? Result<void>() : Result<void>(reason()); }
    std::optional<Error> stop() override
    {
        captured_ = capturedFrames();
        return recorder_->stop() == noErr ? std::nullopt : std::optional(reason()); // a lost slice is no failure
    }
    Result<void> goOnWith(std::shared_ptr<QMXAudioDevice> device) override
    {
        recorder_->setInputDevice(device);
        return recorder_->isRecording() ? Result<void>() : Result<void>(reason());
    }

    std::optional<Error> failure() const override
    {
        auto failed = failureOf(*recorder_, path_);
        if (!failed || temporaryPath_.empty())
            return failed;
        std::string text = failed->text();
        if (const std::size_t at = text.find(temporaryPath_); at != std::string::npos)
            text.replace(at, temporaryPath_.size(), path_);
        return Error(failed->status(), std::move(text), path_);
    }
    SInt64 capturedFrames() const override
    {
        const auto& file = *recorder_->audioFile();
        SInt64 frames = 0; // of the file
        if (!file.extAudioFileRef() || ExtAudioFileTell(file.extAudioFileRef(), &frames) != noErr)
            return captured_;
        return static_cast<SInt64>(static_cast<Float64>(frames) * file.clientSampleRate() / file.sampleRate());
    }
    UInt64 lostFrames() const override { return recorder_->droppedFrames(); }
    std::shared_ptr<Object> sender() const override { return recorder_; }
    std::shared_ptr<QMXAUAudioRecorder> unitRecorder() const override { return recorder_; }

private:
    Error reason() const
    {
        return failure().value_or(Error(kAudioHardwareUnspecifiedError, path_ + ": It cannot be recorded", path_));
    }

    const std::shared_ptr<QMXAUAudioRecorder> recorder_;
    const std::string path_;
    std::optional<OutputFile> output_; ///< while an existing file is replaced
    const std::string temporaryPath_;  ///< the name by which the recorder knows the file then
    bool hasStarted_ = false;
    SInt64 captured_ = 0; ///< when it was stopped
};

} // namespace

RecordingEngine::Made RecordingEngine::onDevice(const RecordingPlan& plan)
{
    const auto file = QMXAudioFile::initWithPath_accessMode(plan.path, QMXAudioFileAccessMode::write);
    auto recorder = file ? QMXAudioRecorder::initWithAudioDevice_audioFile(plan.device, file) : nullptr;
    if (!recorder)
        return noMemory();
    if (!file->setFileStreamFormat(QMXAudioStreamBasicDescription(plan.format.stream)))
        return fileError(file->lastStatus(), plan.path);
    file->setFileType(plan.format.fileType); // last: the format sets a type, too
    recorder->setWritesPartialBufferAtStop(true);
    if (!recorder->setSpareRawBuffers(spareBuffers))
        return noMemory();
    return std::unique_ptr<RecordingEngine>(
        std::make_unique<DeviceEngine>(std::move(recorder), plan.path, plan.replaces));
}

RecordingEngine::Made RecordingEngine::onUnit(const RecordingPlan& plan)
{
    std::optional<OutputFile> output;
    FileStatus existing;
    if (plan.replaces && FileSystem::current().status(plan.path, existing) == 0) {
        auto made = OutputFile::at(plan.path, true);
        if (!made)
            return made.error();
        output.emplace(*std::move(made));
    }
    auto recorder =
        QMXAUAudioRecorder::initWithInputDevice_outputPath(plan.device, output ? output->temporaryPath() : plan.path);
    if (!recorder)
        return noMemory();
    const auto failure = [&] { return Error(recorder->lastStatus(), recorder->lastError(), plan.path); };
    if (recorder->lastStatus() != noErr || recorder->setInputChannelMap(plan.channels) != noErr)
        return failure();
    recorder->setFileType(plan.format.fileType);
    recorder->setFileStreamFormat(QMXAudioStreamBasicDescription(plan.format.stream)); // makes the file
    if (recorder->lastStatus() != noErr)
        return fileError(recorder->lastStatus(), plan.path);
    if (plan.format.bitRate != 0)
        recorder->audioFile()->setBitRate(plan.format.bitRate);
    return std::unique_ptr<RecordingEngine>(
        std::make_unique<UnitEngine>(std::move(recorder), plan.path, std::move(output)));
}

} // namespace qmx
