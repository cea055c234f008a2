// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/PipeWire/Descriptions.h"

#include "CoreAudio/AudioDeviceTypes.h"
#include "CoreAudio/AudioHardware.h"
#include "CoreAudio/HAL/DeviceView.h"
#include "CoreAudio/HAL/PipeWire/Params.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <pipewire/keys.h>
#include <string_view>

namespace qmx::pipewire
{
namespace
{

long wholeNumber(const Texts& texts, const std::string& key, long otherwise)
{
    const auto found = texts.find(key);
    return found == texts.end() ? otherwise : std::strtol(found->second.c_str(), nullptr, 10);
}

// Reads the numbers in a text like "[ 44100, 48000 ]".
std::vector<UInt32> numbersIn(std::string_view list)
{
    std::vector<UInt32> numbers;
    bool isInside = false;
    for (const char letter : list) {
        const bool isDigit = letter >= '0' && letter <= '9';
        if (isDigit && !isInside)
            numbers.push_back(0);
        if (isDigit)
            numbers.back() = numbers.back() * 10 + static_cast<UInt32>(letter - '0');
        isInside = isDigit;
    }
    return numbers;
}

std::string firstOf(std::initializer_list<std::string> texts)
{
    const auto* const found = std::ranges::find_if(texts, [](const auto& each) { return !each.empty(); });
    return found == texts.end() ? std::string() : *found;
}

const Card* cardOf(const ServerState& state, const Node& node)
{
    if (text(node.properties, PW_KEY_DEVICE_ID).empty())
        return nullptr;
    const auto found = state.cards.find(static_cast<std::uint32_t>(wholeNumber(node.properties, PW_KEY_DEVICE_ID, -1)));
    return found == state.cards.end() ? nullptr : &found->second;
}

UInt32 transportType(const Node& node, const Card* card)
{
    if (text(node.properties, "node.network") == "true")
        return kIOAudioDeviceTransportTypeNetwork;
    if (!card)
        return kAudioDeviceTransportTypeVirtual;
    const std::string bus = text(card->properties, PW_KEY_DEVICE_BUS);
    constexpr std::pair<const char*, UInt32> types[] = {{"usb", kAudioDeviceTransportTypeUSB},
                                                        {"pci", kAudioDeviceTransportTypePCI},
                                                        {"firewire", kAudioDeviceTransportTypeFireWire},
                                                        {"bluetooth", kAudioDeviceTransportTypeBluetooth}};
    for (const auto& [name, type] : types)
        if (bus == name)
            return type;
    return text(card->properties, PW_KEY_DEVICE_API) == "bluez5" ? kAudioDeviceTransportTypeBluetooth
                                                                 : kAudioDeviceTransportTypeUnknown;
}

void describeRates(const ServerState& state, DeviceDescription& device)
{
    const UInt32 forced = setting(state, "clock.force-rate", 0); // forced for all programs: no other rate is possible
    const UInt32 rate = forced ? forced : setting(state, "clock.rate", 48000);
    std::vector<UInt32> rates;
    if (!forced)
        rates = numbersIn(text(state.settings, "clock.allowed-rates"));
    rates.push_back(rate);
    std::ranges::sort(rates);
    rates.erase(std::unique(rates.begin(), rates.end()), rates.end());
    for (const UInt32 each : rates)
        if (each > 0)
            device.availableSampleRates.push_back({static_cast<Float64>(each), static_cast<Float64>(each)});
    device.nominalSampleRate = device.actualSampleRate = rate;
}

void describeBuffer(const ServerState& state, DeviceDescription& device)
{
    device.minimumBufferFrameSize = setting(state, "clock.min-quantum", 32);
    device.maximumBufferFrameSize = std::max(device.minimumBufferFrameSize, setting(state, "clock.max-quantum", 8192));
    device.bufferFrameSize = std::clamp(setting(state, "clock.force-quantum", setting(state, "clock.quantum", 1024)),
                                        device.minimumBufferFrameSize, device.maximumBufferFrameSize);
    device.usesVariableBufferFrameSizes = true; // any other program can change the server's cycle
}

UInt32 latencyFrames(const Latency& latency, const DeviceDescription& device)
{
    return latency.frames +
           static_cast<UInt32>(std::lround(static_cast<double>(latency.quantums) * device.bufferFrameSize +
                                           static_cast<double>(latency.nanoseconds) * device.nominalSampleRate / 1e9));
}

void describeStream(const Node& node, UInt32 channels, const DeviceDescription& device, SectionDescription& section)
{
    StreamDescription stream{.channels = channels,
                             .terminalType = kAudioStreamTerminalTypeUnknown,
                             .latency = 0,
                             .physicalFormats = {},
                             .physicalFormat = {}};
    for (const SampleFormat& format : node.formats)
        stream.physicalFormats.push_back(packedPhysicalFormat(0, channels, format.bits, format.isFloat));
    if (stream.physicalFormats.empty())
        stream.physicalFormats.push_back(packedPhysicalFormat(0, channels, 32, true));
    stream.physicalFormat = stream.physicalFormats.front();
    stream.physicalFormat.mSampleRate = device.nominalSampleRate;
    section.streams.push_back(std::move(stream));
    section.preferredChannelsForStereo[1] = std::min(2U, channels);
}

// Reports volumes above unity gain, which some programs set, as unity.
void describeLevels(const Levels& levels, UInt32 channels, SectionDescription& section)
{
    const auto volume = [](float gain) { return VolumeControl{.scalar = std::clamp(gain, 0.0F, 1.0F)}; };
    if (levels.master)
        section.volumes[0] = volume(*levels.master);
    if (!levels.channels.empty())
        for (UInt32 channel = 0; channel < channels; ++channel)
            section.volumes[channel + 1] =
                volume(levels.channels[std::min<std::size_t>(channel, levels.channels.size() - 1)]);
    if (levels.isMuted)
        section.mutes[0] = {.isMuted = *levels.isMuted};
}

void describeSources(const ServerState& state, const std::optional<RoutePlace>& place, bool isInput,
                     const std::string& deviceName, SectionDescription& section)
{
    if (place)
        for (const Route& route : state.cards.at(place->card).routes)
            if (serves(route, place->profileDevice, isInput))
                section.dataSources.push_back({dataSourceOf(route.index), route.name});
    if (section.dataSources.empty()) {
        section.dataSources.push_back({1, deviceName});
        section.dataSourceIsSettable = false;
    }
    section.dataSource = section.dataSources.front().id;
    if (place && place->current) {
        section.dataSource = dataSourceOf(place->current->index);
        section.jackIsConnected = place->current->isAvailable;
    }
}

void describeSection(const ServerState& state, const FoundDevice& found, bool isInput, DeviceDescription& device)
{
    const auto& ports = isInput ? found.capturePorts : found.playbackPorts;
    if (ports.empty())
        return;
    const Node& node = state.nodes.at(found.node);
    SectionDescription& section = device.section(isInput);
    const auto channels = static_cast<UInt32>(ports.size());
    describeStream(node, channels, device, section);
    section.latency = latencyFrames(state.ports.at(ports.front()).latency, device);
    section.canBeDefaultDevice = !found.isMonitor;
    if (found.isMonitor) { // the levels are the sink's
        describeSources(state, std::nullopt, isInput, device.name, section);
        return;
    }
    const auto place = routePlace(state, found.node, isInput);
    describeSources(state, place, isInput, device.name, section);
    Levels levels = node.levels;
    if (place && place->current && !place->current->levels.channels.empty())
        levels = place->current->levels;
    describeLevels(levels, channels, section);
}

void describe(const ServerState& state, FoundDevice& found)
{
    const Node& node = state.nodes.at(found.node);
    const Card* const card = cardOf(state, node);
    const Texts& cardProperties = card ? card->properties : node.properties;
    DeviceDescription& device = found.description;
    const std::string nodeName = text(node.properties, PW_KEY_NODE_NAME);
    device.uid = nodeName.empty() ? text(node.properties, PW_KEY_MEDIA_CLASS).append(".").append(found.key) : nodeName;
    device.name =
        firstOf({text(node.properties, PW_KEY_NODE_DESCRIPTION), text(node.properties, PW_KEY_NODE_NICK), device.uid});
    if (found.isMonitor) {
        device.uid.append(".monitor");
        device.name.insert(0, "Monitor of ");
    }
    device.manufacturer =
        firstOf({text(cardProperties, PW_KEY_DEVICE_VENDOR_NAME), text(cardProperties, PW_KEY_DEVICE_PRODUCT_NAME),
                 text(cardProperties, PW_KEY_DEVICE_API), "PipeWire"});
    device.modelUID =
        firstOf({text(cardProperties, PW_KEY_DEVICE_PRODUCT_NAME), text(node.properties, PW_KEY_NODE_NICK), nodeName});
    device.transportType = transportType(node, card);
    describeRates(state, device);
    describeBuffer(state, device);
    for (const bool isInput : {true, false})
        describeSection(state, found, isInput, device);
    device.canBeDefaultSystemDevice = !found.playbackPorts.empty();
    RawProperty running{.value = std::vector<std::byte>(sizeof(UInt32)), .isWritable = false};
    const UInt32 runs = node.isRunning;
    std::memcpy(running.value.data(), &runs, sizeof runs);
    for (const bool isInput : {true, false})
        device.rawProperties[{kAudioDevicePropertyDeviceIsRunningSomewhere, 0, isInput}] = running;
}

std::string keyOf(const ServerState& state, const Node& node)
{
    return std::to_string(state.generation).append(".").append(text(node.properties, PW_KEY_OBJECT_SERIAL));
}

std::string monitorKey(const std::string& sinkKey)
{
    return sinkKey + ".monitor";
}

void addFound(const ServerState& state, FoundDevice found, std::vector<FoundDevice>& devices)
{
    if (found.capturePorts.empty() && found.playbackPorts.empty())
        return;
    describe(state, found);
    devices.push_back(std::move(found));
}

} // namespace

std::set<std::string> nodeKeys(const ServerState& state)
{
    std::set<std::string> keys;
    for (const auto& [id, node] : state.nodes) {
        keys.insert(keyOf(state, node));
        keys.insert(monitorKey(keyOf(state, node)));
    }
    return keys;
}

UInt32 setting(const ServerState& state, const char* key, UInt32 otherwise)
{
    const long value = wholeNumber(state.settings, key, 0);
    return value > 0 ? static_cast<UInt32>(value) : otherwise;
}

std::vector<FoundDevice> foundDevices(const ServerState& state)
{
    std::vector<FoundDevice> devices;
    for (const auto& [id, node] : state.nodes) {
        if (!node.hasInfo)
            continue;
        const std::string mediaClass = text(node.properties, PW_KEY_MEDIA_CLASS);
        FoundDevice found{.key = keyOf(state, node),
                          .node = id,
                          .isMonitor = false,
                          .description = {},
                          .capturePorts = state.portsOf(id, false, false),
                          .playbackPorts = state.portsOf(id, true, false)};
        const bool isSink = mediaClass == "Audio/Sink";
        // a virtual source or a duplex device may capture from monitor ports
        if (!isSink && found.capturePorts.empty())
            found.capturePorts = state.portsOf(id, false, true);
        if (mediaClass.starts_with("Audio/Source"))
            found.playbackPorts.clear();
        addFound(state, std::move(found), devices);
        if (isSink)
            addFound(state,
                     {.key = monitorKey(keyOf(state, node)),
                      .node = id,
                      .isMonitor = true,
                      .description = {},
                      .capturePorts = state.portsOf(id, false, true),
                      .playbackPorts = {}},
                     devices);
    }
    return devices;
}

bool serves(const Route& route, std::int32_t profileDevice, bool isInput)
{
    return route.isInput == isInput &&
           std::ranges::find(route.profileDevices, profileDevice) != route.profileDevices.end();
}

std::optional<RoutePlace> routePlace(const ServerState& state, std::uint32_t nodeID, bool isInput)
{
    const auto node = state.nodes.find(nodeID);
    if (node == state.nodes.end() || text(node->second.properties, "card.profile.device").empty())
        return {};
    const Card* const card = cardOf(state, node->second);
    if (!card)
        return {};
    RoutePlace place{.card = static_cast<std::uint32_t>(wholeNumber(node->second.properties, PW_KEY_DEVICE_ID, 0)),
                     .profileDevice =
                         static_cast<std::int32_t>(wholeNumber(node->second.properties, "card.profile.device", -1)),
                     .current = nullptr};
    for (const Route& route : card->currentRoutes)
        if (route.profileDevice == place.profileDevice && route.isInput == isInput)
            place.current = &route;
    return place;
}

std::string defaultNode(const ServerState& state, const std::vector<FoundDevice>& devices, bool isInput)
{
    const auto nameOf = [&](const FoundDevice& device) {
        return text(state.nodes.at(device.node).properties, PW_KEY_NODE_NAME);
    };
    const auto canBe = [isInput](const FoundDevice& device) {
        return canBeDefault(device.description, isInput ? kAudioHardwarePropertyDefaultInputDevice
                                                        : kAudioHardwarePropertyDefaultOutputDevice);
    };
    // without a session manager at most the second exists
    for (const char* const key : {"default.audio.", "default.configured.audio."}) {
        std::string name = nameInValue(text(state.defaults, std::string(key).append(isInput ? "source" : "sink")));
        if (std::ranges::any_of(devices, [&](const auto& each) { return canBe(each) && nameOf(each) == name; }))
            return name;
    }
    const FoundDevice* best = nullptr;
    const auto number = [&](const FoundDevice& device, const char* key) {
        return wholeNumber(state.nodes.at(device.node).properties, key, 0);
    };
    for (const FoundDevice& each : devices) {
        if (!canBe(each))
            continue;
        const long ahead = best ? number(each, PW_KEY_PRIORITY_SESSION) - number(*best, PW_KEY_PRIORITY_SESSION) : 1;
        if (ahead > 0 || (ahead == 0 && number(each, PW_KEY_OBJECT_SERIAL) < number(*best, PW_KEY_OBJECT_SERIAL)))
            best = &each;
    }
    return best ? nameOf(*best) : std::string();
}

} // namespace qmx::pipewire
