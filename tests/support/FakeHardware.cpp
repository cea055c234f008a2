// SPDX-License-Identifier: MIT
#include "support/FakeHardware.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <spa/monitor/utils.h>
#include <spa/param/latency-utils.h>
#include <spa/param/props.h>
#include <spa/param/route.h>
#include <spa/pod/builder.h>
#include <spa/pod/parser.h>

namespace qmx::test
{
namespace
{

constexpr std::uint32_t roomSize = 2048;

const spa_pod* routePod(std::uint8_t* room, const FakeRoute& route, std::uint32_t kind)
{
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, room, roomSize);
    spa_pod_frame frame{}, props{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_ParamRoute, kind);
    spa_pod_builder_add(&builder, SPA_PARAM_ROUTE_index, SPA_POD_Int(route.index), SPA_PARAM_ROUTE_direction,
                        SPA_POD_Id(route.isInput ? SPA_DIRECTION_INPUT : SPA_DIRECTION_OUTPUT), SPA_PARAM_ROUTE_name,
                        SPA_POD_String(route.name), SPA_PARAM_ROUTE_device, SPA_POD_Int(route.profileDevice),
                        SPA_PARAM_ROUTE_available,
                        SPA_POD_Id(route.isAvailable ? SPA_PARAM_AVAILABILITY_yes : SPA_PARAM_AVAILABILITY_no),
                        SPA_PARAM_ROUTE_devices, SPA_POD_Array(sizeof(int), SPA_TYPE_Int, 1, &route.profileDevice), 0);
    spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_props, 0);
    spa_pod_builder_push_object(&builder, &props, SPA_TYPE_OBJECT_Props, kind);
    spa_pod_builder_add(&builder, SPA_PROP_mute, SPA_POD_Bool(route.isMuted), SPA_PROP_channelVolumes,
                        SPA_POD_Array(sizeof(float), SPA_TYPE_Float, 2, route.volumes.data()), 0);
    spa_pod_builder_pop(&builder, &props);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

} // namespace

struct FakeHardware::Lock {
    explicit Lock(FakeHardware& hardware) : loop(hardware.loop_) { pw_thread_loop_lock(loop); }
    ~Lock() { pw_thread_loop_unlock(loop); }
    pw_thread_loop* loop;
};

FakeHardware::FakeHardware()
    : loop_((pw_init(nullptr, nullptr), pw_thread_loop_new("fake", nullptr))),
      context_(pw_context_new(pw_thread_loop_get_loop(loop_), nullptr, 0))
{
    spa_hook_list_init(&listeners_);
    pw_thread_loop_start(loop_);
    const Lock lock(*this);
    core_ = pw_context_connect(context_, nullptr, 0);
    EXPECT_TRUE(core_);
}

FakeHardware::~FakeHardware()
{
    pw_thread_loop_stop(loop_);
    if (filter_)
        pw_filter_destroy(filter_);
    if (proxy_)
        pw_proxy_destroy(proxy_);
    pw_context_destroy(context_);
    pw_thread_loop_destroy(loop_);
}

void FakeHardware::addNode(const std::string& properties, int inputs, int outputs)
{
    static const pw_filter_events events = [] {
        pw_filter_events made{};
        made.version = PW_VERSION_FILTER_EVENTS;
        made.process = process;
        return made;
    }();
    const Lock lock(*this);
    filter_ = pw_filter_new(core_, "fake", pw_properties_new_string((properties + " node.want-driver=true").c_str()));
    pw_filter_add_listener(filter_, &hook_, &events, this);
    addPorts(inputs, outputs);
    constexpr int flags = PW_FILTER_FLAG_RT_PROCESS | PW_FILTER_FLAG_CUSTOM_LATENCY;
    EXPECT_EQ(pw_filter_connect(filter_, static_cast<pw_filter_flags>(flags), nullptr, 0), 0);
}

