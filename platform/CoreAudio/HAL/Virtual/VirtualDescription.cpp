// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/Virtual/VirtualDescription.h"

#include "CoreAudio/HAL/DeviceView.h"

#include <algorithm>

namespace qmx
{
namespace
{

// Performs a request, with one function for each type.
struct Performer {
    DeviceDescription& device;

    void setRate(Float64 rate) const
    {
        const Float64 drift = device.actualSampleRate / device.nominalSampleRate;
        device.nominalSampleRate = rate;
        device.actualSampleRate = rate * drift;
    }
    void operator()(const SetSampleRate& request) const { setRate(request.rate); }
    void operator()(const SetBufferFrameSize& request) const { device.bufferFrameSize = request.frames; }
    void operator()(const SetVolume& request) const
    {
        device.section(request.isInput).volumes[request.channel].scalar = request.scalar;
    }
    void operator()(const SetMute& request) const
    {
        device.section(request.isInput).mutes[request.channel].isMuted = request.isMuted;
    }
    void operator()(const SetDataSource& request) const { device.section(request.isInput).dataSource = request.id; }
    void operator()(const SetPhysicalFormat& request) const
    {
        auto& streams = device.section(request.isInput).streams;
        if (request.stream >= streams.size())
            return;
        streams[request.stream].physicalFormat = request.format;
        setRate(request.format.mSampleRate);
    }
    void operator()(const SetRawProperty& request) const
    {
        device.rawProperties[request.address].value = request.value;
    }
};

void standardise(DeviceDescription& device, SectionDescription& section)
{
    for (StreamDescription& stream : section.streams) {
        if (stream.physicalFormats.empty())
            stream.physicalFormats.push_back(packedPhysicalFormat(0, stream.channels, 32, true));
        if (stream.physicalFormat.mFormatID == 0)
            stream.physicalFormat = stream.physicalFormats.front();
        stream.physicalFormat.mSampleRate = device.nominalSampleRate;
    }
    if (!section.dataSources.empty() &&
        std::ranges::find(section.dataSources, section.dataSource, &DataSource::id) == section.dataSources.end())
        section.dataSource = section.dataSources.front().id;
}

} // namespace

void standardise(DeviceDescription& device)
{
    constexpr Float64 lowest = 1, highest = 10e6;
    const Float64 drift = device.actualSampleRate / device.nominalSampleRate;
    if (!(device.nominalSampleRate >= lowest && device.nominalSampleRate <= highest))
        device.nominalSampleRate = 44100;
    if (device.availableSampleRates.empty())
        device.availableSampleRates.push_back({device.nominalSampleRate, device.nominalSampleRate});
    if (!hasSampleRate(device, device.nominalSampleRate))
        device.nominalSampleRate = device.availableSampleRates.front().mMinimum;
    device.actualSampleRate = device.nominalSampleRate * (drift > 0.5 && drift < 2 ? drift : 1);
    device.minimumBufferFrameSize = std::clamp(device.minimumBufferFrameSize, 1U, 65536U);
    device.maximumBufferFrameSize = std::clamp(device.maximumBufferFrameSize, device.minimumBufferFrameSize, 65536U);
    device.bufferFrameSize =
        std::clamp(device.bufferFrameSize, device.minimumBufferFrameSize, device.maximumBufferFrameSize);
    standardise(device, device.input);
    standardise(device, device.output);
}

void apply(DeviceDescription& description, const DeviceRequest& request)
{
    std::visit(Performer{description}, request);
}

std::vector<Float32> channelGains(const SectionDescription& section)
{
    const auto gainOf = [&section](UInt32 channel) {
        const auto mute = section.mutes.find(channel);
        if (mute != section.mutes.end() && mute->second.isMuted)
            return 0.0F;
        const auto volume = section.volumes.find(channel);
        return volume == section.volumes.end() ? 1.0F : volume->second.scalar;
    };
    std::vector<Float32> gains(numberOfChannels(section));
    for (UInt32 channel = 0; channel < gains.size(); ++channel)
        gains[channel] = gainOf(0) * gainOf(channel + 1);
    return gains;
}

} // namespace qmx
