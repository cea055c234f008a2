// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/QualityUnit.h"

#include "AudioUnit/Units/PropertyValue.h"

namespace qmx
{

OSStatus QualityUnit::shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const
{
    return address.id == kAudioUnitProperty_RenderQuality
               ? ofUnit(address, {.size = sizeof(UInt32), .isWritable = true}, shape)
               : Unit::shapeOf(address, shape);
}

OSStatus QualityUnit::read(const UnitPropertyAddress& address, void* value) const
{
    return address.id == kAudioUnitProperty_RenderQuality ? answer(value, quality_) : Unit::read(address, value);
}

OSStatus QualityUnit::write(const UnitPropertyAddress& address, const void* value)
{
    if (address.id != kAudioUnitProperty_RenderQuality)
        return Unit::write(address, value);
    const auto quality = valueAs<UInt32>(value);
    return quality > kRenderQuality_Max
               ? kAudioUnitErr_InvalidPropertyValue
               : remakeWith(quality_, quality, {kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, 0});
}

} // namespace qmx
