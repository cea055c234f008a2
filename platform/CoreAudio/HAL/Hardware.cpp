// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/Hardware.h"

#include "CoreAudio/HAL/AbsentBackend.h"
#include "CoreAudio/HAL/DescriptionChanges.h"
#include "CoreAudio/HAL/PipeWireModule.h"
#include "CoreAudio/HAL/Virtual/VirtualBackend.h"
#include "Foundation/Text/Format.h"
#include "Foundation/Text/Log.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace qmx
{
namespace
{

std::mutex choiceMutex;
std::optional<AudioBackend> chosenBackend; // guarded by choiceMutex
bool backendIsFixed = false;               // guarded by choiceMutex
std::string unknownBackend;                // the name in the environment, if it is none; guarded by choiceMutex

#ifdef QMX_WITH_PIPEWIRE
constexpr bool hasPipeWire = true;
#else
constexpr bool hasPipeWire = false;
#endif

AudioBackend backendFromEnvironment()
{
    const char* const name = std::getenv("QMX_AUDIO_BACKEND");
    const std::string_view wanted = name ? name : "";
    constexpr AudioBackend usual = hasPipeWire ? AudioBackend::pipeWire : AudioBackend::virtualHardware;
    if (wanted == "virtual")
        return AudioBackend::virtualHardware;
    if (wanted == "pipewire" && hasPipeWire)
        return AudioBackend::pipeWire;
    unknownBackend = wanted;
    if (!wanted.empty())
        Log("QMX_AUDIO_BACKEND: \"%@\" is not built in; the usual one is used", wanted);
    return usual;
}

Backend& makeBackend(AudioBackend backend)
{
    if (backend == AudioBackend::virtualHardware)
        return VirtualBackend::shared();
    if (const PipeWireModule* const module = PipeWireModule::find())
        return module->backend();
    return AbsentBackend::shared();
}

AudioBackend fixBackend()
{
    const std::scoped_lock lock(choiceMutex);
    if (!chosenBackend)
        chosenBackend = backendFromEnvironment();
    backendIsFixed = true;
    return *chosenBackend;
}

} // namespace

Hardware& Hardware::shared()
{
    static Hardware* const hardware = [] {
        auto* const made = new Hardware(makeBackend(fixBackend()));
        made->backend_.begin(*made);
        const std::scoped_lock lock(made->mutex_);
        made->listChangesRead_ = made->listChanges_; // the initial devices do not count as a change
        return made;
    }();
    return *hardware;
}

OSStatus Hardware::choose(AudioBackend backend)
{
    if (backend == AudioBackend::pipeWire && !PipeWireModule::find())
        return kAudioHardwareUnsupportedOperationError;
    const std::scoped_lock lock(choiceMutex);
    if (backendIsFixed && chosenBackend != backend)
        return kAudioHardwareIllegalOperationError;
    chosenBackend = backend;
    return noErr;
}

std::string Hardware::failure()
{
    {
        const std::scoped_lock lock(choiceMutex);
        if (!unknownBackend.empty())
            return format("QMX_AUDIO_BACKEND is \"%@\", which names no backend of this library", unknownBackend);
        std::string missing =
            chosenBackend == AudioBackend::virtualHardware ? std::string() : PipeWireModule::failure();
        if (!missing.empty() || !backendIsFixed)
            return missing;
    }
    return shared().backend().failure();
}

OSStatus Hardware::admit(HardwareOperation operation, UInt32 object, const PropertyAddress& address)
{
    return backend_.admit(operation, object, address);
}

std::shared_ptr<HardwareDevice> Hardware::device(AudioDeviceID id)
{
    const std::scoped_lock lock(mutex_);
    const auto found = std::ranges::find(devices_, id, &HardwareDevice::id);
    return found == devices_.end() ? nullptr : *found;
}

std::shared_ptr<HardwareDevice> Hardware::deviceOrRemains(AudioDeviceID id)
{
    if (auto found = device(id))
        return found;
    const std::scoped_lock lock(mutex_);
    const auto found = remains_.find(id);
    return found == remains_.end() ? nullptr : found->second;
}

std::optional<DeviceView> Hardware::view(AudioDeviceID id)
{
    const std::scoped_lock lock(mutex_);
    const auto found = std::ranges::find(devices_, id, &HardwareDevice::id);
    if (found == devices_.end())
        return {};
    DeviceView view = (*found)->view;
    view.isRunning = (*found)->io->hasRunningProcedures();
    return view;
}

std::optional<FoundStream> Hardware::stream(AudioStreamID id)
{
    const std::scoped_lock lock(mutex_);
    for (const auto& device : devices_)
        for (const bool isInput : {true, false}) {
            const auto& ids = device->view.streams(isInput);
            if (const auto found = std::ranges::find(ids, id); found != ids.end())
                return FoundStream{
                    device->view, device->backend, {isInput, static_cast<std::size_t>(found - ids.begin())}};
        }
    return {};
}

void Hardware::forgetRemains(HardwareDevice& device)
{
    std::shared_ptr<HardwareDevice> forgotten;
    const std::scoped_lock lock(mutex_);
    if (const auto found = remains_.find(device.id); found != remains_.end() && !device.io->hasProcedures()) {
        forgotten = std::move(found->second);
        remains_.erase(found);
    }
}

DeviceList Hardware::devices()
{
    const std::scoped_lock lock(mutex_);
    DeviceList list{.ids = {}, .changes = listChanges_};
    for (const auto& device : devices_)
        if (device->isListed)
            list.ids.push_back(device->id);
    return list;
}

void Hardware::noteRead(const DeviceList& list)
{
    const std::scoped_lock lock(mutex_);
    listChangesRead_ = std::max(listChangesRead_, list.changes);
}

bool Hardware::devicesChangedSinceRead()
{
    const std::scoped_lock lock(mutex_);
    return listChanges_ != listChangesRead_;
}

std::optional<AudioDeviceID> Hardware::deviceForUID(const std::string& uid)
{
    const std::scoped_lock lock(mutex_);
    const auto found =
        std::ranges::find_if(devices_, [&uid](const auto& device) { return device->view.description->uid == uid; });
    return found == devices_.end() ? std::nullopt : std::optional((*found)->id);
}

DefaultDevices Hardware::defaults()
{
    const std::scoped_lock lock(mutex_);
    return defaults_;
}

std::optional<VolumeControl> Hardware::bootChime()
{
    const std::scoped_lock lock(mutex_);
    return bootChime_;
}

OSStatus Hardware::startDevice(const std::shared_ptr<HardwareDevice>& device)
{
    const std::scoped_lock starting(device->startMutex);
    if (device->ioRuns || !device->io->hasRunningProcedures()) // stopped meanwhile, when nothing ran yet
        return noErr;
    std::shared_ptr<const DeviceDescription> description;
    {
        const std::scoped_lock lock(mutex_);
        if (!device->isAlive)
            return kAudioHardwareBadDeviceError;
        description = device->view.description;
    }
    device->io->prepare(*description);
    if (const OSStatus status = device->backend->startIO(device->io, *description))
        return status;
    setRunning(*device, true);
    return noErr;
}

void Hardware::stopDeviceIfIdle(const std::shared_ptr<HardwareDevice>& device)
{
    const std::scoped_lock starting(device->startMutex);
    if (!device->ioRuns || device->io->hasRunningProcedures())
        return;
    device->backend->stopIO();
    setRunning(*device, false);
}

void Hardware::setRunning(HardwareDevice& device, bool runs)
{
    device.ioRuns = runs;
    const std::scoped_lock lock(mutex_);
    const DeviceView before = device.view;
    device.view.isRunning = runs;
    if (device.isAlive)
        announceChanges(before, device.view);
}

void Hardware::announceChanges(const DeviceView& before, const DeviceView& after)
{
    for (const PropertyChange& change : changesBetween(before, after))
        listeners_.announce(change.stream == kAudioStreamUnknown ? after.id : change.stream, change.address);
}

// A stream keeps its ID while its place in the device exists.
void Hardware::numberStreams(DeviceView& view)
{
    for (const bool isInput : {true, false}) {
        auto& ids = isInput ? view.inputStreams : view.outputStreams;
        const std::size_t count = view.description->section(isInput).streams.size();
        if (ids.size() > count)
            ids.resize(count);
        while (ids.size() < count)
            ids.push_back(makeID());
    }
}

void Hardware::devicesChanged(std::span<const AudioDeviceID> removed,
                              std::span<const std::pair<AudioDeviceID, NewDevice>> added,
                              const DefaultDevices& defaults)
{
    std::vector<std::shared_ptr<HardwareDevice>> gone;
    std::vector<AudioDeviceID> newcomers;
    DefaultDevices before;
    {
        const std::scoped_lock lock(mutex_);
        before = std::exchange(defaults_, defaults); // whoever hears that a device is gone looks for the new default
        for (const AudioDeviceID id : removed)
            if (std::shared_ptr<HardwareDevice> device = takeOut(id))
                gone.push_back(std::move(device));
        for (const auto& [id, newDevice] : added) {
            putIn(id, newDevice, gone.empty());
            newcomers.push_back(id);
        }
    }
    for (const std::shared_ptr<HardwareDevice>& device : gone)
        end(device);
    const bool someWent = !gone.empty();
    const std::scoped_lock lock(mutex_);
    if (someWent || !added.empty()) {
        ++listChanges_;
        announceHardware(kAudioHardwarePropertyDevices);
    }
    if (someWent && !added.empty())
        listeners_.announce(0, {.property = kAudioHardwarePropertyDevices}, [this, newcomers] { list(newcomers); });
    if (before.input != defaults.input)
        announceHardware(kAudioHardwarePropertyDefaultInputDevice);
    if (before.output != defaults.output)
        announceHardware(kAudioHardwarePropertyDefaultOutputDevice);
    if (before.systemOutput != defaults.systemOutput)
        announceHardware(kAudioHardwarePropertyDefaultSystemOutputDevice);
}

void Hardware::list(std::span<const AudioDeviceID> newcomers)
{
    const std::scoped_lock lock(mutex_);
    ++listChanges_;
    for (const auto& device : devices_)
        if (std::ranges::find(newcomers, device->id) != newcomers.end())
            device->isListed = true;
}

// With the tables' lock held.
void Hardware::putIn(AudioDeviceID id, const NewDevice& newDevice, bool isListed)
{
    auto device = std::make_shared<HardwareDevice>();
    device->id = id;
    device->isListed = isListed;
    device->backend = newDevice.device;
    device->io = std::make_shared<DeviceIO>(id, [this, id] {
        if (const auto idle = this->device(id))
            stopDeviceIfIdle(idle);
    });
    device->view.id = id;
    device->view.description = std::make_shared<const DeviceDescription>(newDevice.description);
    numberStreams(device->view);
    devices_.push_back(std::move(device));
}

// With the tables' lock held.
std::shared_ptr<HardwareDevice> Hardware::takeOut(AudioDeviceID id)
{
    const auto found = std::ranges::find(devices_, id, &HardwareDevice::id);
    if (found == devices_.end())
        return nullptr;
    std::shared_ptr<HardwareDevice> device = std::move(*found);
    devices_.erase(found);
    device->isAlive = false;
    remains_.emplace(id, device);
    for (const bool isInput : announcedSections(*device->view.description))
        listeners_.announce(id, {kAudioDevicePropertyDeviceIsAlive, 0, isInput});
    return device;
}

// Waits neither for the notification thread nor for the device's clients.
void Hardware::end(const std::shared_ptr<HardwareDevice>& device)
{
    {
        const std::scoped_lock starting(device->startMutex);
        if (device->ioRuns)
            device->backend->stopIO();
        device->ioRuns = false;
    }
    device->io->stopAll();
}

void Hardware::waitForRemoved(std::span<const AudioDeviceID> removed)
{
    for (const AudioDeviceID id : removed)
        if (const auto remains = deviceOrRemains(id)) {
            remains->io->waitForCycle();
            forgetRemains(*remains);
        }
}

void Hardware::deviceChanged(AudioDeviceID id, const DeviceDescription& description)
{
    auto next = std::make_shared<const DeviceDescription>(description);
    const std::scoped_lock lock(mutex_);
    const auto found = std::ranges::find(devices_, id, &HardwareDevice::id);
    if (found == devices_.end())
        return;
    DeviceView& view = (*found)->view;
    const DeviceView before = view;
    view.description = std::move(next);
    numberStreams(view);
    announceChanges(before, view);
}

void Hardware::bootChimeChanged(const std::optional<VolumeControl>& volume)
{
    const std::scoped_lock lock(mutex_);
    for (const AudioHardwarePropertyID property : bootChimeChanges(bootChime_, volume))
        announceHardware(property);
    bootChime_ = volume;
}

void Hardware::announce(AudioDeviceID device, const PropertyAddress& address)
{
    listeners_.announce(device, address);
}

void Hardware::announceHardware(AudioHardwarePropertyID property)
{
    listeners_.announce(0, {property, 0, false});
}

} // namespace qmx
