// SPDX-License-Identifier: MIT
// Devices, as the hardware layer describes them, from what the server told.
#pragma once

#include "CoreAudio/DeviceDescription.h"
#include "CoreAudio/HAL/PipeWire/ServerState.h"

#include <set>

namespace qmx::pipewire
{

/// A device and where it is on the server.
struct FoundDevice {
    std::string key; ///< while it is plugged in; the UID outlasts that
    std::uint32_t node = 0;
    bool isMonitor = false;
    DeviceDescription description;
    std::vector<std::uint32_t> capturePorts;  ///< of the node, one for each input channel
    std::vector<std::uint32_t> playbackPorts; ///< and for each output channel
};

/// All devices whose ports exist. What a sink plays is offered as an input of its own too.
std::vector<FoundDevice> foundDevices(const ServerState& state);

/// The keys of the devices that the server's nodes are or were, whether their ports exist or not.
std::set<std::string> nodeKeys(const ServerState& state);

/// The default of a direction: the name of its node, empty when there is none.
std::string defaultNode(const ServerState& state, const std::vector<FoundDevice>& devices, bool isInput);

/// Where a node's volumes and its data source are: the card and the route that serves it at present, if any.
struct RoutePlace {
    std::uint32_t card = 0;
    std::int32_t profileDevice = -1;
    const Route* current = nullptr; ///< in `state`
};
std::optional<RoutePlace> routePlace(const ServerState& state, std::uint32_t node, bool isInput);
/// Whether a card's route can serve a node's profile device.
bool serves(const Route& route, std::int32_t profileDevice, bool isInput);

/// A data source's ID stands for a route.
constexpr UInt32 dataSourceOf(std::int32_t route)
{
    return static_cast<UInt32>(route) + 1;
}

/// A whole number among the server's settings; `otherwise` when it is missing or 0.
UInt32 setting(const ServerState& state, const char* key, UInt32 otherwise);

} // namespace qmx::pipewire
