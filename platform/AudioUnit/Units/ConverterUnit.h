// SPDX-License-Identifier: MIT
#pragma once

#include "AudioUnit/Units/ChannelMap.h"
#include "AudioUnit/Units/ConverterEngine.h"
#include "AudioUnit/Units/QualityUnit.h"

namespace qmx
{

/// Converts layout, channels and rate between its input and its output. At equal rates it renders one input frame for
/// each output frame. Otherwise the first render also asks for the frames that the filter looks ahead, so that the
/// output is not delayed.
class ConverterUnit : public QualityUnit
{
public:
    ConverterUnit();

protected:
    OSStatus makeEngine(UInt32 bus, std::unique_ptr<RenderEngine>& engine) override;
    OSStatus shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const override;
    OSStatus read(const UnitPropertyAddress& address, void* value) const override;
    OSStatus write(const UnitPropertyAddress& address, const void* value) override;

private:
    OSStatus setChannelMap(const void* value);

    ChannelMap channelMap_;
};

} // namespace qmx
