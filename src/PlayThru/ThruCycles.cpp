// SPDX-License-Identifier: MIT
#include "PlayThru/ThruCycles.h"

#include "CoreAudioTypes/AudioBuffers.h"

#include <algorithm>

namespace qmx
{

OSStatus ThruCycles::prepare(UInt32 channels, UInt32 frames, UInt32 bytesPerFrame, unsigned long needed)
{
    captured_.reset(QMXAudioBufferList::allocateBuffers_channelsPerBuffer_dataByteSize(
        channels, 1, static_cast<UInt32>(frames * sizeof(Float32))));
    ringFrames_.store(std::max(slicesInRing * frames, needed));
    ring_.Allocate(static_cast<int>(channels), bytesPerFrame, ringFrames_.load());
    const bool hasMemory = captured_ && ring_.Fetch(captured_.get(), 0, 0) == kRingOK;
    captureFrames_.store(hasMemory ? frames : 0);
    return hasMemory ? noErr : kAudio_MemFullError;
}

void ThruCycles::restart(Float64 distance)
{
    distance_.store(distance);
    measureAgain();
}

void ThruCycles::measureAgain()
{
    drift_.restart();
    restarts_.fetch_add(1);
}

void ThruCycles::setDriftCorrection(bool isOn)
{
    drift_.restart();
    correctsDrift_.store(isOn);
}

OSStatus ThruCycles::capture(AudioUnit unit, AudioUnitRenderActionFlags* flags, const AudioTimeStamp& time, UInt32 bus,
                             UInt32 frames)
{
    if (frames > captureFrames_.load(std::memory_order_relaxed))
        return kAudioUnitErr_TooManyFramesToProcess;
    const UInt32 restart = restarts_.load();
    if (inputRestart_.load(std::memory_order_relaxed) != restart) {
        inputStart_.store(time.mSampleTime);
        inputRestart_.store(restart);
    }
    for (AudioBuffer& buffer : buffersOf(*captured_))
        buffer.mDataByteSize = static_cast<UInt32>(frames * sizeof(Float32));
    const OSStatus status = AudioUnitRender(unit, flags, &time, bus, frames, captured_.get());
    if (status != noErr)
        QMXAudioBufferList::clear(captured_.get()); // what is in it was captured before
    // what the ring returns changes nothing: the output finds out
    (void)ring_.Store(captured_.get(), frames, static_cast<long long>(time.mSampleTime));
    if (time.mFlags & kAudioTimeStampHostTimeValid)
        drift_.addInput(time.mSampleTime, time.mHostTime);
    return status;
}

OSStatus ThruCycles::play(const AudioTimeStamp& time, UInt32 frames, AudioBufferList& data)
{
    constexpr OSStatus nothingYet = -1;
    const UInt32 restart = restarts_.load();
    if (inputRestart_.load() != restart)
        return nothingYet;
    const Float64 inputStart = inputStart_.load();
    if (offsetRestart_ != restart) {
        offset_ = distance_.load() - (inputStart - time.mSampleTime);
        offsetRestart_ = restart;
        refusedFrames_ = 0;
        return nothingYet;
    }
    const Float64 start = time.mSampleTime - offset_;
    if (start < inputStart) {
        QMXAudioBufferList::clear(&data); // it comes later; older sound may still be held, which is not meant
    } else if (ring_.Fetch(&data, frames, static_cast<long long>(start)) == kRingOK) {
        refusedFrames_ -= std::min<UInt64>(refusedFrames_, frames / 8);
    } else {
        QMXAudioBufferList::clear(&data); // a part may have been copied before it was overwritten
        noteRefusal(frames);
    }
    const bool isCorrected = correctsDrift_.load() && (time.mFlags & kAudioTimeStampHostTimeValid);
    factor_ = isCorrected ? drift_.factorAt(time.mSampleTime, time.mHostTime) : 1;
    return noErr;
}

/// What is refused for twice the distance, more often than now and then, does not come back: a clock jumped. Where
/// drift is corrected, so is this.
void ThruCycles::noteRefusal(UInt32 frames)
{
    refusedFetches_.fetch_add(1, std::memory_order_relaxed);
    refusedFrames_ += frames;
    if (correctsDrift_.load() && static_cast<Float64>(refusedFrames_) > 2 * distance_.load())
        measureAgain();
}

} // namespace qmx
