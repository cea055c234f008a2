// SPDX-License-Identifier: MIT
#include "Front/Process.h"

#include "AudioToolbox/ExtAudioFile.h"
#include "CoreServices/Files.h"
#include "FileRelated/ChannelLayoutTransfer.h"
#include "Foundation/Files/FileManager.h"
#include "Front/FrameFiles.h"
#include "Front/Progress.h"
#include "Front/StatusText.h"
#include "Front/TrackTransfer.h"
#include "Tracks/QMXTrackAndProcessingInfo.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace qmx
{
namespace
{

/// A run over a file that is open for reading.
struct Run {
    const std::string& path;
    const FrameProcessor& processor;
    const ProcessOptions& options;
    FrameFile source;
    Format format; ///< of the source
    AudioStreamBasicDescription client;
    FrameRange range;
    Progress progress;
    FileStatus status; ///< of the file, from before it was opened
};

/// An existing file whose frames are overwritten.
class Overwritten
{
public:
    Overwritten() = default;
    ~Overwritten()
    {
        if (file_)
            (void)close(); // after a failure, which counts
    }
    Overwritten(const Overwritten&) = delete;
    Overwritten& operator=(const Overwritten&) = delete;

    OSStatus open(const std::string& path, const AudioStreamBasicDescription& client, SInt64 firstFrame)
    {
        const FSRef reference{path};
        OSStatus status = AudioFileOpen(&reference, fsRdWrPerm, 0, &file_);
        if (status == noErr)
            status = ExtAudioFileWrapAudioFileID(file_, true, &frames_);
        if (status == noErr)
            status = ExtAudioFileSetProperty(frames_, kExtAudioFileProperty_ClientDataFormat, sizeof client, &client);
        return status == noErr ? ExtAudioFileSeek(frames_, firstFrame) : status;
    }
    ExtAudioFileRef frames() const { return frames_; }
    OSStatus close()
    {
        const OSStatus written = frames_ ? ExtAudioFileDispose(std::exchange(frames_, nullptr)) : noErr;
        const OSStatus closed = AudioFileClose(std::exchange(file_, nullptr));
        return written != noErr ? written : closed;
    }

private:
    AudioFileID file_ = nullptr;
    ExtAudioFileRef frames_ = nullptr;
};

/// Reads up to `most` frames of those that the file still has.
Result<UInt32> readBlock(const Run& run, std::vector<float>& block, SInt64 most)
{
    const std::size_t channels = run.client.mChannelsPerFrame;
    block.resize(static_cast<std::size_t>(most) * channels);
    auto frames = readFrames(*run.source, block.data(), static_cast<UInt32>(most));
    if (frames && *frames == 0)
        return fileError(eofErr, run.path);
    if (frames)
        block.resize(*frames * channels);
    return frames;
}

std::optional<Error> processFrames(Run& run, ExtAudioFileRef target, const std::string& targetPath)
{
    constexpr SInt64 framesAtOnce = 4096;
    std::vector<float> block;
    const UInt32 channels = run.client.mChannelsPerFrame;
    const auto length = static_cast<double>(run.range.end - run.range.first);
    SInt64 left = run.range.end - run.range.first;
    while (left > 0 && run.progress.report(1 - static_cast<double>(left) / length)) {
        const auto frames = readBlock(run, block, std::min(left, framesAtOnce));
        if (!frames)
            return frames.error();
        if (!run.processor(block, channels))
            break;
        AudioBufferList list;
        list.mNumberBuffers = 1;
        list.mBuffers[0] = {channels, static_cast<UInt32>(block.size() * sizeof(float)), block.data()};
        if (const OSStatus status = ExtAudioFileWrite(target, *frames, &list); status != noErr)
            return fileError(status, targetPath);
        left -= *frames;
    }
    return left == 0 ? std::nullopt : std::optional(fileError(cancelledStatus, run.path));
}

/// Adds the record of what was done to those of the file that is being made.
std::optional<Error> keepRecord(const Run& run, const OutputFile& output, FrameRange range)
{
    if (!run.options.record)
        return std::nullopt;
    const auto stored = readStored(output.temporaryPath());
    if (!stored)
        return stored.error();
    const auto record = *stored ? *stored : made(QMXTrackAndProcessingInfo::init());
    run.options.record->setProcessingStartFrame(static_cast<UInt64>(range.first));
    run.options.record->setProcessingEndFrame(static_cast<UInt64>(range.end));
    record->addAudioProcessingInfo(run.options.record);
    record->setFileHasBeenProcessed(true);
    return storeInto(output.temporaryPath(), output.path(), record);
}

std::optional<Error> objectionToRecord(const Run& run, const Format& target, const std::string& path)
{
    if (!run.options.record || target.keepsTracks())
        return std::nullopt;
    return Error(kAudioFileUnsupportedFileTypeError,
                 path + ": Records of processing are stored in AIFF and AIFF-C files only", path);
}

std::optional<Error> openToChange(const std::string& path, std::unique_ptr<File>& file)
{
    const SystemError error = FileSystem::current().open(path, FileAccess::readWrite, file);
    return error == 0 ? std::nullopt : std::optional(fileError(statusForSystemError(error), path));
}

std::optional<Error> objectionToChanging(const std::string& path, const Format& format)
{
    if (!format.isLinear())
        return Error(kAudioFileOperationNotSupportedError,
                     path + ": A compressed file cannot be changed itself, only processed into another", path);
    std::unique_ptr<File> file;
    return openToChange(path, file);
}

/// Copies the file and changes the copy, which then takes its place.
std::optional<Error> fillCopy(Run& run, const OutputFile& output)
{
    if (const SystemError error = FileManager::defaultManager().copyFileAtPath_toPath(run.path, output.temporaryPath());
        error != 0)
        return fileError(statusForSystemError(error), run.path);
    Overwritten target;
    if (const OSStatus status = target.open(output.temporaryPath(), run.client, run.range.first); status != noErr)
        return fileError(status, run.path);
    if (auto error = processFrames(run, target.frames(), run.path))
        return error;
    if (const OSStatus status = target.close(); status != noErr)
        return fileError(status, run.path);
    return keepRecord(run, output, run.range);
}

Result<Format> outputFormat(const Run& run)
{
    if (run.options.format)
        return run.options.format->completedFrom(run.format);
    const auto wish = Format::forPath(run.options.output);
    const bool isOwn = !wish || wish->fileType == run.format.fileType ||
                       (wish->keepsTracks() && run.format.keepsTracks()); // AIFF-C in a file called .aif
    return isOwn ? run.format : wish->completedFrom(run.format);
}

/// Makes a new file of the range.
std::optional<Error> fillNew(Run& run, const OutputFile& output, const Format& format)
{
    const auto target = makeFile(output, format, run.client);
    if (!target)
        return target.error();
    passLayoutOn(*run.source, **target);
    if (auto error = processFrames(run, (*target)->extAudioFileRef(), output.path()))
        return error;
    if (const OSStatus status = (*target)->close(); status != noErr)
        return fileError(status, output.path());
    const double ratio = format.stream.mSampleRate / run.client.mSampleRate;
    return keepRecord(run, output, {0, std::llround(static_cast<double>(run.range.end - run.range.first) * ratio)});
}

std::optional<Error> finish(Run& run, OutputFile& output)
{
    const auto finished = output.finish();
    if (!finished)
        return finished.error();
    run.progress.finish();
    return std::nullopt;
}

/// Lets the copy take the place of the file, unless others stored into that or replaced it.
std::optional<Error> takePlace(Run& run, OutputFile& output)
{
    std::unique_ptr<File> file;
    if (auto error = openToChange(run.path, file))
        return error;
    const FileLock lock(file.get());
    FileStatus status;
    if (FileSystem::current().status(run.path, status) != 0 || status != run.status)
        return Error(fBsyErr, run.path + ": It was changed while it was processed", run.path);
    return finish(run, output);
}

std::optional<Error> changeFile(Run& run)
{
    if (auto objection = objectionToChanging(run.path, run.format))
        return objection;
    if (auto objection = objectionToRecord(run, run.format, run.path))
        return objection;
    auto output = OutputFile::at(run.path, true);
    if (!output)
        return output.error();
    auto error = fillCopy(run, *output);
    return error ? error : takePlace(run, *output);
}

std::optional<Error> makeOutput(Run& run)
{
    const auto format = outputFormat(run);
    if (!format)
        return ofFile(format.error(), run.options.output);
    if (auto objection = objectionToRecord(run, *format, run.options.output))
        return objection;
    auto output = OutputFile::at(run.options.output, run.options.replace, run.path);
    if (!output)
        return output.error();
    auto error = fillNew(run, *output, *format);
    return error ? error : finish(run, *output);
}

std::optional<Error> prepare(Run& run)
{
    run.client = floatFormat(run.source->sampleRate(), run.source->channelsPerFrame());
    OSStatus status = run.source->setClientStreamFormat(run.client);
    run.range.end = std::min(run.range.end, run.source->lengthInFrames());
    if (run.range.first < 0 || run.range.first >= run.range.end)
        return Error(paramErr, run.path + ": It has no frames in the range", run.path);
    if (status == noErr)
        status = run.source->seek(run.range.first);
    return status == noErr ? std::nullopt : std::optional(fileError(status, run.path));
}

Result<void> processed(const std::string& path, const FrameRange& range, const FrameProcessor& processor,
                       const ProcessOptions& options)
{
    if (!processor)
        return Error(paramErr, path + ": There is nothing to process it with", path);
    FileStatus status;
    if (const SystemError error = FileSystem::current().status(path, status); error != 0)
        return fileError(statusForSystemError(error), path);
    auto source = openFile(path);
    if (!source)
        return source.error();
    Run run{path, processor, options, *source, formatOf(**source), {}, range, {options.progress, options.stop}, status};
    auto error = prepare(run);
    if (!error)
        error = options.output.empty() ? changeFile(run) : makeOutput(run);
    return error ? Result<void>(*std::move(error)) : Result<void>();
}

} // namespace

Result<void> process(const std::string& path, const FrameRange& range, const FrameProcessor& processor,
                     const ProcessOptions& options)
{
    return orNoMemory([&] { return processed(path, range, processor, options); });
}

} // namespace qmx
