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

ConverterUnit::ConverterUnit() : QualityUnit({.inputs = 1, .outputs = 1}) {}

OSStatus ConverterUnit::makeEngine(UInt32, std::unique_ptr<RenderEngine>& engine)
{
    ConverterEngine::Conversion conversion = ConverterEngine::between(input(0).format, outputFormat(0));
    conversion.quality = quality();
    conversion.routes = channelMap_.routes(input(0).format.mChannelsPerFrame, outputFormat(0).mChannelsPerFrame);
    return ConverterEngine::make(input(0), 0, conversion, maximumFrames(), engine);
}

OSStatus ConverterUnit::shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const
{
    if (address.id == kAudioUnitProperty_SupportedNumChannels)
        return ofUnit(address, {.size = sizeof(AUChannelInfo)}, shape);
    if (!isChannelMap(address))
        return QualityUnit::shapeOf(address, shape);
    shape = {.size = ChannelMap::size(outputFormat(0).mChannelsPerFrame), .isWritable = true};
    return noErr;
}

OSStatus ConverterUnit::read(const UnitPropertyAddress& address, void* value) const
{
    if (address.id == kAudioUnitProperty_SupportedNumChannels)
        return answer(value, AUChannelInfo{-1, -2}); // any
    return isChannelMap(address)
               ? channelMap_.read(input(0).format.mChannelsPerFrame, outputFormat(0).mChannelsPerFrame, value)
               : QualityUnit::read(address, value);
}

OSStatus ConverterUnit::write(const UnitPropertyAddress& address, const void* value)
{
    return isChannelMap(address) ? setChannelMap(value) : QualityUnit::write(address, value);
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
