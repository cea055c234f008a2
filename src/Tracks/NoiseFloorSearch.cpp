// SPDX-License-Identifier: MIT
#include "Tracks/NoiseFloorSearch.h"

#include "AudioToolbox/ExtAudioFile.h"
#include "CoreAudioTypes/AudioBuffers.h"
#include "FileRelated/QMXAudioFile.h"
#include "Foundation/HeapBlock.h"
#include "Tracks/BandLevels.h"
#include "Tracks/DefinerProgress.h"
#include "Tracks/DefinerRun.h"
#include "Tracks/PauseJudgement.h"

#include <algorithm>
#include <new>
#include <utility>

namespace qmx
{
namespace
{

/// Any file that the library reads, as interleaved floats of its own rate and channels.
class FloatReader
{
public:
    explicit FloatReader(QMXAudioFile& file) : file_(file)
    {
        if (const OSStatus status = file.isOpen() ? prepare() : fnOpnErr; status != noErr) {
            definerRun::fail(status, file, definerRun::cannotBeDivided);
            frames_ = 0;
        }
    }
    ~FloatReader()
    {
        if (reader_)
            (void)ExtAudioFileDispose(reader_); // nothing was written
    }
    FloatReader(const FloatReader&) = delete;
    FloatReader& operator=(const FloatReader&) = delete;

    UInt64 frames() const { return frames_; }
    Float64 sampleRate() const { return format_.mSampleRate; }
    UInt32 channels() const { return format_.mChannelsPerFrame; }
    UInt32 framesAtOnce() const { return framesAtOnce_; }

    /// The next samples; none at the end, and after a failure.
    std::span<const float> next()
    {
        UInt32 count = framesAtOnce_;
        AudioBufferList list{1, {{channels(), count * format_.mBytesPerFrame, samples_.get()}}};
        const OSStatus status = ExtAudioFileRead(reader_, &count, &list);
        read_ += count;
        if (status != noErr || (count == 0 && read_ < frames_))
            definerRun::fail(status != noErr ? status : OSStatus{ioErr}, file_, "cannot be read to its end");
        return {samples_.get(), std::size_t{count} * channels()};
    }

private:
    OSStatus prepare()
    {
        if (const OSStatus status = ExtAudioFileWrapAudioFileID(file_.audioFileID(), false, &reader_); status != noErr)
            return status;
        UInt32 size = sizeof format_;
        OSStatus status = ExtAudioFileGetProperty(reader_, kExtAudioFileProperty_FileDataFormat, &size, &format_);
        if (status != noErr)
            return status;
        if (format_.mChannelsPerFrame == 0 || !(format_.mSampleRate > 0))
            return kAudioFileUnsupportedDataFormatError;
        const bool isCoded = format_.mBytesPerPacket == 0;
        format_.mFormatID = kAudioFormatLinearPCM;
        format_.mFormatFlags = kAudioFormatFlagsNativeFloatPacked;
        format_.mBitsPerChannel = 8 * sizeof(float);
        format_.mBytesPerFrame = format_.mBytesPerPacket = format_.mChannelsPerFrame * UInt32{sizeof(float)};
        format_.mFramesPerPacket = 1;
        status = ExtAudioFileSetProperty(reader_, kExtAudioFileProperty_ClientDataFormat, sizeof format_, &format_);
        if (status != noErr)
            return status;
        SInt64 frames = 0;
        size = sizeof frames;
        status = ExtAudioFileGetProperty(reader_, kExtAudioFileProperty_FileLengthFrames, &size, &frames);
        if (status != noErr)
            return status;
        // of a coded file some packets at once: two threads may decode them
        const UInt32 bytesAtOnce = isCoded ? 512 * 1024 : 128 * 1024;
        framesAtOnce_ = std::max(bytesAtOnce / format_.mBytesPerFrame, UInt32{1});
        samples_ = zeroedHeapArray<float>(std::size_t{framesAtOnce_} * channels());
        if (!samples_)
            return memFullErr;
        frames_ = static_cast<UInt64>(std::max<SInt64>(frames, 0));
        return noErr;
    }

    QMXAudioFile& file_;
    ExtAudioFileRef reader_ = nullptr;
    AudioStreamBasicDescription format_{};
    UInt32 framesAtOnce_ = 1;
    HeapArray<float> samples_;
    UInt64 frames_ = 0;
    UInt64 read_ = 0;
};

BandLevels levelsOf(FloatReader& reader)
{
    BandLevels levels(reader.sampleRate(), reader.channels(), reader.frames());
    // all of the work is reading, which the progress takes for half of it
    definerProgress::setBlockCount(static_cast<UInt32>(reader.frames() / reader.framesAtOnce() / 2 + 1));
    for (auto samples = reader.next(); !samples.empty() && !definerRun::isCancelled(); samples = reader.next()) {
        levels.add(samples);
        definerProgress::show(samples, reader.channels());
        definerProgress::advance();
    }
    levels.finish();
    return levels;
}

UInt64 cutIn(UInt64 begin, UInt64 end, std::optional<double> framesToStart)
{
    const UInt64 half = (end - begin) / 2;
    return end - (framesToStart ? static_cast<UInt64>(std::min(*framesToStart, static_cast<double>(half))) : half);
}

void search(FloatReader& reader, const NoiseFloorWish& wish, QMXAudioPauses& findings)
{
    BandLevels levels = levelsOf(reader);
    if (definerRun::isCancelled())
        return;
    const UInt64 step = levels.framesPerStep();
    const double seconds = static_cast<double>(step) / reader.sampleRate();
    const LevelAnalysis analysis = analyseLevels(std::move(levels).steps(), seconds);
    const auto strengths = pauseStrengths(analysis, seconds);
    const auto divides = dividingStretches(analysis.stretches, strengths, seconds, wish.cuts);
    std::optional<double> framesToStart;
    if (wish.secondsToStart)
        framesToStart = std::max(0.0, *wish.secondsToStart) * reader.sampleRate();
    for (std::size_t i = 0; i < analysis.stretches.size(); ++i) {
        const UInt64 begin = analysis.stretches[i].begin * step;
        const UInt64 end = analysis.stretches[i].end * step;
        findings.pauses.push_back({begin, end, cutIn(begin, end, framesToStart), strengths[i], divides[i]});
    }
    for (const auto& [level, floor] : analysis.curve)
        findings.levels.push_back({level, floor});
    findings.framesPerLevel = analysis.stepsPerPoint * step;
}

} // namespace

NoiseFloorFindings searchByNoiseFloor(QMXAudioFile& file, const NoiseFloorWish& wish)
{
    NoiseFloorFindings findings;
    FloatReader reader(file);
    findings.frames = reader.frames();
    if (reader.frames() > 0)
        search(reader, wish, findings.pauses);
    definerProgress::finish();
    return findings;
}

} // namespace qmx
