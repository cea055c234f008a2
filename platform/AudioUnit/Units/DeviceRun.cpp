// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/DeviceRun.h"

#include <algorithm>
#include <cmath>
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

UInt32 framesOf(AudioBufferList& streams)
{
    const auto buffers = buffersOf(streams);
    const UInt32 channels = buffers.empty() ? 0 : buffers[0].mNumberChannels;
    return channels > 0 ? buffers[0].mDataByteSize / (channels * static_cast<UInt32>(sizeof(Float32))) : 0;
}

/// Copies the channels of interleaved frames to the streams, one stream after the other, from their frame `first` on.
void deliver(const AudioBuffer& slice, UInt32 frames, AudioBufferList& streams, UInt32 first)
{
    UInt32 begin = 0; // the first channel of a stream
    for (const AudioBuffer& stream : buffersOf(streams)) {
        const UInt32 channels = std::min(stream.mNumberChannels, slice.mNumberChannels - begin);
        const auto* source = static_cast<const Float32*>(slice.mData) + begin;
        auto* target = static_cast<Float32*>(stream.mData) + std::size_t{first} * stream.mNumberChannels;
        for (UInt32 frame = 0; frame < frames; ++frame) {
            std::copy_n(source, channels, target);
            source += slice.mNumberChannels;
            target += stream.mNumberChannels;
        }
        begin += channels;
    }
}

} // namespace

DeviceRun::DeviceRun(const OutputDevice& device, std::shared_ptr<OutputClient> client, UInt32 maximumFrames)
    : device_(device), client_(std::move(client)), slice_(*PcmLayout::of(device.format()), maximumFrames)
{
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

OSStatus DeviceRun::cycle(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
                          AudioBufferList* output, const AudioTimeStamp* outputTime, void* self)
{
    static_cast<DeviceRun*>(self)->render(*output, *outputTime);
    return noErr;
}

void DeviceRun::render(AudioBufferList& output, const AudioTimeStamp& time)
{
    const UInt32 all = framesOf(output);
    for (UInt32 first = 0; first < all && !hasEnded_.load(); first += slice_.room()) {
        const UInt32 frames = std::min(all - first, slice_.room());
        AudioBufferList& slice = slice_.silentList(frames);
        client_->renderCycle(later(time, first, device_.sampleRate), frames, slice_.layout(), slice);
        deliver(slice.mBuffers[0], frames, output, first);
    }
}

} // namespace qmx
