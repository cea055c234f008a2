// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/ChannelMap.h"

#include "AudioUnit/AudioUnitProperties.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace qmx
{
namespace
{

bool areInputs(const std::vector<SInt32>& map, UInt32 inputs)
{
    return std::ranges::all_of(
        map, [inputs](SInt32 input) { return input >= ChannelRoutes::silence && input < static_cast<SInt32>(inputs); });
}

} // namespace

ChannelRoutes ChannelMap::routes(UInt32 inputs, UInt32 outputs) const
{
    if (inputOf_.size() == outputs && areInputs(inputOf_, inputs))
        return {.inputs = inputs, .inputOf = inputOf_, .isMean = false, .weights = {}};
    return ChannelRoutes::between(inputs, outputs);
}

OSStatus ChannelMap::read(UInt32 inputs, UInt32 outputs, void* value) const
{
    const ChannelRoutes current = routes(inputs, outputs);
    if (current.isMean)
        return kAudioUnitErr_PropertyNotInUse;
    std::memcpy(value, current.inputOf.data(), size(outputs));
    return noErr;
}

OSStatus ChannelMap::set(UInt32 inputs, UInt32 outputs, const void* value)
{
    std::vector<SInt32> map(outputs);
    std::memcpy(map.data(), value, size(outputs));
    if (!areInputs(map, inputs))
        return kAudioUnitErr_InvalidPropertyValue;
    inputOf_ = std::move(map);
    return noErr;
}

} // namespace qmx
