// SPDX-License-Identifier: MIT
// The channel map of one side of a unit, as kAudioOutputUnitProperty_ChannelMap sets and reads it.
#pragma once

#include "AudioToolbox/Conversion/ChannelMixer.h"
#include "CoreAudioTypes/MacTypes.h"

#include <vector>

namespace qmx
{

/// An SInt32 for each output channel: its input channel, or -1 for silence. Without a map that fits the channels of
/// both sides, the default routes apply.
class ChannelMap
{
public:
    static UInt32 size(UInt32 outputs) { return static_cast<UInt32>(outputs * sizeof(SInt32)); }

    /// The map, if it fits the numbers of channels; otherwise the default routes.
    ChannelRoutes routes(UInt32 inputs, UInt32 outputs) const;
    /// Copies the map in force; kAudioUnitErr_PropertyNotInUse if channels are mixed, which no map can express.
    OSStatus read(UInt32 inputs, UInt32 outputs, void* value) const;
    /// Takes a map; kAudioUnitErr_InvalidPropertyValue for an input that does not exist.
    OSStatus set(UInt32 inputs, UInt32 outputs, const void* value);

private:
    std::vector<SInt32> inputOf_; ///< empty for none
};

} // namespace qmx
