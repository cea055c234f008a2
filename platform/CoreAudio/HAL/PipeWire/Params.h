// SPDX-License-Identifier: MIT
// The server's parameter objects, read into plain data and made from it.
#pragma once

#include "CoreAudio/HAL/PipeWire/ServerState.h"

#include <array>
#include <cstddef>

struct spa_pod;

namespace qmx::pipewire
{

/// Takes over what `pod` (a node's Props) reports; the rest of `levels` stays.
void readLevels(const spa_pod* pod, Levels& levels);
/// Appends what a raw EnumFormat object offers.
void addFormats(const spa_pod* pod, std::vector<SampleFormat>& formats);
/// Takes over a port's Latency when it is that of what lies beyond the device.
void readLatency(const spa_pod* pod, bool portIsInput, Latency& latency);
std::optional<Route> readRoute(const spa_pod* pod);

/// Where a parameter object is built; it lives as long.
struct PodRoom {
    alignas(8) std::array<std::byte, 4096> bytes;
};
const spa_pod* levelsPod(const Levels& levels, PodRoom& room);
const spa_pod* routePod(std::int32_t route, std::int32_t profileDevice, const Levels& levels, PodRoom& room);

/// The JSON text {"name": "..."} that metadata values are, and back; empty when it is not one.
std::string namedValue(const std::string& name);
std::string nameInValue(const std::string& json);

} // namespace qmx::pipewire
