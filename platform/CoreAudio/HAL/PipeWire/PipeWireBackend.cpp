// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/PipeWire/PipeWireBackend.h"

#include "CoreAudio/HAL/MonotonicClock.h"
#include "Foundation/Text/Log.h"

#include <algorithm>
#include <chrono>

namespace qmx::pipewire
{
namespace
{

constexpr std::chrono::milliseconds betweenLooks(200);

} // namespace

PipeWireBackend& PipeWireBackend::shared()
{
    static auto* const backend = new PipeWireBackend;
    return *backend;
}

PipeWireBackend::PipeWireBackend() : connection_([this] { wake(); }) {}

void PipeWireBackend::begin(HardwareSink& sink)
{
    sink_ = &sink;
    looksAgain_ = !keepConnected();
    if (!looksAgain_) {
        const Connection::Lock lock(connection_);
        connection_.waitUntil([this] { return !connection_.isConnected() || connection_.isSettled(); });
    }
    report();
    if (!housekeeper_.start())
        Log("PipeWire: no thread to follow the devices with; they stay as they are until there is one");
}

void PipeWireBackend::wake()
{
    const std::scoped_lock lock(workMutex_);
    hasWork_ = true;
    workCame_.notify_one();
}

void PipeWireBackend::dispose(std::shared_ptr<FilterRun> run)
{
    const std::scoped_lock lock(workMutex_);
    disposed_.push_back(std::move(run));
    hasWork_ = true;
    workCame_.notify_one();
}

void PipeWireBackend::keepHouse()
{
    for (;;) {
        waitForWork();
        const bool isConnected = keepConnected();
        report();
        const bool allRun = keepRunning();
        const std::scoped_lock lock(workMutex_);
        looksAgain_ = !isConnected || !allRun;
    }
}

bool PipeWireBackend::keepRunning()
{
    bool allRun = true;
    for (const Reported& each : reported()) {
        allRun = each.device->mend() && allRun;
        for (const bool isInput : each.device->takeOverload())
            sink_->announce(each.id, {kAudioDeviceProcessorOverload, 0, isInput});
    }
    return allRun;
}

void PipeWireBackend::waitForWork()
{
    std::vector<std::shared_ptr<FilterRun>> ended;
    std::unique_lock lock(workMutex_);
    const auto hasWork = [this] { return hasWork_; };
    if (looksAgain_)
        workCame_.wait_for(lock, betweenLooks, hasWork);
    else
        workCame_.wait(lock, hasWork);
    hasWork_ = false;
    ended.swap(disposed_);
    lock.unlock();
    ended.clear();
}

bool PipeWireBackend::keepConnected()
{
    if (!connection_.open())
        return false;
    const Connection::Lock lock(connection_);
    if (connection_.isLost())
        connection_.disconnect();
    return connection_.isConnected() || connection_.connect();
}

std::string PipeWireBackend::failure()
{
    if (connection_.isOpen()) {
        const Connection::Lock lock(connection_);
        if (connection_.isConnected())
            return {};
    }
    return "The sound server (PipeWire) does not run, or this program may not use it";
}

// No value while the server's state is incomplete; the housekeeper is woken again when it is complete.
std::optional<PipeWireBackend::Present> PipeWireBackend::present()
{
    if (!connection_.isOpen())
        return {};
    const Connection::Lock lock(connection_);
    if (connection_.isConnected() && !connection_.isSettled())
        return {};
    Present present{.devices = foundDevices(connection_.state()),
                    .keys = nodeKeys(connection_.state()),
                    .defaultInput = {},
                    .defaultOutput = {}};
    present.defaultInput = defaultNode(connection_.state(), present.devices, true);
    present.defaultOutput = defaultNode(connection_.state(), present.devices, false);
    return present;
}

void PipeWireBackend::report()
{
    const std::optional<Present> now = present();
    if (!now)
        return;
    const std::vector<AudioDeviceID> removed = dropAbsent(*now);
    const auto added = addNew(*now);
    const AudioDeviceID output = idOf(now->defaultOutput);
    sink_->devicesChanged(removed, added, {.input = idOf(now->defaultInput), .output = output, .systemOutput = output});
    sink_->waitForRemoved(removed);
    for (const FoundDevice& each : now->devices)
        reportDevice(each);
}

std::vector<AudioDeviceID> PipeWireBackend::dropAbsent(const Present& present)
{
    std::vector<AudioDeviceID> removed;
    const std::scoped_lock lock(reportedMutex_);
    std::erase_if(reported_, [&](const auto& entry) {
        if (present.keys.contains(entry.first))
            return false;
        removed.push_back(entry.second.id);
        return true;
    });
    return removed;
}

std::vector<std::pair<AudioDeviceID, NewDevice>> PipeWireBackend::addNew(const Present& present)
{
    std::vector<std::pair<AudioDeviceID, NewDevice>> added;
    Housekeeping& housekeeping = *this;
    const Connection::Lock connectionLock(connection_);
    const std::scoped_lock lock(reportedMutex_);
    for (const FoundDevice& found : present.devices) {
        if (reported_.contains(found.key))
            continue;
        const std::string& uid = found.description.uid;
        auto device = std::make_shared<PipeWireDevice>(connection_, housekeeping, found.key, requested_[uid]);
        DeviceDescription description = found.description;
        device->complete(description);
        const AudioDeviceID id = sink_->makeID();
        reported_[found.key] = {.id = id, .uid = uid, .device = device};
        added.emplace_back(id, NewDevice{std::move(description), std::move(device)});
    }
    return added;
}

void PipeWireBackend::reportDevice(const FoundDevice& found)
{
    DeviceDescription description = found.description;
    AudioDeviceID id = kAudioDeviceUnknown;
    {
        const Connection::Lock connectionLock(connection_);
        const std::scoped_lock lock(reportedMutex_);
        const Reported& known = reported_.at(found.key);
        known.device->complete(description);
        id = known.id;
    }
    sink_->deviceChanged(id, description);
}

AudioDeviceID PipeWireBackend::idOf(const std::string& uid)
{
    const std::scoped_lock lock(reportedMutex_);
    const auto found = std::ranges::find_if(reported_, [&uid](const auto& entry) { return entry.second.uid == uid; });
    return found == reported_.end() ? kAudioDeviceUnknown : found->second.id;
}

std::vector<PipeWireBackend::Reported> PipeWireBackend::reported()
{
    const std::scoped_lock lock(reportedMutex_);
    std::vector<Reported> all;
    for (const auto& [key, each] : reported_)
        all.push_back(each);
    return all;
}

// The server has no separate default for system sounds: it is the default output.
OSStatus PipeWireBackend::setDefaultDevice(AudioHardwarePropertyID which, AudioDeviceID device)
{
    const std::vector<Reported> all = reported();
    const auto wanted = std::ranges::find(all, device, &Reported::id);
    if (wanted == all.end())
        return kAudioHardwareBadDeviceError;
    const bool isInput = which == kAudioHardwarePropertyDefaultInputDevice;
    const Connection::Lock lock(connection_);
    if (!connection_.isConnected() ||
        !connection_.objects()->setDefault(
            isInput ? "default.configured.audio.source" : "default.configured.audio.sink", wanted->uid))
        return kAudioHardwareUnspecifiedError;
    return noErr;
}

OSStatus PipeWireBackend::setBootChimeVolume(Float32)
{
    return kAudioHardwareUnknownPropertyError;
}

UInt64 PipeWireBackend::hostTime()
{
    return monotonicTime();
}

OSStatus PipeWireBackend::admit(HardwareOperation, UInt32, const PropertyAddress&)
{
    housekeeper_.start(); // tries again if no thread was left for it before
    return noErr;
}

} // namespace qmx::pipewire
