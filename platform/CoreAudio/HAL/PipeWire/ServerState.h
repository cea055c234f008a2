// SPDX-License-Identifier: MIT
// The known state of the server's objects as plain data; ServerObjects fills it.
#pragma once

#include "CoreAudioTypes/CoreAudioTypes.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace qmx::pipewire
{

using Texts = std::map<std::string, std::string>;

/// The text under a key; empty if there is none.
inline std::string text(const Texts& texts, const std::string& key)
{
    const auto found = texts.find(key);
    return found == texts.end() ? std::string() : found->second;
}

/// Volumes (linear gain) and mute of a node or a route; values that it lacks are empty.
struct Levels {
    std::optional<float> master;
    std::vector<float> channels;
    std::optional<bool> isMuted;
};

/// A sample layout that the hardware supports.
struct SampleFormat {
    UInt32 bits = 32;
    bool isFloat = true;
    bool operator==(const SampleFormat&) const = default;
};

struct Latency {
    float quantums = 0;
    std::uint32_t frames = 0;
    std::uint64_t nanoseconds = 0;
};

struct Port {
    std::uint32_t node = 0;
    std::uint32_t index = 0; ///< in its node and direction
    bool isInput = false;    ///< whether sound goes into the node here
    bool isMonitor = false;
    Latency latency;
};

struct Node {
    Texts properties;
    bool hasInfo = false;
    bool isRunning = false;
    Levels levels;
    std::vector<SampleFormat> formats;
};

struct Route {
    std::int32_t index = 0;
    bool isInput = false;
    std::string name;
    std::vector<std::int32_t> profileDevices; ///< the ones that it can serve
    std::optional<bool> isAvailable;
    std::int32_t profileDevice = -1; ///< the one that it serves now; current routes only
    Levels levels;                   ///< current routes only
};

struct Card {
    Texts properties;
    std::vector<Route> routes;
    std::vector<Route> currentRoutes;
};

/// All objects, by their ID on the server.
struct ServerState {
    std::uint64_t generation = 0; ///< changes with each server, because serial numbers are unique for one server only
    std::map<std::uint32_t, Node> nodes;
    std::map<std::uint32_t, Port> ports;
    std::map<std::uint32_t, Card> cards;
    Texts defaults; ///< values of the metadata "default"
    Texts settings; ///< values of the metadata "settings"

    /// The ports of a node, in order.
    std::vector<std::uint32_t> portsOf(std::uint32_t node, bool isInput, bool isMonitor) const
    {
        std::map<std::uint32_t, std::uint32_t> ordered;
        for (const auto& [id, port] : ports)
            if (port.node == node && port.isInput == isInput && port.isMonitor == isMonitor)
                ordered.emplace(port.index, id);
        std::vector<std::uint32_t> ids;
        ids.reserve(ordered.size());
        for (const auto& [index, id] : ordered)
            ids.push_back(id);
        return ids;
    }
};

} // namespace qmx::pipewire
