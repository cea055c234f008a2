// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Conversion/VariableRateConverter.h"
#include "AudioUnit/Units/Unit.h"

namespace qmx
{

/// A unit whose rate conversion is as good and as costly as kAudioUnitProperty_RenderQuality says.
class QualityUnit : public Unit
{
protected:
    using Unit::Unit;

    UInt32 quality() const { return quality_; }

    OSStatus shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const override;
    OSStatus read(const UnitPropertyAddress& address, void* value) const override;
    OSStatus write(const UnitPropertyAddress& address, const void* value) override;

private:
    UInt32 quality_ = VariableRateConverter::defaultQuality; ///< 0 to 127
};

} // namespace qmx
