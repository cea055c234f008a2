// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/ConverterUnit.h"

#include "AudioUnit/Units/PropertyValue.h"

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

} // namespace

ConverterUnit::ConverterUnit() : Unit({.inputs = 1, .outputs = 1}) {}

OSStatus ConverterUnit::makeEngine(UInt32, std::unique_ptr<RenderEngine>& engine)
{
    ConverterEngine::Conversion conversion = ConverterEngine::between(input(0).format, outputFormat(0));
    conversion.quality = quality_;
    conversion.routes = channelMap_.routes(input(0).format.mChannelsPerFrame, outputFormat(0).mChannelsPerFrame);
    return ConverterEngine::make(input(0), 0, conversion, maximumFrames(), engine);
}

OSStatus ConverterUnit::shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const
{
    if (address.id == kAudioUnitProperty_RenderQuality)
        return ofUnit(address, {.size = sizeof(UInt32), .isWritable = true}, shape);
    if (address.id == kAudioUnitProperty_SupportedNumChannels)
        return ofUnit(address, {.size = sizeof(AUChannelInfo)}, shape);
    if (!isChannelMap(address))
        return Unit::shapeOf(address, shape);
    shape = {.size = ChannelMap::size(outputFormat(0).mChannelsPerFrame), .isWritable = true};
    return noErr;
}

OSStatus ConverterUnit::read(const UnitPropertyAddress& address, void* value) const
{
    if (address.id == kAudioUnitProperty_RenderQuality)
        return answer(value, quality_);
    if (address.id == kAudioUnitProperty_SupportedNumChannels)
        return answer(value, AUChannelInfo{-1, -2}); // any
    return isChannelMap(address)
               ? channelMap_.read(input(0).format.mChannelsPerFrame, outputFormat(0).mChannelsPerFrame, value)
               : Unit::read(address, value);
}

OSStatus ConverterUnit::write(const UnitPropertyAddress& address, const void* value)
{
    if (address.id == kAudioUnitProperty_RenderQuality)
        return setQuality(valueAs<UInt32>(value));
    return isChannelMap(address) ? setChannelMap(value) : Unit::write(address, value);
}

OSStatus ConverterUnit::setQuality(UInt32 quality)
{
    if (quality > kRenderQuality_Max)
        return kAudioUnitErr_InvalidPropertyValue;
    return remakeWith(quality_, quality, {kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, 0});
}

OSStatus ConverterUnit::setChannelMap(const void* value)
{
    ChannelMap next;
    const OSStatus status = next.set(input(0).format.mChannelsPerFrame, outputFormat(0).mChannelsPerFrame, value);
    return status == noErr ? remakeWith(channelMap_, std::move(next),
                                        {kAudioOutputUnitProperty_ChannelMap, kAudioUnitScope_Output, 0})
                           : status;
}

} // namespace qmx
