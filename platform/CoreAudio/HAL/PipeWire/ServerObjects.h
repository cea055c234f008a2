// SPDX-License-Identifier: MIT
// Follows the server's registry: objects that come and go, and what each one reports.
#pragma once

#include "CoreAudio/HAL/PipeWire/ServerState.h"

#include <functional>
#include <map>
#include <memory>
#include <pipewire/pipewire.h>

namespace qmx::pipewire
{

/// Lives as long as one connection. Every call with the connection's lock held.
class ServerObjects
{
public:
    /// Fills `state` and calls `changed` after each change of it.
    ServerObjects(pw_core* core, ServerState& state, std::function<void()> changed);
    ~ServerObjects();
    ServerObjects(const ServerObjects&) = delete;
    ServerObjects& operator=(const ServerObjects&) = delete;

    // Requests; the server answers with a change of its state. False if the object is gone.
    bool setNodeLevels(std::uint32_t node, const Levels& levels);
    /// Chooses a route of a card for one of the profile's devices and sets its levels, if there are any in `levels`.
    bool setRoute(std::uint32_t card, std::int32_t route, std::int32_t profileDevice, const Levels& levels);
    bool setDefault(const char* key, const std::string& nodeName);

private:
    struct Object;
    struct NodeObject;
    struct PortObject;
    struct CardObject;
    struct MetadataObject;
    static void added(void* self, std::uint32_t id, std::uint32_t permissions, const char* type, std::uint32_t version,
                      const spa_dict* properties);
    static void removed(void* self, std::uint32_t id);
    template <class T> pw_proxy* proxyOf(std::uint32_t id) const;

    ServerState& state_;
    const std::function<void()> changed_;
    pw_registry* const registry_;
    spa_hook hook_{};
    std::map<std::uint32_t, std::unique_ptr<Object>> objects_;
};

} // namespace qmx::pipewire
