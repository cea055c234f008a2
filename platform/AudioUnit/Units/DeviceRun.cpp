// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/DeviceRun.h"

#include "CoreAudioTypes/AudioBuffers.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>
#include <utility>

namespace qmx
{
namespace
{

AudioTimeStamp later(AudioTimeStamp time, UInt32 frames, Float64 sampleRate)
{
    time.mSampleTime += frames;
    time.mHostTime += static_cast<UInt64>(std::llround(frames * 1e9 / sampleRate));
    return time;
}

UInt32 framesOf(const AudioBufferList& streams)
{
    const UInt32 channels = streams.mNumberBuffers == 0 ? 0 : streams.mBuffers[0].mNumberChannels;
    return channels > 0 ? streams.mBuffers[0].mDataByteSize / (channels * static_cast<UInt32>(sizeof(Float32))) : 0;
}

/// Calls `copy` for one stream after the other with the place of each frame in the stream and in interleaved frames of
/// `all` channels, and with the number of channels that both have there.
template <class Copy>
void forEachFrame(std::span<const AudioBuffer> streams, UInt32 first, UInt32 frames, UInt32 all, Copy copy)
{
    UInt32 begin = 0; // the first channel of a stream
    for (const AudioBuffer& stream : streams) {
        const UInt32 channels = std::min(stream.mNumberChannels, all - begin);
        auto* inStream = static_cast<Float32*>(stream.mData) + std::size_t{first} * stream.mNumberChannels;
        for (std::size_t at = begin; at < std::size_t{frames} * all; at += all, inStream += stream.mNumberChannels)
            copy(inStream, at, channels);
        begin += channels;
    }
}

} // namespace

DeviceRun::DeviceRun(const UsedDevice& device, std::shared_ptr<CycleClient> client, UInt32 maximumFrames,
                     const RunEnds& earlier)
    : device_(device), maximumFrames_(maximumFrames), client_(std::move(client)), earlier_(earlier)
{
    if (device.inputChannels > 0)
        captured_.emplace(*PcmLayout::of(device.inputFormat()), maximumFrames);
    if (device.outputChannels > 0)
        rendered_.emplace(*PcmLayout::of(device.outputFormat()), maximumFrames);
}

DeviceRun::~DeviceRun()
{
    (void)AudioDeviceRemoveIOProc(device_.id, cycle, this); // fails if it was never added
}

OSStatus DeviceRun::enroll()
{
    return AudioDeviceAddIOProc(device_.id, cycle, this);
}

OSStatus DeviceRun::start(AudioDeviceID device, DeviceRun* run)
{
    return AudioDeviceStart(device, cycle, run);
}

void DeviceRun::end(const Publication& stops) noexcept
{
    stop_.emplace(stops);
    hasEnded_.store(true);
}

OSStatus DeviceRun::cycle(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList* input,
                          const AudioTimeStamp* inputTime, AudioBufferList* output, const AudioTimeStamp* outputTime,
                          void* self)
{
    auto& run = *static_cast<DeviceRun*>(self);
    const UInt32 captured = run.captured_ ? framesOf(*input) : 0;
    const UInt32 rendered = run.rendered_ ? framesOf(*output) : 0;
    for (UInt32 first = 0; first < std::max(captured, rendered); first += run.maximumFrames_) {
        if (first < captured && !run.hasEnded_.load())
            run.capture(*input, *inputTime, first, std::min(captured - first, run.maximumFrames_));
        if (first < rendered && !run.hasEnded_.load())
            run.render(*output, *outputTime, first, std::min(rendered - first, run.maximumFrames_));
    }
    return noErr;
}

/// Frames between the one at `expected`, or in a run's first cycle the earlier run's end, and the one at `time`. A
/// clock that goes back loses nothing.
UInt32 DeviceRun::framesLostBefore(const AudioTimeStamp& time, std::optional<Float64> expected, UInt64 earlierEnd) const
{
    Float64 lost = 0;
    if (expected)
        lost = time.mSampleTime - *expected;
    else if (earlierEnd > 0)
        lost = static_cast<Float64>(static_cast<SInt64>(time.mHostTime - earlierEnd)) * 1e-9 * device_.sampleRate;
    return static_cast<UInt32>(std::clamp<Float64>(std::round(lost), 0, std::numeric_limits<UInt32>::max()));
}

void DeviceRun::capture(const AudioBufferList& input, const AudioTimeStamp& time, UInt32 first, UInt32 frames)
{
    auto* const interleaved = reinterpret_cast<Float32*>(captured_->plane(0));
    const AudioBuffer* const streams = input.mBuffers;
    forEachFrame({streams, input.mNumberBuffers}, first, frames, device_.inputChannels,
                 [=](const Float32* source, std::size_t at, UInt32 channels) {
                     std::copy_n(source, channels, interleaved + at);
                 });
    const AudioTimeStamp pieceTime = later(time, first, device_.sampleRate);
    const UInt64 endHostTime = later(pieceTime, frames, device_.sampleRate).mHostTime;
    const UInt32 lost = framesLostBefore(pieceTime, nextInputTime_, earlier_.captured);
    client_->captureCycle(
        {pieceTime, !nextInputTime_, lost, frames, endHostTime, captured_->layout(), captured_->plane(0)});
    nextInputTime_ = pieceTime.mSampleTime + frames;
}

/// Deals the channels of rendered frames out to the streams.
void DeviceRun::render(AudioBufferList& output, const AudioTimeStamp& time, UInt32 first, UInt32 frames)
{
    AudioBufferList& slice = rendered_->silentList(frames);
    const AudioTimeStamp pieceTime = later(time, first, device_.sampleRate);
    const UInt64 endHostTime = later(pieceTime, frames, device_.sampleRate).mHostTime;
    const UInt32 lost = framesLostBefore(pieceTime, nextOutputTime_, earlier_.rendered);
    client_->renderCycle({pieceTime, lost, frames, endHostTime, rendered_->layout(), slice});
    nextOutputTime_ = pieceTime.mSampleTime + frames;
    const auto* const interleaved = static_cast<const Float32*>(slice.mBuffers[0].mData);
    forEachFrame(
        buffersOf(output), first, frames, device_.outputChannels,
        [=](Float32* target, std::size_t at, UInt32 channels) { std::copy_n(interleaved + at, channels, target); });
}

} // namespace qmx