void FakeHardware::addPorts(int inputs, int outputs)
{
    const auto add = [this](pw_direction direction, const std::string& name) {
        return pw_filter_add_port(
            filter_, direction, PW_FILTER_PORT_FLAG_MAP_BUFFERS, 1,
            pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio", PW_KEY_PORT_NAME, name.c_str(), nullptr),
            nullptr, 0);
    };
    for (int channel = 1; channel <= inputs; ++channel)
        inputs_.push_back(add(PW_DIRECTION_INPUT, "in_" + std::to_string(channel)));
    for (int channel = 1; channel <= outputs; ++channel)
        outputs_.push_back(add(PW_DIRECTION_OUTPUT, "out_" + std::to_string(channel)));
}

void FakeHardware::renewPorts(int inputs, int outputs)
{
    const Lock lock(*this);
    const std::scoped_lock renewing(portsMutex_);
    for (std::vector<void*>* const ports : {&inputs_, &outputs_}) {
        std::ranges::for_each(*ports, pw_filter_remove_port);
        ports->clear();
    }
    addPorts(inputs, outputs);
}

void FakeHardware::setLatency(std::uint32_t frames)
{
    const Lock lock(*this);
    std::array<std::uint8_t, roomSize> room{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, room.data(), roomSize);
    spa_latency_info info{};
    info.direction = SPA_DIRECTION_INPUT;
    info.min_rate = info.max_rate = frames;
    const spa_pod* params[] = {spa_latency_build(&builder, SPA_PARAM_Latency, &info)};
    for (void* const port : inputs_)
        pw_filter_update_params(filter_, port, params, 1);
}

void FakeHardware::process(void* data, spa_io_position* position)
{
    auto& self = *static_cast<FakeHardware*>(data);
    const std::unique_lock ports(self.portsMutex_, std::try_to_lock);
    if (!ports)
        return;
    const auto frames = static_cast<std::uint32_t>(position->clock.duration);
    for (std::size_t channel = 0; channel < self.outputs_.size(); ++channel) {
        auto* const to = static_cast<float*>(pw_filter_get_dsp_buffer(self.outputs_[channel], frames));
        const void* const from =
            channel < self.inputs_.size() ? pw_filter_get_dsp_buffer(self.inputs_[channel], frames) : nullptr;
        if (to)
            std::fill_n(to, frames, 0.0F);
        if (to && from)
            std::copy_n(static_cast<const float*>(from), frames, to);
    }
}

std::string FakeHardware::addCard(const std::string& properties, std::vector<FakeRoute> routes)
{
    static const spa_device_methods methods = {SPA_VERSION_DEVICE_METHODS, addListener, sync, enumerate, set};
    static const pw_proxy_events events = [] {
        pw_proxy_events made{};
        made.version = PW_VERSION_PROXY_EVENTS;
        made.bound = [](void* loop, std::uint32_t) {
            pw_thread_loop_signal(static_cast<pw_thread_loop*>(loop), false);
        };
        return made;
    }();
    const Lock lock(*this);
    routes_ = std::move(routes);
    card_.iface = {SPA_TYPE_INTERFACE_Device, SPA_VERSION_DEVICE, {&methods, this}};
    pw_properties* const texts = pw_properties_new_string((properties + " media.class=Audio/Device").c_str());
    proxy_ = pw_core_export(core_, SPA_TYPE_INTERFACE_Device, &texts->dict, &card_, 0);
    pw_properties_free(texts);
    spa_hook hook{};
    pw_proxy_add_listener(proxy_, &hook, &events, loop_);
    while (pw_proxy_get_bound_id(proxy_) == SPA_ID_INVALID && pw_thread_loop_timed_wait(loop_, 30) == 0) {
    }
    spa_hook_remove(&hook);
    EXPECT_NE(pw_proxy_get_bound_id(proxy_), SPA_ID_INVALID) << "the server does not take the card";
    return std::to_string(pw_proxy_get_bound_id(proxy_));
}

