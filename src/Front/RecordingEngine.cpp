// SPDX-License-Identifier: MIT
#include "Front/RecordingEngine.h"

#include "FileRelated/QMXAudioFile.h"
#include "FileRelated/QMXExtAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/Files/FileManager.h"
#include "Front/LossText.h"
#include "Front/OutputFile.h"
#include "Front/ShortMemory.h"
#include "Front/StatusText.h"
#include "Front/SystemFailure.h"

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
        return systemFailure(error, path);
    return {};
}

/// The file that a recorder makes. An existing file stays until the recording has started: the new one has another name
/// until then, by which the recorder knows it for good.
class RecordedFile
{
public:
    static Result<RecordedFile> at(const std::string& path, bool replaces)
    {
        FileStatus existing;
        if (!replaces || FileSystem::current().status(path, existing) != 0)
            return RecordedFile(path, std::nullopt);
        auto output = OutputFile::at(path, true);
        if (!output)
            return output.error();
        return RecordedFile(path, *std::move(output));
    }

    const std::string& path() const { return path_; }
    const std::string& recorderPath() const { return recorderPath_; }
    bool replaces() const { return output_.has_value(); }

    /// Takes the place of an existing file; once.
    Result<void> replace()
    {
        auto replaced = output_ ? output_->finish() : Result<void>();
        if (replaced)
            output_.reset();
        return replaced;
    }
    /// Removes what a recording that did not start has made.
    void discard() const { (void)FileManager::defaultManager().removeFileAtPath_handler(recorderPath_, nullptr); }

    /// The last failure of the recorder, which names the file by its path.
    template <class Recorder> std::optional<Error> failureOf(const Recorder& recorder) const
    {
        if (recorder.lastStatus() == noErr)
            return std::nullopt;
        std::string text = recorder.lastError();
        if (const std::size_t at = text.find(recorderPath_); at != std::string::npos)
            text.replace(at, recorderPath_.size(), path_);
        return Error(recorder.lastStatus(), std::move(text), path_);
    }

private:
    RecordedFile(std::string path, std::optional<OutputFile> output)
        : path_(std::move(path)), output_(std::move(output)), recorderPath_(output_ ? output_->temporaryPath() : path_)
    {
    }

    std::string path_;
    std::optional<OutputFile> output_; ///< while an existing file is there
    std::string recorderPath_;
};

class DeviceEngine final : public RecordingEngine
{
public:
    DeviceEngine(std::shared_ptr<QMXAudioRecorder> recorder, RecordedFile file)
        : recorder_(std::move(recorder)), file_(std::move(file))
    {
    }
    ~DeviceEngine() override { (void)recorder_->stop(); } // it may have been stopped

    Result<void> start() override
    {
        const bool isFirst = !std::exchange(hasStarted_, true);
        if (isFirst && !file_.replaces())
            if (auto claimed = claim(file_.path()); !claimed)
                return claimed;
        auto result = record();
        if (result)
            result = file_.replace();
        if (!result && isFirst) {
            (void)recorder_->stop(); // false if it never started
            file_.discard();
        }
        return result;
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
        return Error(kAudioHardwareUnsupportedOperationError, file_.path() + ": The recording cannot change its device",
                     file_.path());
    }

    std::optional<Error> failure() const override { return file_.failureOf(*recorder_); }
    SInt64 capturedFrames() const override
    {
        const UInt32 frameBytes = recorder_->bytesPerFrame(); // lengthInFrames() has 32 bits only
        return frameBytes > 0 ? static_cast<SInt64>(recorder_->lengthInBytes() / frameBytes) : 0;
    }
    UInt64 lostFrames() const override { return recorder_->droppedFrames(); }
    std::string lossText() const override
    {
        return qmx::lossText(recorder_->droppedFrames(), recorder_->lostFramePositions());
    }
    bool isRunning() const override { return recorder_->isRecording(); }
    std::shared_ptr<Object> sender() const override { return recorder_; }
    std::shared_ptr<QMXAudioRecorder> deviceRecorder() const override { return recorder_; }

private:
    Result<void> record()
    {
        if (recorder_->record() && recorder_->lastStatus() == noErr)
            return {};
        return failure().value_or(
            Error(kAudioHardwareIllegalOperationError, file_.path() + ": The recording has ended", file_.path()));
    }

