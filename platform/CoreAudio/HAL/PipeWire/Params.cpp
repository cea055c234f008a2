// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/PipeWire/Params.h"

#include <algorithm>
#include <pipewire/pipewire.h>
#include <spa/param/audio/format.h>
#include <spa/param/audio/raw.h>
#include <spa/param/latency-utils.h>
#include <spa/param/props.h>
#include <spa/param/route.h>
#include <spa/pod/builder.h>
#include <spa/pod/parser.h>
#include <spa/utils/json.h>
#include <string_view>

namespace qmx::pipewire
{
namespace
{

constexpr std::uint32_t mostChannels = 64;

std::optional<SampleFormat> sampleFormat(std::uint32_t format)
{
    switch (format) {
    case SPA_AUDIO_FORMAT_S16:
    case SPA_AUDIO_FORMAT_S16P:
    case SPA_AUDIO_FORMAT_S16_OE:
        return SampleFormat{16, false};
    case SPA_AUDIO_FORMAT_S24:
    case SPA_AUDIO_FORMAT_S24P:
    case SPA_AUDIO_FORMAT_S24_OE:
    case SPA_AUDIO_FORMAT_S24_32:
    case SPA_AUDIO_FORMAT_S24_32P:
    case SPA_AUDIO_FORMAT_S24_32_OE:
        return SampleFormat{24, false};
    case SPA_AUDIO_FORMAT_S32:
    case SPA_AUDIO_FORMAT_S32P:
    case SPA_AUDIO_FORMAT_S32_OE:
        return SampleFormat{32, false};
    case SPA_AUDIO_FORMAT_F32:
    case SPA_AUDIO_FORMAT_F32P:
    case SPA_AUDIO_FORMAT_F32_OE:
        return SampleFormat{32, true};
    default:
        return {};
    }
}

template <class T> std::optional<T> numberIn(const spa_pod* object, std::uint32_t key)
{
    const spa_pod_prop* const property = spa_pod_find_prop(object, nullptr, key);
    std::int32_t whole = 0;
    std::uint32_t id = 0;
    if (property && spa_pod_get_int(&property->value, &whole) == 0)
        return static_cast<T>(whole);
    if (property && spa_pod_get_id(&property->value, &id) == 0)
        return static_cast<T>(id);
    return {};
}

void addLevels(spa_pod_builder& builder, const Levels& levels)
{
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
    if (levels.master) {
        spa_pod_builder_prop(&builder, SPA_PROP_volume, 0);
        spa_pod_builder_float(&builder, *levels.master);
    }
    if (levels.isMuted) {
        spa_pod_builder_prop(&builder, SPA_PROP_mute, 0);
        spa_pod_builder_bool(&builder, *levels.isMuted);
    }
    if (!levels.channels.empty()) {
        spa_pod_builder_prop(&builder, SPA_PROP_channelVolumes, 0);
        spa_pod_builder_array(&builder, sizeof(float), SPA_TYPE_Float,
                              static_cast<std::uint32_t>(levels.channels.size()), levels.channels.data());
    }
    spa_pod_builder_pop(&builder, &frame);
}

spa_pod_builder builderIn(PodRoom& room)
{
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, room.bytes.data(), static_cast<std::uint32_t>(room.bytes.size()));
    return builder;
}

} // namespace

void readLevels(const spa_pod* pod, Levels& levels)
{
    if (!pod)
        return;
    float volume = 0;
    if (const auto* const found = spa_pod_find_prop(pod, nullptr, SPA_PROP_volume);
        found && spa_pod_get_float(&found->value, &volume) == 0)
        levels.master = volume;
    bool isMuted = false;
    if (const auto* const found = spa_pod_find_prop(pod, nullptr, SPA_PROP_mute);
        found && spa_pod_get_bool(&found->value, &isMuted) == 0)
        levels.isMuted = isMuted;
    if (const auto* const found = spa_pod_find_prop(pod, nullptr, SPA_PROP_channelVolumes)) {
        std::array<float, mostChannels> values{};
        const std::uint32_t count = spa_pod_copy_array(&found->value, SPA_TYPE_Float, values.data(), mostChannels);
        levels.channels.assign(values.begin(), values.begin() + count);
    }
}

void addFormats(const spa_pod* pod, std::vector<SampleFormat>& formats)
{
    if (!pod || numberIn<std::uint32_t>(pod, SPA_FORMAT_mediaSubtype) != SPA_MEDIA_SUBTYPE_raw)
        return;
    const spa_pod_prop* const property = spa_pod_find_prop(pod, nullptr, SPA_FORMAT_AUDIO_format);
    if (!property)
        return;
    std::uint32_t count = 0, choice = SPA_CHOICE_None;
    const spa_pod* const values = spa_pod_get_values(&property->value, &count, &choice);
    if (values->type != SPA_TYPE_Id)
        return;
    const auto* const ids = static_cast<const std::uint32_t*>(SPA_POD_BODY_CONST(values));
    for (std::uint32_t index = 0; index < count; ++index)
        if (const auto format = sampleFormat(ids[index]);
            format && std::ranges::find(formats, *format) == formats.end())
            formats.push_back(*format);
}