std::vector<FakeRoute> FakeHardware::routes()
{
    const Lock lock(*this);
    return routes_;
}

void FakeHardware::changeRoutes(const std::function<void(std::vector<FakeRoute>&)>& change)
{
    const Lock lock(*this);
    change(routes_);
    tellRoutes();
}

void FakeHardware::tellRoutes()
{
    const std::uint32_t serial = ++serial_ % 2 ? SPA_PARAM_INFO_SERIAL : 0;
    spa_param_info params[2]{};
    params[0].id = SPA_PARAM_EnumRoute;
    params[0].flags = SPA_PARAM_INFO_READ | serial;
    params[1].id = SPA_PARAM_Route;
    params[1].flags = SPA_PARAM_INFO_READWRITE | serial;
    spa_device_info info{};
    info.version = SPA_VERSION_DEVICE_INFO;
    info.change_mask = SPA_DEVICE_CHANGE_MASK_PARAMS;
    info.params = params;
    info.n_params = 2;
    spa_device_emit_info(&listeners_, &info);
}

int FakeHardware::addListener(void* data, spa_hook* hook, const spa_device_events* events, void* theirs)
{
    auto& self = *static_cast<FakeHardware*>(data);
    spa_hook_list others{};
    spa_hook_list_isolate(&self.listeners_, &others, hook, events, theirs);
    self.tellRoutes();
    spa_hook_list_join(&self.listeners_, &others);
    return 0;
}

int FakeHardware::sync(void* data, int sequence)
{
    spa_device_emit_result(&static_cast<FakeHardware*>(data)->listeners_, sequence, 0, 0, nullptr);
    return 0;
}

// Like the drivers of cards, this leaves gaps in the numbers of the current routes.
int FakeHardware::enumerate(void* data, int sequence, std::uint32_t kind, std::uint32_t start, std::uint32_t most,
                            const spa_pod*)
{
    auto& self = *static_cast<FakeHardware*>(data);
    for (std::uint32_t index = start; index < self.routes_.size() && most > 0; ++index) {
        const FakeRoute& route = self.routes_[index];
        if (kind == SPA_PARAM_Route && !route.isChosen)
            continue;
        alignas(8) std::array<std::uint8_t, roomSize> room{};
        const spa_result_device_params result{kind, index, index + 1,
                                              const_cast<spa_pod*>(routePod(room.data(), route, kind))};
        spa_device_emit_result(&self.listeners_, sequence, 0, SPA_RESULT_TYPE_DEVICE_PARAMS, &result);
        --most;
    }
    return 0;
}

int FakeHardware::set(void* data, std::uint32_t, std::uint32_t, const spa_pod* pod)
{
    auto& self = *static_cast<FakeHardware*>(data);
    std::int32_t index = 0, profileDevice = 0;
    const spa_pod* props = nullptr;
    if (spa_pod_parse_object(pod, SPA_TYPE_OBJECT_ParamRoute, nullptr, SPA_PARAM_ROUTE_index, SPA_POD_Int(&index),
                             SPA_PARAM_ROUTE_device, SPA_POD_Int(&profileDevice), SPA_PARAM_ROUTE_props,
                             SPA_POD_OPT_Pod(&props)) < 0)
        return -EINVAL;
    for (FakeRoute& route : self.routes_) {
        if (route.profileDevice != profileDevice)
            continue;
        route.isChosen = route.index == index;
        if (!route.isChosen || !props)
            continue;
        if (const auto* const mute = spa_pod_find_prop(props, nullptr, SPA_PROP_mute))
            spa_pod_get_bool(&mute->value, &route.isMuted);
        if (const auto* const volumes = spa_pod_find_prop(props, nullptr, SPA_PROP_channelVolumes))
            spa_pod_copy_array(&volumes->value, SPA_TYPE_Float, route.volumes.data(), 2);
    }
    self.tellRoutes();
    return 0;
}

} // namespace qmx::test
