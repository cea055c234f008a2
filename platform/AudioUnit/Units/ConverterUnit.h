// SPDX-License-Identifier: MIT
#pragma once

#include "AudioUnit/Units/ChannelMap.h"
#include "AudioUnit/Units/ConverterEngine.h"
#include "AudioUnit/Units/Unit.h"

namespace qmx
{

/// Converts layout, channels and rate between its input and its output. At equal rates it renders one input frame for
/// each output frame. Otherwise the first render also asks for the frames that the filter looks ahead, so that the
/// output is not delayed.
class ConverterUnit : public Unit
{
public:
    ConverterUnit();

protected:
    OSStatus makeEngine(UInt32 bus, std::unique_ptr<RenderEngine>& engine) override;
    OSStatus shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const override;
    OSStatus read(const UnitPropertyAddress& address, void* value) const override;
    OSStatus write(const UnitPropertyAddress& address, const void* value) override;

private:
    OSStatus setQuality(UInt32 quality);
    OSStatus setChannelMap(const void* value);

    UInt32 quality_ = VariableRateConverter::defaultQuality; ///< 0 to 127
    ChannelMap channelMap_;
};

} // namespace qmx
