// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/PipeWire/ServerObjects.h"

#include "CoreAudio/HAL/PipeWire/Params.h"

#include <cstdlib>
#include <cstring>
#include <pipewire/extensions/metadata.h>
#include <string_view>
#include <utility>

namespace qmx::pipewire
{
namespace
{

Texts textsOf(const spa_dict* dictionary)
{
    Texts texts;
    for (std::uint32_t item = 0; dictionary && item < dictionary->n_items; ++item)
        if (dictionary->items[item].key && dictionary->items[item].value)
            texts[dictionary->items[item].key] = dictionary->items[item].value;
    return texts;
}

std::uint32_t numberOf(const Texts& texts, const char* key)
{
    return static_cast<std::uint32_t>(std::strtoul(text(texts, key).c_str(), nullptr, 10));
}

bool isAudioDevice(const Texts& properties)
{
    const std::string mediaClass = text(properties, PW_KEY_MEDIA_CLASS);
    return mediaClass == "Audio/Sink" || mediaClass == "Audio/Source" || mediaClass == "Audio/Source/Virtual" ||
           mediaClass == "Audio/Duplex";
}

// A request counts at once, so that the next one, for another channel, starts from it; the server's answer confirms it.
void takeOver(const Levels& requested, Levels& levels)
{
    if (requested.master)
        levels.master = requested.master;
    if (requested.isMuted)
        levels.isMuted = requested.isMuted;
    if (!requested.channels.empty())
        levels.channels = requested.channels;
}

} // namespace

// One object of the server, with a listener to its events.
struct ServerObjects::Object {
    Object(ServerObjects& all, std::uint32_t number, const char* type, std::uint32_t version)
        : owner(all), id(number),
          proxy(static_cast<pw_proxy*>(pw_registry_bind(all.registry_, number, type, version, 0)))
    {
    }
    virtual ~Object()
    {
        if (!proxy)
            return;
        spa_hook_remove(&hook);
        pw_proxy_destroy(proxy);
    }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    ServerObjects& owner;
    const std::uint32_t id;
    pw_proxy* const proxy;
    spa_hook hook{};
};

struct ServerObjects::NodeObject final : Object {
    NodeObject(ServerObjects& all, std::uint32_t number) : Object(all, number, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE)
    {
        static const pw_node_events events = [] {
            pw_node_events made{};
            made.version = PW_VERSION_NODE_EVENTS;
            made.info = info;
            made.param = param;
            return made;
        }();
        if (!proxy)
            return;
        auto* const node = reinterpret_cast<pw_node*>(proxy);
        pw_node_add_listener(node, &hook, &events, this);
        std::uint32_t wanted[] = {SPA_PARAM_Props, SPA_PARAM_EnumFormat};
        pw_node_subscribe_params(node, wanted, 2);
    }
    static void info(void* data, const pw_node_info* info)
    {
        auto& self = *static_cast<NodeObject*>(data);
        Node& node = self.owner.state_.nodes[self.id];
        if (info->change_mask & PW_NODE_CHANGE_MASK_PROPS)
            node.properties = textsOf(info->props);
        node.hasInfo = true;
        node.isRunning = info->state == PW_NODE_STATE_RUNNING;
        self.owner.changed_();
    }
    static void param(void* data, int, std::uint32_t param, std::uint32_t index, std::uint32_t, const spa_pod* pod)
    {
        auto& self = *static_cast<NodeObject*>(data);
        Node& node = self.owner.state_.nodes[self.id];
        if (param == SPA_PARAM_Props) {
            readLevels(pod, node.levels);
        } else if (param == SPA_PARAM_EnumFormat) {
            if (index == 0)
                node.formats.clear();
            addFormats(pod, node.formats);
        }
        self.owner.changed_();
    }
};

struct ServerObjects::PortObject final : Object {
    PortObject(ServerObjects& all, std::uint32_t number) : Object(all, number, PW_TYPE_INTERFACE_Port, PW_VERSION_PORT)
    {
        static const pw_port_events events = [] {
            pw_port_events made{};
            made.version = PW_VERSION_PORT_EVENTS;
            made.param = param;
            return made;
        }();
        if (!proxy)
            return;
        auto* const port = reinterpret_cast<pw_port*>(proxy);
        pw_port_add_listener(port, &hook, &events, this);
        std::uint32_t wanted[] = {SPA_PARAM_Latency};
        pw_port_subscribe_params(port, wanted, 1);
    }
    static void param(void* data, int, std::uint32_t, std::uint32_t, std::uint32_t, const spa_pod* pod)
    {
        auto& self = *static_cast<PortObject*>(data);
        const auto port = self.owner.state_.ports.find(self.id);
        if (port == self.owner.state_.ports.end())
            return;
        readLatency(pod, port->second.isInput, port->second.latency);
        self.owner.changed_();
    }
};

// Subscriptions do not work for devices of other processes: the parameters are asked for again each time the device
// reports that they have changed.
struct ServerObjects::CardObject final : Object {
    CardObject(ServerObjects& all, std::uint32_t number)
        : Object(all, number, PW_TYPE_INTERFACE_Device, PW_VERSION_DEVICE)
    {
        static const pw_device_events events = [] {
            pw_device_events made{};
            made.version = PW_VERSION_DEVICE_EVENTS;
            made.info = info;
            made.param = param;
            return made;
        }();
        if (proxy)
            pw_device_add_listener(reinterpret_cast<pw_device*>(proxy), &hook, &events, this);
    }
    static void info(void* data, const pw_device_info* info)
    {
        auto& self = *static_cast<CardObject*>(data);
        if (info->change_mask & PW_DEVICE_CHANGE_MASK_PROPS)
            self.owner.state_.cards[self.id].properties = textsOf(info->props);
        if (info->change_mask & PW_DEVICE_CHANGE_MASK_PARAMS)
            for (const std::uint32_t param : {SPA_PARAM_EnumRoute, SPA_PARAM_Route})
                pw_device_enum_params(reinterpret_cast<pw_device*>(self.proxy), 0, param, 0, UINT32_MAX, nullptr);
        self.owner.changed_();
    }
    // Each answer is a complete list; its first entry may have any number.
    static void param(void* data, int answer, std::uint32_t param, std::uint32_t, std::uint32_t, const spa_pod* pod)
    {
        auto& self = *static_cast<CardObject*>(data);
        Card& card = self.owner.state_.cards[self.id];
        const bool isCurrent = param == SPA_PARAM_Route;
        auto& routes = isCurrent ? card.currentRoutes : card.routes;
        if (std::exchange(self.answers[isCurrent], answer) != answer)
            routes.clear();
        if (const auto route = readRoute(pod))
            routes.push_back(*route);
        self.owner.changed_();
    }
    int answers[2] = {-1, -1}; ///< the number of the last answer, by kind
};

struct ServerObjects::MetadataObject final : Object {
    MetadataObject(ServerObjects& all, std::uint32_t number, Texts& into)
        : Object(all, number, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA), values(into)
    {
        static const pw_metadata_events events = [] {
            pw_metadata_events made{};
            made.version = PW_VERSION_METADATA_EVENTS;
            made.property = property;
            return made;
        }();
        if (proxy)
            pw_metadata_add_listener(reinterpret_cast<pw_metadata*>(proxy), &hook, &events, this);
    }
    ~MetadataObject() override { values.clear(); }
    static int property(void* data, std::uint32_t subject, const char* key, const char*, const char* value)
    {
        auto& self = *static_cast<MetadataObject*>(data);
        if (subject != 0)
            return 0;
        if (!key)
            self.values.clear();
        else if (!value)
            self.values.erase(key);
        else
            self.values[key] = value;
        self.owner.changed_();
        return 0;
    }
    Texts& values;
};

ServerObjects::ServerObjects(pw_core* core, ServerState& state, std::function<void()> changed)
    : state_(state), changed_(std::move(changed)), registry_(pw_core_get_registry(core, PW_VERSION_REGISTRY, 0))
{
    static const pw_registry_events events = [] {
        pw_registry_events made{};
        made.version = PW_VERSION_REGISTRY_EVENTS;
        made.global = added;
        made.global_remove = removed;
        return made;
    }();
    if (registry_)
        pw_registry_add_listener(registry_, &hook_, &events, this);
}

ServerObjects::~ServerObjects()
{
    objects_.clear();
    if (!registry_)
        return;
    spa_hook_remove(&hook_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
}

void ServerObjects::added(void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                          const spa_dict* dictionary)
{
    auto& self = *static_cast<ServerObjects*>(data);
    const std::string_view kind = type;
    const Texts properties = textsOf(dictionary);
    if (kind == PW_TYPE_INTERFACE_Node && isAudioDevice(properties)) {
        self.state_.nodes[id].properties = properties;
        self.objects_[id] = std::make_unique<NodeObject>(self, id);
    } else if (kind == PW_TYPE_INTERFACE_Port) {
        const Port port{.node = numberOf(properties, PW_KEY_NODE_ID),
                        .index = numberOf(properties, PW_KEY_PORT_ID),
                        .isInput = text(properties, PW_KEY_PORT_DIRECTION) == "in",
                        .isMonitor = text(properties, PW_KEY_PORT_MONITOR) == "true",
                        .latency = {}};
        self.state_.ports[id] = port;
        if (self.state_.nodes.contains(port.node))
            self.objects_[id] = std::make_unique<PortObject>(self, id);
    } else if (kind == PW_TYPE_INTERFACE_Device && text(properties, PW_KEY_MEDIA_CLASS) == "Audio/Device") {
        self.state_.cards[id].properties = properties;
        self.objects_[id] = std::make_unique<CardObject>(self, id);
    } else if (kind == PW_TYPE_INTERFACE_Metadata) {
        const std::string name = text(properties, PW_KEY_METADATA_NAME);
        if (name == "default")
            self.objects_[id] = std::make_unique<MetadataObject>(self, id, self.state_.defaults);
        else if (name == "settings")
            self.objects_[id] = std::make_unique<MetadataObject>(self, id, self.state_.settings);
        else
            return;
    } else {
        return;
    }
    self.changed_();
}

void ServerObjects::removed(void* data, std::uint32_t id)
{
    auto& self = *static_cast<ServerObjects*>(data);
    const bool wasKnown = self.objects_.erase(id) + self.state_.nodes.erase(id) + self.state_.ports.erase(id) +
                              self.state_.cards.erase(id) >
                          0;
    if (wasKnown)
        self.changed_();
}

template <class T> pw_proxy* ServerObjects::proxyOf(std::uint32_t id) const
{
    const auto found = objects_.find(id);
    auto* const object = found == objects_.end() ? nullptr : dynamic_cast<T*>(found->second.get());
    return object ? object->proxy : nullptr;
}

bool ServerObjects::setNodeLevels(std::uint32_t node, const Levels& levels)
{
    auto* const proxy = reinterpret_cast<pw_node*>(proxyOf<NodeObject>(node));
    if (!proxy)
        return false;
    PodRoom room;
    pw_node_set_param(proxy, SPA_PARAM_Props, 0, levelsPod(levels, room));
    takeOver(levels, state_.nodes[node].levels);
    changed_();
    return true;
}

bool ServerObjects::setRoute(std::uint32_t card, std::int32_t route, std::int32_t profileDevice, const Levels& levels)
{
    auto* const proxy = reinterpret_cast<pw_device*>(proxyOf<CardObject>(card));
    if (!proxy)
        return false;
    PodRoom room;
    pw_device_set_param(proxy, SPA_PARAM_Route, 0, routePod(route, profileDevice, levels, room));
    for (Route& current : state_.cards[card].currentRoutes)
        if (current.index == route && current.profileDevice == profileDevice)
            takeOver(levels, current.levels);
    changed_();
    return true;
}

bool ServerObjects::setDefault(const char* key, const std::string& nodeName)
{
    for (const auto& [id, object] : objects_) {
        auto* const metadata = dynamic_cast<MetadataObject*>(object.get());
        if (!metadata || !metadata->proxy || &metadata->values != &state_.defaults)
            continue;
        pw_metadata_set_property(reinterpret_cast<pw_metadata*>(metadata->proxy), 0, key, "Spa:String:JSON",
                                 namedValue(nodeName).c_str());
        return true;
    }
    return false;
}

} // namespace qmx::pipewire