    const std::shared_ptr<QMXAudioRecorder> recorder_;
    RecordedFile file_;
    bool hasStarted_ = false;
};

class UnitEngine final : public RecordingEngine
{
public:
    UnitEngine(std::shared_ptr<QMXAUAudioRecorder> recorder, RecordedFile file)
        : recorder_(std::move(recorder)), file_(std::move(file))
    {
    }
    ~UnitEngine() override { (void)recorder_->stop(); } // nobody is left to be told

    Result<void> start() override
    {
        const OSStatus status = recorder_->start();
        const bool isFirst = !std::exchange(hasStarted_, true);
        Result<void> result = status == noErr ? Result<void>() : Result<void>(reason());
        if (result)
            result = file_.replace();
        if (!result && isFirst) {
            (void)recorder_->stop(); // the first failure counts
            file_.discard();
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

    std::optional<Error> failure() const override { return file_.failureOf(*recorder_); }
    SInt64 capturedFrames() const override
    {
        const auto& file = *recorder_->audioFile();
        SInt64 frames = 0; // of the file
        if (!file.extAudioFileRef() || ExtAudioFileTell(file.extAudioFileRef(), &frames) != noErr)
            return captured_;
        return static_cast<SInt64>(static_cast<Float64>(frames) * file.clientSampleRate() / file.sampleRate());
    }
    UInt64 lostFrames() const override { return recorder_->droppedFrames(); }
    std::string lossText() const override { return qmx::lossText(recorder_->droppedFrames()); }
    bool isRunning() const override { return recorder_->isRecording(); }
    std::shared_ptr<Object> sender() const override { return recorder_; }
    std::shared_ptr<QMXAUAudioRecorder> unitRecorder() const override { return recorder_; }

private:
    Error reason() const
    {
        return failure().value_or(
            Error(kAudioHardwareUnspecifiedError, file_.path() + ": It cannot be recorded", file_.path()));
    }

    const std::shared_ptr<QMXAUAudioRecorder> recorder_;
    RecordedFile file_;
    bool hasStarted_ = false;
    SInt64 captured_ = 0; ///< when it was stopped
};

} // namespace

RecordingEngine::Made RecordingEngine::onDevice(const RecordingPlan& plan)
{
    auto made = RecordedFile::at(plan.path, plan.replaces);
    if (!made)
        return made.error();
    const auto file = QMXAudioFile::initWithPath_accessMode(made->recorderPath(), QMXAudioFileAccessMode::write);
    auto recorder = file ? QMXAudioRecorder::initWithAudioDevice_audioFile(plan.device, file) : nullptr;
    if (!recorder)
        return memoryError();
    if (!file->setFileStreamFormat(QMXAudioStreamBasicDescription(plan.format.stream)))
        return fileError(file->lastStatus(), plan.path);
    file->setFileType(plan.format.fileType); // last: the format sets a type, too
    recorder->setWritesPartialBufferAtStop(true);
    if (!recorder->setSpareRawBuffers(spareBuffers))
        return memoryError();
    return std::unique_ptr<RecordingEngine>(std::make_unique<DeviceEngine>(std::move(recorder), *std::move(made)));
}

RecordingEngine::Made RecordingEngine::onUnit(const RecordingPlan& plan)
{
    auto made = RecordedFile::at(plan.path, plan.replaces);
    if (!made)
        return made.error();
    auto recorder = QMXAUAudioRecorder::initWithInputDevice_outputPath(plan.device, made->recorderPath());
    if (!recorder)
        return memoryError();
    if (recorder->lastStatus() != noErr || recorder->setInputChannelMap(plan.channels) != noErr)
        return made->failureOf(*recorder).value_or(memoryError());
    recorder->setFileType(plan.format.fileType);
    recorder->setFileStreamFormat(QMXAudioStreamBasicDescription(plan.format.stream)); // makes the file
    if (const OSStatus status = recorder->lastStatus(); status != noErr) {
        if (status != dupFNErr) // else it is another's, who was sooner
            made->discard();
        return fileError(status, plan.path);
    }
    constexpr UInt32 stopped = 1 << 2;
    recorder->setEventMask(stopped);
    if (plan.format.bitRate != 0)
        recorder->audioFile()->setBitRate(plan.format.bitRate);
    return std::unique_ptr<RecordingEngine>(std::make_unique<UnitEngine>(std::move(recorder), *std::move(made)));
}

} // namespace qmx
