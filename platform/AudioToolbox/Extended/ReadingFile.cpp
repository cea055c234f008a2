// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/ReadingFile.h"

#include "AudioToolbox/Extended/FileValues.h"
#include "AudioToolbox/Extended/FilterPeriod.h"
#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace qmx
{
namespace
{

/// The best filter reaches over some thousand frames of the lower rate.
constexpr Float64 reach = 4096;

/// Frames of the file, which the filter passes in some hundredths of a second. A seek to before the first of them reads
/// from the start. If the blocks of the filter never align again, a new run starts every `runLength` frames.
constexpr SInt64 runLength = SInt64{1} << 17;

/// Frames of both rates that are no farther apart than this coincide.
constexpr Float64 rounding = 1e-6;

} // namespace

OSStatus ReadingFile::open(AudioFileID file, std::unique_ptr<ExtendedFile>& opened)
{
    std::unique_ptr<FrameSupply> supply;
    if (const OSStatus status = FrameSupply::make(file, supply); status != noErr)
        return status;
    std::unique_ptr<ReadingFile> reading(new ReadingFile(file, std::move(supply)));
    reading->startWithFileFormat();
    opened = std::move(reading);
    return noErr;
}

ReadingFile::ReadingFile(AudioFileID file, std::unique_ptr<FrameSupply> supply)
    : ExtendedFile(file), supply_(std::move(supply))
{
    setBufferSize(usualBufferSize);
}

ReadingFile::~ReadingFile()
{
    rest();
}

void ReadingFile::bufferChanged()
{
    supply_->setBuffer(buffer());
    startAgain(); // the data that were read are gone
}

OSStatus ReadingFile::connect(const AudioStreamBasicDescription& client, AudioConverterRef& converter)
{
    return AudioConverterNew(&supply_->format(), &client, &converter);
}

void ReadingFile::connected()
{
    periodQuality_.reset();
    part_.emplace(clientSamples());
    moveTo(tell());
}

/// Stops reading ahead; what was read and not taken is read again.
OSStatus ReadingFile::rest()
{
    if (auto ahead = std::exchange(ahead_, nullptr)) {
        ahead->finish();
        startAgain();
    }
    return noErr;
}

OSStatus ReadingFile::complete()
{
    return rest();
}

OSStatus ReadingFile::converterChanged()
{
    rest();
    startAgain(); // settings take effect when a stream starts
    return noErr;
}

OSStatus ReadingFile::primeReads()
{
    if (!currentConverter())
        return kExtAudioFileError_InvalidOperationOrder;
    if (!ahead_)
        ahead_ = ReadAhead::make(clientSamples(), clientFormat().mSampleRate,
                                 [this](AudioBufferList& data, UInt32& frames) { return fill(frames, data); });
    if (!ahead_)
        return kAudioFileUnspecifiedError;
    ahead_->restart([this] { startAgain(); });
    return noErr;
}

OSStatus ReadingFile::read(UInt32& frames, AudioBufferList& data)
{
    const UInt32 asked = std::exchange(frames, 0);
    if (!currentConverter() || (isRealTime() && !ahead_))
        return kExtAudioFileError_InvalidOperationOrder;
    const UInt32 wanted = std::min(asked, wholeFrames(data, clientSamples()));
    setFrames(data, clientSamples(), 0);
    if (wanted == 0)
        return noErr;
    OSStatus status = noErr;
    if (ahead_) {
        const ConditionLockTurn turn = ahead_->turn();
        if (!turn) {
            ahead_->countMissed(wanted);
            return noErr;
        }
        frames = wanted;
        status = ahead_->take(data, frames);
        passed(frames, ahead_->isAtEnd());
    } else {
        frames = wanted;
        setFrames(data, clientSamples(), wanted);
        status = fill(frames, data);
        passed(frames, status == noErr && frames < wanted);
    }
    setFrames(data, clientSamples(), frames);
    return status;
}

OSStatus ReadingFile::seek(SInt64 frame)
{
    SInt64 end = 0;
    if (const OSStatus status = length(end); status != noErr)
        return status;
    if (frame < 0 || frame > end)
        return kExtAudioFileError_InvalidSeek;
    if (ahead_)
        ahead_->restart([this, frame] { moveTo(frame); });
    else
        moveTo(frame);
    return noErr;
}

Float64 ReadingFile::ratio() const
{
    return currentConverter() ? clientFormat().mSampleRate / supply_->format().mSampleRate : 1;
}

/// The first client frame at or after a frame of the file.
SInt64 ReadingFile::clientFrameAt(SInt64 fileFrame) const
{
    return static_cast<SInt64>(std::ceil(static_cast<Float64>(fileFrame) * ratio() - rounding));
}

SInt64 ReadingFile::fileFrameAt(SInt64 clientFrame) const
{
    return static_cast<SInt64>(std::floor(static_cast<Float64>(clientFrame) / ratio() + rounding));
}

void ReadingFile::moveTo(SInt64 frame)
{
    nextFrame_ = clientFrameAt(frame);
    position_.store(frame, std::memory_order_relaxed);
    startAgain();
}

/// The converter starts again at the present reading position.
void ReadingFile::startAgain()
{
    streamStart_ = nextFrame_;
    mustBegin_ = true;
}

void ReadingFile::passed(UInt32 clientFrames, bool isAtEnd)
{
    nextFrame_ += clientFrames;
    const SInt64 frame = isAtEnd ? end_.load(std::memory_order_relaxed) : fileFrameAt(nextFrame_);
    position_.store(frame, std::memory_order_relaxed);
}

/// Reads into all of `data`, or to the end. One thread at a time.
OSStatus ReadingFile::fill(UInt32& frames, AudioBufferList& data)
{
    const UInt32 wanted = std::exchange(frames, 0);
    while (frames < wanted) {
        if (const OSStatus status = withinMemory(memFullErr, [this] { return prepare(); }); status != noErr)
            return status;
        const auto length = static_cast<UInt32>(std::min<SInt64>(wanted - frames, run_.end - converted_));
        UInt32 count = length;
        const OSStatus status = convert(count, part_->aimAt(data, frames, length));
        frames += count;
        converted_ += count;
        if (status != noErr || count < length)
            return status;
    }
    return noErr;
}

/// Makes the converter deliver the next frame. What fails here is tried again with the next read.
OSStatus ReadingFile::prepare()
{
    if (!mustBegin_ && converted_ == run_.end)
        changeRuns();
    if (!mustBegin_)
        return noErr;
    const OSStatus status = begin();
    mustBegin_ = status != noErr;
    return status;
}

/// If the blocks of the filter align again, its run goes on; otherwise the next run takes over.
void ReadingFile::changeRuns()
{
    if (period() > 0) {
        run_.end = FilterRun().end;
    } else {
        streamStart_ = converted_;
        mustBegin_ = true;
    }
}

OSStatus ReadingFile::convert(UInt32& frames, AudioBufferList& data)
{
    return AudioConverterFillComplexBuffer(currentConverter(), &giveFrames, this, &frames, &data, nullptr);
}

/// Starts the converter far enough before the stream that its frames come out as in a read from the start.
OSStatus ReadingFile::begin()
{
    SInt64 end = 0;
    if (const OSStatus status = length(end); status != noErr)
        return status;
    end_.store(end, std::memory_order_relaxed);
    run_ = runFor(streamStart_);
    converted_ = streamStart_;
    (void)AudioConverterReset(currentConverter()); // without one, there is nothing to forget
    supply_->seek(run_.start);
    return drop(streamStart_ - clientFrameAt(run_.start));
}

/// The run that `clientFrame` belongs to in a read from the start: the same for a read from any other place.
ReadingFile::FilterRun ReadingFile::runFor(SInt64 clientFrame)
{
    const SInt64 frame = fileFrameAt(clientFrame);
    const Float64 ratioOfRates = ratio();
    if (ratioOfRates == 1)
        return {.start = frame};
    const auto lead = static_cast<SInt64>(std::ceil(reach * std::max(1.0, 1 / ratioOfRates)));
    const SInt64 latest = frame - lead;
    if (latest < runLength)
        return {.start = 0, .end = std::max(clientFrame + 1, clientFrameAt(runLength + lead))};
    if (const auto length = static_cast<SInt64>(period()); length > 0)
        return {.start = latest / length * length};
    const SInt64 run = latest / runLength;
    return {.start = meetingBefore(run * runLength),
            .end = std::max(clientFrame + 1, clientFrameAt((run + 1) * runLength + lead))};
}

/// Input frames after which the blocks of the filter align again, or 0.
UInt64 ReadingFile::period()
{
    UInt32 quality = 0;
    converterValue(currentConverter(), kAudioConverterSampleRateConverterQuality, quality);
    if (periodQuality_ != quality) {
        period_ = filterPeriod(supply_->format().mSampleRate, clientFormat().mSampleRate, quality);
        periodQuality_ = quality;
    }
    return period_;
}

/// A frame of the file shortly before another one, with which a client frame coincides as nearly as the rates allow.
SInt64 ReadingFile::meetingBefore(SInt64 frame) const
{
    SInt64 best = frame;
    Float64 bestError = 1;
    for (SInt64 tried = frame; tried > frame - runLength && bestError > rounding; --tried) {
        const Float64 place = static_cast<Float64>(tried) * ratio(), error = std::abs(place - std::round(place));
        if (error < bestError) {
            best = tried;
            bestError = error;
        }
    }
    return best;
}

/// Converts frames and drops them.
OSStatus ReadingFile::drop(SInt64 clientFrames)
{
    constexpr SInt64 framesAtOnce = 4096;
    std::vector<std::byte> block(clientFrames > 0 ? framesAtOnce * clientSamples().frameBytes() : 0);
    PlaneList list(clientSamples());
    while (clientFrames > 0) {
        auto frames = static_cast<UInt32>(std::min(clientFrames, framesAtOnce));
        AudioBufferList& data = list.aimAt(block.data(), framesAtOnce * clientSamples().planeFrameBytes(), 0, frames);
        const OSStatus status = convert(frames, data);
        if (status != noErr)
            return status;
        if (frames == 0)
            break;
        clientFrames -= frames;
    }
    return noErr;
}

OSStatus ReadingFile::giveFrames(AudioConverterRef, UInt32* packetCount, AudioBufferList* data,
                                 AudioStreamPacketDescription**, void* self)
{
    return static_cast<ReadingFile*>(self)->giveFrames(*packetCount, data->mBuffers[0]);
}

OSStatus ReadingFile::giveFrames(UInt32& count, AudioBuffer& buffer)
{
    const void* frames = nullptr;
    const OSStatus status = supply_->next(frames, count);
    buffer.mData = const_cast<void*>(frames); // the converter only reads it
    buffer.mDataByteSize = count * supply_->format().mBytesPerFrame;
    return status;
}

} // namespace qmx
