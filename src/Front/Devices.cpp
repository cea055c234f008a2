// SPDX-License-Identifier: MIT
#include "Front/Devices.h"

#include "Devices/QMXAudioDevice.h"
#include "Devices/QMXAudioDeviceNotifications.h"
#include "Formats/PropertyBlock.h"
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/Text/Format.h"
#include "Front/ShortMemory.h"
#include "Front/StatusText.h"

namespace
{

using qmx::Device;
using qmx::Direction;
using qmx::Error;
using qmx::Result;

constexpr bool isInput(Direction direction)
{
    return direction == Direction::input;
}

template <class Value>
std::optional<Value> read(const Device& device, AudioDevicePropertyID property, Direction direction, UInt32 channel = 0)
{
    const auto value = qmx::readDeviceProperty(device.id(), property, channel, isInput(direction));
    return value.status == noErr ? std::optional(value.first<Value>()) : std::nullopt;
}

/// `what` ends the sentence about a device that refuses: "could not change its sample rate".
template <class Value>
Result<void> set(const Device& device, AudioDevicePropertyID property, Direction direction, UInt32 channel,
                 const Value& value, const char* what)
{
    return qmx::orNoMemory([&]() -> Result<void> {
        const OSStatus status =
            qmx::setDeviceProperty(device.id(), property, channel, isInput(direction), sizeof value, &value);
        if (status != noErr)
            return Error(status, device.name() + " " + what + ": " + qmx::statusText(status));
        return {};
    });
}

template <class Wanted> std::vector<Device> devicesWhere(Wanted wanted)
{
    return qmx::withinMemory(std::vector<Device>(), [&] {
        std::vector<Device> found;
        for (const auto& object : QMXAudioDevice::allDevicesArray().snapshot())
            if (Device device(object); device.isAlive() && wanted(device))
                found.push_back(std::move(device));
        return found;
    });
}

Result<Device> defaultDevice(std::shared_ptr<QMXAudioDevice> object, const char* missing)
{
    if (object)
        return Device(std::move(object));
    if (const auto backend = qmx::backendStatus(); !backend)
        return backend.error();
    return Error(kAudioHardwareBadDeviceError, missing);
}

} // namespace

namespace qmx
{

std::string Device::name() const
{
    return object_->name().value_or(format("Device %u", id()));
}

std::string Device::uid() const
{
    return object_->deviceUID().value_or("");
}

AudioDeviceID Device::id() const
{
    return object_->deviceID();
}

bool Device::isAlive() const
{
    return object_->isAlive();
}

UInt32 Device::channels(Direction direction) const
{
    return object_->numberOfChannels(isInput(direction));
}

Float64 Device::sampleRate() const
{
    return object_->nominalSampleRate(channels(Direction::input) > 0);
}

std::vector<AudioValueRange> Device::sampleRates() const
{
    return readDeviceProperty(id(), kAudioDevicePropertyAvailableNominalSampleRates, 0, false)
        .entries<AudioValueRange>();
}

Result<void> Device::setSampleRate(Float64 rate) const
{
    return set(*this, kAudioDevicePropertyNominalSampleRate, Direction::output, 0, rate,
               "could not change its sample rate");
}

UInt32 Device::bufferFrames() const
{
    return object_->bufferFrameSize(false);
}

Result<void> Device::setBufferFrames(UInt32 frames) const
{
    return set(*this, kAudioDevicePropertyBufferFrameSize, Direction::output, 0, frames,
               "could not change the frames of its cycles");
}

UInt32 Device::latency(Direction direction) const
{
    return object_->latency(isInput(direction)) + object_->safetyOffset(isInput(direction)) + bufferFrames();
}

std::optional<float> Device::volume(Direction direction, UInt32 channel) const
{
    return read<Float32>(*this, kAudioDevicePropertyVolumeScalar, direction, channel);
}

Result<void> Device::setVolume(Direction direction, float scalar, UInt32 channel) const
{
    return set(*this, kAudioDevicePropertyVolumeScalar, direction, channel, scalar, "could not change its volume");
}

std::optional<float> Device::decibels(Direction direction, UInt32 channel) const
{
    return read<Float32>(*this, kAudioDevicePropertyVolumeDecibels, direction, channel);
}

Result<void> Device::setDecibels(Direction direction, float decibels, UInt32 channel) const
{
    return set(*this, kAudioDevicePropertyVolumeDecibels, direction, channel, decibels, "could not change its volume");
}

std::optional<bool> Device::isMuted(Direction direction) const
{
    const auto value = read<UInt32>(*this, kAudioDevicePropertyMute, direction);
    return value ? std::optional(*value != 0) : std::nullopt;
}

Result<void> Device::setMuted(Direction direction, bool isMuted) const
{
    return set(*this, kAudioDevicePropertyMute, direction, 0, UInt32{isMuted}, "could not be muted or unmuted");
}

std::vector<DataSource> Device::dataSources(Direction direction) const
{
    std::vector<DataSource> sources;
    const auto ids = readDeviceProperty(id(), kAudioDevicePropertyDataSources, 0, isInput(direction));
    for (const UInt32 source : ids.entries<UInt32>())
        sources.push_back({source, object_->dataSourceNameForID_isInput(source, isInput(direction))});
    return sources;
}

std::optional<UInt32> Device::dataSource(Direction direction) const
{
    return read<UInt32>(*this, kAudioDevicePropertyDataSource, direction);
}

Result<void> Device::setDataSource(Direction direction, UInt32 id) const
{
    return set(*this, kAudioDevicePropertyDataSource, direction, 0, id, "could not change its data source");
}

std::vector<Device> devices()
{
    return devicesWhere([](const Device&) { return true; });
}

std::vector<Device> inputDevices()
{
    return devicesWhere([](const Device& each) { return each.inputChannels() > 0; });
}

std::vector<Device> outputDevices()
{
    return devicesWhere([](const Device& each) { return each.outputChannels() > 0; });
}

Result<Device> defaultInput()
{
    return defaultDevice(QMXAudioDevice::defaultInputDevice(), "There is no input device");
}

Result<Device> defaultOutput()
{
    return defaultDevice(QMXAudioDevice::defaultOutputDevice(), "There is no output device");
}

Result<Device> device(const std::string& uid)
{
    for (Device& each : devices())
        if (each.uid() == uid)
            return std::move(each);
    return defaultDevice(nullptr, (uid + ": there is no such device").c_str());
}

Result<void> backendStatus()
{
    QMXAudioDevice::initialize(); // before the first use of a device nothing is known
    if (std::string failure = audioBackendFailure(); !failure.empty())
        return Error(kAudioHardwareNotRunningError, std::move(failure));
    return {};
}

Subscription onDevicesChanged(std::function<void(DeviceChange)> callback)
{
    return withinMemory(Subscription(), [&] {
        std::vector<std::shared_ptr<Object>> observers;
        for (const auto& [name, change] :
             {std::pair(QMXAudioHardwareDevicesDidChangeNotification, DeviceChange::devices),
              std::pair(QMXAudioHardwareDefaultInputDeviceDidChangeNotification, DeviceChange::defaultInput),
              std::pair(QMXAudioHardwareDefaultOutputDeviceDidChangeNotification, DeviceChange::defaultOutput)})
            observers.push_back(NotificationCenter::defaultCenter().observe(
                name, QMXAudioDevice::classObject(),
                [callback, kind = change](const Notification&) { callback(kind); }));
        return Subscription(std::move(observers));
    });
}

} // namespace qmx
