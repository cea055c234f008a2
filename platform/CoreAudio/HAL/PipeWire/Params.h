// SPDX-License-Identifier: MIT
// Reads the server's parameter objects into plain data and makes them from it.
#pragma once

#include "CoreAudio/HAL/PipeWire/ServerState.h"

#include <array>
#include <cstddef>

struct spa_pod;

namespace qmx::pipewire
{

/// Copies the levels in `pod` (a node's Props); the rest of `levels` stays.
void readLevels(const spa_pod* pod, Levels& levels);
/// Appends the formats that a raw EnumFormat object offers.
void addFormats(const spa_pod* pod, std::vector<SampleFormat>& formats);
/// Copies a port's Latency if it is that of the path beyond the device.
void readLatency(const spa_pod* pod, bool portIsInput, Latency& latency);
std::optional<Route> readRoute(const spa_pod* pod);

/// The memory that a parameter object is built in; the object is valid while this exists.
struct PodRoom {
    alignas(8) std::array<std::byte, 4096> bytes;
};
const spa_pod* levelsPod(const Levels& levels, PodRoom& room);
const spa_pod* routePod(std::int32_t route, std::int32_t profileDevice, const Levels& levels, PodRoom& room);

/// Converts a name to the JSON text {"name": "..."} of a metadata value and back; empty for any other text.
std::string namedValue(const std::string& name);
std::string nameInValue(const std::string& json);

} // namespace qmx::pipewire
