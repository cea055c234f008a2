// SPDX-License-Identifier: MIT
// Makes device descriptions from the state of the server.
#pragma once

#include "CoreAudio/DeviceDescription.h"
#include "CoreAudio/HAL/PipeWire/ServerState.h"

#include <set>

namespace qmx::pipewire
{

/// A device and its place on the server.
struct FoundDevice {
    std::string key; ///< valid while it is plugged in; the UID stays valid after that
    std::uint32_t node = 0;
    bool isMonitor = false;
    DeviceDescription description;
    std::vector<std::uint32_t> capturePorts;  ///< the node's, one for each input channel
    std::vector<std::uint32_t> playbackPorts; ///< the node's, one for each output channel
};

/// All devices whose ports exist. A sink's monitor is an input device of its own.
std::vector<FoundDevice> foundDevices(const ServerState& state);

/// The keys of all devices for which the server has a node, with or without ports.
std::set<std::string> nodeKeys(const ServerState& state);

/// The name of the default node of a direction; empty if there is none.
std::string defaultNode(const ServerState& state, const std::vector<FoundDevice>& devices, bool isInput);

/// The place of a node's volumes and data source: the card, and the route that serves the node now, if any.
struct RoutePlace {
    std::uint32_t card = 0;
    std::int32_t profileDevice = -1;
    const Route* current = nullptr; ///< in `state`
};
std::optional<RoutePlace> routePlace(const ServerState& state, std::uint32_t node, bool isInput);
/// Whether a card's route can serve a node's profile device.
bool serves(const Route& route, std::int32_t profileDevice, bool isInput);

/// The ID of the data source that stands for a route.
constexpr UInt32 dataSourceOf(std::int32_t route)
{
    return static_cast<UInt32>(route) + 1;
}

/// A whole number from the server's settings; `otherwise` if it is missing or 0.
UInt32 setting(const ServerState& state, const char* key, UInt32 otherwise);

} // namespace qmx::pipewire
