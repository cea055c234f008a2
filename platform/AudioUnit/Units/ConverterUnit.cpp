// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/ConverterUnit.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace qmx
{
namespace
{

bool isChannelMap(const UnitPropertyAddress& address)
{
    return address.id == kAudioOutputUnitProperty_ChannelMap && address.scope == kAudioUnitScope_Output &&
           address.element == 0;
}

bool areInputs(const std::vector<SInt32>& map, UInt32 inputs)
{
    return std::ranges::all_of(
        map, [inputs](SInt32 input) { return input >= ChannelRoutes::silence && input < static_cast<SInt32>(inputs); });
}

} // namespace

ConverterUnit::ConverterUnit() : Unit({.inputs = 1, .outputs = 1}) {}

OSStatus ConverterUnit::makeEngine(UInt32, std::unique_ptr<RenderEngine>& engine)
{
    ConverterEngine::Conversion conversion = ConverterEngine::between(input(0).format, outputFormat(0));
    conversion.quality = quality_;
    conversion.routes = routes();
    return ConverterEngine::make(input(0), 0, conversion, maximumFrames(), engine);
}

/// The channel map, if it fits the numbers of channels; otherwise the default routes.
ChannelRoutes ConverterUnit::routes() const
{
    const UInt32 inputs = input(0).format.mChannelsPerFrame, outputs = outputFormat(0).mChannelsPerFrame;
    if (channelMap_.size() == outputs && areInputs(channelMap_, inputs))
        return {.inputs = inputs, .inputOf = channelMap_, .isMean = false, .weights = {}};
    return ChannelRoutes::between(inputs, outputs);
}

OSStatus ConverterUnit::shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const
{
    if (address.id == kAudioUnitProperty_RenderQuality)
        return ofUnit(address, {.size = sizeof(UInt32), .isWritable = true}, shape);
    if (address.id == kAudioUnitProperty_SupportedNumChannels)
        return ofUnit(address, {.size = sizeof(AUChannelInfo)}, shape);
    if (!isChannelMap(address))
        return Unit::shapeOf(address, shape);
    shape = {.size = static_cast<UInt32>(outputFormat(0).mChannelsPerFrame * sizeof(SInt32)), .isWritable = true};
    return noErr;
}

OSStatus ConverterUnit::read(const UnitPropertyAddress& address, void* value) const
{
    if (address.id == kAudioUnitProperty_RenderQuality) {
        std::memcpy(value, &quality_, sizeof quality_);
        return noErr;
    }
    if (address.id == kAudioUnitProperty_SupportedNumChannels) {
        constexpr AUChannelInfo any{-1, -2};
        std::memcpy(value, &any, sizeof any);
        return noErr;
    }
    if (!isChannelMap(address))
        return Unit::read(address, value);
    const ChannelRoutes current = routes();
    if (current.isMean) // a mix of channels cannot be written as a map
        return kAudioUnitErr_PropertyNotInUse;
    std::memcpy(value, current.inputOf.data(), current.inputOf.size() * sizeof(SInt32));
    return noErr;
}

OSStatus ConverterUnit::write(const UnitPropertyAddress& address, const void* value)
{
    if (address.id == kAudioUnitProperty_RenderQuality) {
        UInt32 quality = 0;
        std::memcpy(&quality, value, sizeof quality);
        return setQuality(quality);
    }
    return isChannelMap(address) ? setChannelMap(value) : Unit::write(address, value);
}

OSStatus ConverterUnit::setQuality(UInt32 quality)
{
    if (quality > kRenderQuality_Max)
        return kAudioUnitErr_InvalidPropertyValue;
    const UInt32 old = std::exchange(quality_, quality);
    const OSStatus status = remakeEngines();
    if (status != noErr)
        quality_ = old;
    else
        noteChange({kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, 0});
    return status;
}

OSStatus ConverterUnit::setChannelMap(const void* value)
{
    std::vector<SInt32> map(outputFormat(0).mChannelsPerFrame);
    std::memcpy(map.data(), value, map.size() * sizeof(SInt32));
    if (!areInputs(map, input(0).format.mChannelsPerFrame))
        return kAudioUnitErr_InvalidPropertyValue;
    auto old = std::exchange(channelMap_, std::move(map));
    const OSStatus status = remakeEngines();
    if (status != noErr)
        channelMap_ = std::move(old);
    else
        noteChange({kAudioOutputUnitProperty_ChannelMap, kAudioUnitScope_Output, 0});
    return status;
}

} // namespace qmx