// The latency to the speakers is reported as the input latency of a playback port, the latency from the microphones as
// the output latency of a capture port.
void readLatency(const spa_pod* pod, bool portIsInput, Latency& latency)
{
    spa_latency_info info{};
    if (!pod || spa_latency_parse(pod, &info) < 0 ||
        info.direction != (portIsInput ? SPA_DIRECTION_INPUT : SPA_DIRECTION_OUTPUT))
        return;
    latency = {.quantums = info.min_quantum, .frames = info.min_rate, .nanoseconds = info.min_ns};
}

std::optional<Route> readRoute(const spa_pod* pod)
{
    const auto index = pod ? numberIn<std::int32_t>(pod, SPA_PARAM_ROUTE_index) : std::nullopt;
    if (!index)
        return {};
    Route route{.index = *index,
                .isInput = numberIn<std::uint32_t>(pod, SPA_PARAM_ROUTE_direction) == SPA_DIRECTION_INPUT,
                .name = {},
                .profileDevices = {},
                .isAvailable = {},
                .profileDevice = numberIn<std::int32_t>(pod, SPA_PARAM_ROUTE_device).value_or(-1),
                .levels = {}};
    for (const std::uint32_t key : {SPA_PARAM_ROUTE_description, SPA_PARAM_ROUTE_name}) {
        const char* name = nullptr;
        const auto* const found = spa_pod_find_prop(pod, nullptr, key);
        if (route.name.empty() && found && spa_pod_get_string(&found->value, &name) == 0)
            route.name = name;
    }
    const auto available = numberIn<std::uint32_t>(pod, SPA_PARAM_ROUTE_available);
    if (available && *available != SPA_PARAM_AVAILABILITY_unknown)
        route.isAvailable = *available == SPA_PARAM_AVAILABILITY_yes;
    if (const auto* const found = spa_pod_find_prop(pod, nullptr, SPA_PARAM_ROUTE_devices)) {
        std::array<std::int32_t, mostChannels> values{};
        const std::uint32_t count = spa_pod_copy_array(&found->value, SPA_TYPE_Int, values.data(), mostChannels);
        route.profileDevices.assign(values.begin(), values.begin() + count);
    }
    if (const auto* const found = spa_pod_find_prop(pod, nullptr, SPA_PARAM_ROUTE_props))
        readLevels(&found->value, route.levels);
    return route;
}

const spa_pod* levelsPod(const Levels& levels, PodRoom& room)
{
    spa_pod_builder builder = builderIn(room);
    addLevels(builder, levels);
    return reinterpret_cast<const spa_pod*>(room.bytes.data());
}

const spa_pod* routePod(std::int32_t route, std::int32_t profileDevice, const Levels& levels, PodRoom& room)
{
    spa_pod_builder builder = builderIn(room);
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_ParamRoute, SPA_PARAM_Route);
    spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_index, 0);
    spa_pod_builder_int(&builder, route);
    spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_device, 0);
    spa_pod_builder_int(&builder, profileDevice);
    if (levels.master || levels.isMuted || !levels.channels.empty()) {
        spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_props, 0);
        addLevels(builder, levels);
    }
    spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_save, 0);
    spa_pod_builder_bool(&builder, true);
    spa_pod_builder_pop(&builder, &frame);
    return reinterpret_cast<const spa_pod*>(room.bytes.data());
}

std::string namedValue(const std::string& name)
{
    std::string escaped(name.size() * 6 + 3, '\0');
    const int used = spa_json_encode_string(escaped.data(), static_cast<int>(escaped.size()), name.c_str());
    escaped.resize(static_cast<std::size_t>(std::max(0, used)));
    return std::string("{ \"name\": ").append(escaped).append(" }");
}

std::string nameInValue(const std::string& json)
{
    spa_json outer{}, inner{};
    spa_json_init(&outer, json.c_str(), json.size());
    if (spa_json_enter_object(&outer, &inner) <= 0)
        return {};
    std::array<char, 1024> key{}, value{};
    while (spa_json_get_string(&inner, key.data(), static_cast<int>(key.size()) - 1) > 0) {
        if (std::string_view(key.data()) == "name")
            return spa_json_get_string(&inner, value.data(), static_cast<int>(value.size()) - 1) > 0 ? value.data()
                                                                                                     : "";
        const char* skipped = nullptr;
        if (spa_json_next(&inner, &skipped) <= 0)
            break;
    }
    return {};
}

} // namespace qmx::pipewire
