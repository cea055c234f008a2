// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/ReadingFile.h"

#include "AudioToolbox/Extended/PlaneList.h"
#include "AudioToolbox/Extended/Silence.h"
#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace qmx
{
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
    moveTo(tell()); // the data that were read are gone
}

OSStatus ReadingFile::connect(const AudioStreamBasicDescription& client, AudioConverterRef& converter)
{
    return AudioConverterNew(&supply_->format(), &client, &converter);
}

void ReadingFile::connected()
{
    runIn_ = runInBetween(supply_->format().mSampleRate, clientFormat().mSampleRate);
    moveTo(tell());
}

/// Nothing is read ahead any more; what was read and not taken is read again.
OSStatus ReadingFile::rest()
{
    if (auto ahead = std::exchange(ahead_, nullptr)) {
        ahead->finish();
        moveTo(tell());
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
    moveTo(tell()); // settings take effect when a stream begins
    return noErr;
}

OSStatus ReadingFile::primeReads()
{
    if (!currentConverter())
        return kExtAudioFileError_InvalidOperationOrder;
    if (!ahead_)
        ahead_ = ReadAhead::make(clientSamples(), clientFormat().mSampleRate,
                                 [this](AudioBufferList& data, UInt32& frames) { return fill(frames, data); });
    ahead_->restart([this] { moveTo(tell()); });
    return noErr;
}

OSStatus ReadingFile::read(UInt32& frames, AudioBufferList& data)
{
    const UInt32 wanted = std::min(std::exchange(frames, 0), wholeFrames(data, clientSamples()));
    setFrames(data, clientSamples(), 0);
    if (!currentConverter() || (isRealTime() && !ahead_))
        return kExtAudioFileError_InvalidOperationOrder;
    if (wanted == 0)
        return noErr;
    OSStatus status = noErr;
    if (ahead_) {
        const ReadAhead::Turn turn(*ahead_);
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

void ReadingFile::moveTo(SInt64 frame)
{
    base_ = frame;
    passedFrames_ = 0;
    mustBegin_ = true;
    position_.store(frame, std::memory_order_relaxed);
}

void ReadingFile::passed(UInt32 clientFrames, bool isAtEnd)
{
    passedFrames_ += clientFrames;
    const Float64 ratio = supply_->format().mSampleRate / clientFormat().mSampleRate;
    const auto moved = static_cast<SInt64>(static_cast<Float64>(passedFrames_) * ratio);
    position_.store(isAtEnd ? end_.load(std::memory_order_relaxed) : base_ + moved, std::memory_order_relaxed);
}

/// Reads into all of `data`, or to the end. One thread at a time.
OSStatus ReadingFile::fill(UInt32& frames, AudioBufferList& data)
{
    if (std::exchange(mustBegin_, false))
        if (const OSStatus status = withinMemory(memFullErr, [this] { return begin(); }); status != noErr) {
            frames = 0;
            mustBegin_ = true;
            return status;
        }
    return convert(frames, data);
}

OSStatus ReadingFile::convert(UInt32& frames, AudioBufferList& data)
{
    return AudioConverterFillComplexBuffer(currentConverter(), &giveFrames, this, &frames, &data, nullptr);
}

/// Starts the converter at the stream's base.
OSStatus ReadingFile::begin()
{
    SInt64 end = base_;
    if (const OSStatus status = length(end); status != noErr)
        return status;
    end_.store(end, std::memory_order_relaxed);
    AudioConverterReset(currentConverter());
    if (base_ == 0 || runIn_.fileFrames == 0) {
        silentFrames_ = 0;
        supply_->seek(base_);
        return noErr;
    }
    const SInt64 first = base_ - runIn_.fileFrames;
    silentFrames_ = std::max<SInt64>(0, -first);
    supply_->seek(std::max<SInt64>(0, first));
    if (silentFrames_ > 0 && silence_.empty())
        silence_ = silenceIn(supply_->format());
    return runIn();
}

/// Converts up to the base and drops what comes of it.
OSStatus ReadingFile::runIn()
{
    constexpr UInt32 framesAtOnce = 4096;
    std::vector<std::byte> block(framesAtOnce * clientSamples().frameBytes());
    PlaneList list(clientSamples());
    for (UInt32 left = runIn_.clientFrames; left > 0;) {
        UInt32 frames = std::min(left, framesAtOnce);
        AudioBufferList& data = list.aimAt(block.data(), framesAtOnce * clientSamples().planeFrameBytes(), 0, frames);
        const OSStatus status = convert(frames, data);
        if (status != noErr)
            return status;
        if (frames == 0)
            break;
        left -= frames;
    }
    return noErr;
}

ReadingFile::RunIn ReadingFile::runInBetween(Float64 fileRate, Float64 clientRate)
{
    if (fileRate == clientRate)
        return {};
    // the filter of the best quality reaches over some thousand frames of the lower rate
    constexpr Float64 reach = 4096, searched = 4096;
    const Float64 ratio = clientRate / fileRate;
    const Float64 least = std::ceil(reach * std::max(1.0, fileRate / clientRate));
    RunIn best;
    Float64 bestError = 1;
    for (Float64 frames = least; frames < least + searched && bestError > 0; ++frames) {
        const Float64 clientFrames = frames * clientRate / fileRate;
        const Float64 error = std::abs(clientFrames - std::round(clientFrames));
        if (error < bestError) {
            bestError = error;
            best = {static_cast<UInt32>(frames), static_cast<UInt32>(std::lround(frames * ratio))};
        }
    }
    return best;
}

OSStatus ReadingFile::giveFrames(AudioConverterRef, UInt32* packetCount, AudioBufferList* data,
                                 AudioStreamPacketDescription**, void* self)
{
    return static_cast<ReadingFile*>(self)->giveFrames(*packetCount, data->mBuffers[0]);
}

OSStatus ReadingFile::giveFrames(UInt32& count, AudioBuffer& buffer)
{
    if (silentFrames_ > 0) {
        count = static_cast<UInt32>(std::min<SInt64>(silentFrames_, silenceFrames));
        silentFrames_ -= count;
        buffer.mData = silence_.data();
        buffer.mDataByteSize = count * supply_->format().mBytesPerFrame;
        return noErr;
    }
    const void* frames = nullptr;
    const OSStatus status = supply_->next(frames, count);
    buffer.mData = const_cast<void*>(frames); // the converter only reads it
    buffer.mDataByteSize = count * supply_->format().mBytesPerFrame;
    return status;
}

} // namespace qmx
