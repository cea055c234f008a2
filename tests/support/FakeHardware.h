// SPDX-License-Identifier: MIT
// Simulates real hardware as a client of the tests' server: a card with routes, a node with a latency or with both
// directions, a player that insists on a rate.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <pipewire/filter.h>
#include <pipewire/pipewire.h>
#include <spa/monitor/device.h>
#include <string>
#include <vector>

namespace qmx::test
{

/// A route of a card, for one device of its profile.
struct FakeRoute {
    std::int32_t index = 0;
    bool isInput = false;
    const char* name = "";
    std::int32_t profileDevice = 0;
    bool isChosen = false;
    bool isAvailable = true;
    std::vector<float> volumes = {1, 1};
    bool isMuted = false;
};

/// Properties are texts of the form "name=value name=value".
class FakeHardware
{
public:
    FakeHardware();
    ~FakeHardware();
    FakeHardware(const FakeHardware&) = delete;
    FakeHardware& operator=(const FakeHardware&) = delete;

    /// Adds a node with `inputs` inputs and `outputs` outputs, which plays its inputs on its outputs. Call it once.
    void addNode(const std::string& properties, int inputs, int outputs);
    /// Replaces the node's ports while it runs.
    void renewPorts(int inputs, int outputs);
    /// Sets the latency after the node's inputs, in frames.
    void setLatency(std::uint32_t frames);

    /// Adds a card and returns its number on the server. Call it once.
    std::string addCard(const std::string& properties, std::vector<FakeRoute> routes);
    std::vector<FakeRoute> routes();
    void changeRoutes(const std::function<void(std::vector<FakeRoute>&)>& change);

private:
    struct Lock;
    void addPorts(int inputs, int outputs);
    static void process(void* self, spa_io_position* position);
    static int addListener(void* self, spa_hook* hook, const spa_device_events* events, void* data);
    static int sync(void* self, int sequence);
    static int enumerate(void* self, int sequence, std::uint32_t kind, std::uint32_t start, std::uint32_t most,
                         const spa_pod* filter);
    static int set(void* self, std::uint32_t kind, std::uint32_t flags, const spa_pod* pod);
    void tellRoutes();

    pw_thread_loop* const loop_;
    pw_context* const context_;
    pw_core* core_ = nullptr;
    pw_filter* filter_ = nullptr;
    spa_hook hook_{};
    std::mutex portsMutex_;
    std::vector<void*> inputs_, outputs_; // guarded by it
    pw_proxy* proxy_ = nullptr;           // of the card
    spa_device card_{};
    spa_hook_list listeners_{};
    std::vector<FakeRoute> routes_;
    std::uint32_t serial_ = 0;
};

} // namespace qmx::test
