// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/ChannelMixer.h"

#include <numeric>

namespace qmx
{

bool ChannelRoutes::isIdentity() const
{
    return !isMean && weights.empty() && inputs == outputs() && inputOf == identity(inputs).inputOf;
}

ChannelRoutes ChannelRoutes::identity(UInt32 channels)
{
    ChannelRoutes routes;
    routes.inputs = channels;
    routes.inputOf.resize(channels);
    std::iota(routes.inputOf.begin(), routes.inputOf.end(), 0);
    return routes;
}

ChannelRoutes ChannelRoutes::between(UInt32 inputs, UInt32 outputs)
{
    ChannelRoutes routes = identity(outputs);
    routes.inputs = inputs;
    routes.isMean = outputs == 1 && inputs > 1;
    for (SInt32& input : routes.inputOf)
        if (input >= static_cast<SInt32>(inputs))
            input = inputs == 1 ? 0 : silence;
    return routes;
}

} // namespace qmx
