// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/Virtual/VirtualRun.h"

#include "Foundation/RealTime.h"

#include <algorithm>
#include <cmath>

namespace qmx
{
namespace
{

AudioTimeStamp stampOf(const VirtualCycle& cycle, Float64 sample)
{
    AudioTimeStamp stamp;
    stamp.mSampleTime = sample;
    stamp.mHostTime = cycle.clock.timeOf(sample);
    stamp.mRateScalar = cycle.nominalRate / cycle.clock.rate;
    stamp.mFlags = kAudioTimeStampSampleHostTimeValid | kAudioTimeStampRateScalarValid;
    return stamp;
}

SInt64 wholeFrame(Float64 sample)
{
    return std::llround(sample);
}

} // namespace

void VirtualCapture::add(const Float32* from, std::size_t count)
{
    const std::size_t begin = used.load(std::memory_order_relaxed);
    count = std::min(count, samples.size() - begin);
    std::copy_n(from, count, samples.begin() + static_cast<std::ptrdiff_t>(begin));
    used.store(begin + count, std::memory_order_release);
}

VirtualRun::Side::Side(const SectionDescription& section) : channels(numberOfChannels(section))
{
    for (const StreamDescription& stream : section.streams)
        blocks.push_back({.channels = stream.channels, .samples = nullptr});
    streams.resize(blocks.size());
}

void VirtualRun::Side::makeRoom(UInt32 frames)
{
    all.resize(std::size_t{frames} * channels);
    for (std::size_t i = 0; i < streams.size(); ++i) {
        streams[i].resize(std::size_t{frames} * blocks[i].channels);
        blocks[i].samples = streams[i].data();
    }
}

void VirtualRun::Side::split(UInt32 frames)
{
    UInt32 first = 0;
    for (const IOBlock& block : blocks) {
        for (UInt32 frame = 0; frame < frames; ++frame)
            std::copy_n(&all[std::size_t{frame} * channels + first], block.channels,
                        block.samples + std::size_t{frame} * block.channels);
        first += block.channels;
    }
}

void VirtualRun::Side::join(UInt32 frames)
{
    UInt32 first = 0;
    for (const IOBlock& block : blocks) {
        for (UInt32 frame = 0; frame < frames; ++frame)
            std::copy_n(block.samples + std::size_t{frame} * block.channels, block.channels,
                        &all[std::size_t{frame} * channels + first]);
        first += block.channels;
    }
}

void VirtualRun::Side::applyGains(const std::vector<Float32>& gains, UInt32 frames)
{
    for (UInt32 channel = 0; channel < std::min<std::size_t>(channels, gains.size()); ++channel)
        if (const Float32 gain = gains[channel]; gain != 1)
            for (UInt32 frame = 0; frame < frames; ++frame)
                all[std::size_t{frame} * channels + channel] *= gain;
}

VirtualRun::VirtualRun(std::shared_ptr<DeviceIO> io, const DeviceDescription& description)
    : io_(std::move(io)), input_(description.input), output_(description.output)
{
    makeRoom(description.bufferFrameSize);
}

void VirtualRun::makeRoom(UInt32 wanted)
{
    if (wanted <= room_)
        return;
    room_ = wanted;
    input_.makeRoom(wanted);
    output_.makeRoom(wanted);
}

void VirtualRun::runCycle(const VirtualCycle& cycle)
{
    const RealTimeScope realTime;
    const CallbackScope callback;
    fillInput(cycle);
    io_->runCycle({.frames = cycle.frames,
                   .sampleRate = cycle.clock.rate,
                   .now = stampOf(cycle, cycle.now),
                   .inputTime = stampOf(cycle, cycle.inputSample),
                   .outputTime = stampOf(cycle, cycle.outputSample),
                   .input = input_.blocks,
                   .output = output_.blocks});
    passOutputOn(cycle);
}

void VirtualRun::fillInput(const VirtualCycle& cycle)
{
    if (input_.channels == 0)
        return;
    std::fill_n(input_.all.begin(), std::size_t{cycle.frames} * input_.channels, 0.0F);
    if (cycle.input)
        (*cycle.input)(input_.all.data(), cycle.frames, input_.channels, wholeFrame(cycle.inputSample));
    else if (cycle.looped)
        readLoop(cycle);
    input_.applyGains(cycle.inputGains, cycle.frames);
    input_.split(cycle.frames);
}

// Fills the input with what the output plays at the same instants.
void VirtualRun::readLoop(const VirtualCycle& cycle)
{
    const Float64 first = cycle.loopedClock.sampleAt(cycle.clock.exactTimeOf(cycle.inputSample));
    const Float64 distance = cycle.loopedClock.rate / cycle.clock.rate;
    const SInt64 firstFrame = wholeFrame(first);
    for (UInt32 frame = 0; frame < cycle.frames; ++frame) {
        const SInt64 source = distance == 1 ? firstFrame + frame : wholeFrame(first + frame * distance);
        for (UInt32 channel = 0; channel < input_.channels; ++channel)
            input_.all[std::size_t{frame} * input_.channels + channel] = cycle.looped->sample(source, channel);
    }
}

void VirtualRun::passOutputOn(const VirtualCycle& cycle)
{
    if (output_.channels == 0)
        return;
    output_.join(cycle.frames);
    output_.applyGains(cycle.outputGains, cycle.frames);
    const SInt64 first = wholeFrame(cycle.outputSample);
    if (cycle.output)
        (*cycle.output)(output_.all.data(), cycle.frames, output_.channels, first);
    if (cycle.capture && cycle.capture->channels == output_.channels)
        cycle.capture->add(output_.all.data(), std::size_t{cycle.frames} * output_.channels);
    if (cycle.played)
        cycle.played->write(first, output_.all.data(), cycle.frames, output_.channels);
}

} // namespace qmx
