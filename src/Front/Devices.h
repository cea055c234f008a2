// SPDX-License-Identifier: MIT
// Audio devices: which there are, what they are set to, and who comes and goes.
//
// Each call asks the hardware. Any thread but the real-time ones, unless noted.
#pragma once

#include <QMXCoreAudio/CoreAudio/AudioHardware.h>
#include <QMXCoreAudio/CoreAudio/DeviceDescription.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>
#include <QMXCoreAudio/Front/Result.h>
#include <QMXCoreAudio/Front/Tap.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class QMXAudioDevice;

namespace qmx
{

enum class Direction { input, output };

/// A device of the machine or, later, one that was: a value, cheap to copy. What a device that is gone is asked for is
/// empty, 0 or an error.
class QMX_EXPORT Device
{
public:
    /// `object` is not null.
    explicit Device(std::shared_ptr<QMXAudioDevice> object) : object_(std::move(object)) {}

    std::string name() const;
    /// What the device is known by from one run of the program to the next.
    std::string uid() const;
    /// A number that no other device of this process has or had.
    AudioDeviceID id() const;
    bool operator==(const Device& other) const { return id() == other.id(); }
    /// Whether it is plugged in.
    bool isAlive() const;

    /// Of all its streams; 0 if it lacks the direction.
    UInt32 inputChannels() const { return channels(Direction::input); }
    UInt32 outputChannels() const { return channels(Direction::output); }
    UInt32 channels(Direction direction) const;

    /// Frames per second.
    Float64 sampleRate() const;
    /// The rates that it can be set to, as ranges.
    std::vector<AudioValueRange> sampleRates() const;
    Result<void> setSampleRate(Float64 rate) const;
    /// Frames of one cycle.
    UInt32 bufferFrames() const;
    Result<void> setBufferFrames(UInt32 frames) const;
    /// Frames that pass between the hardware and a cycle: the device's own latency, safety offset and one buffer.
    UInt32 latency(Direction direction) const;

    /// The level from 0 to 1, of the whole direction (channel 0) or of one channel, counted from 1; none if the device
    /// has no such control.
    std::optional<float> volume(Direction direction, UInt32 channel = 0) const;
    Result<void> setVolume(Direction direction, float scalar, UInt32 channel = 0) const;
    /// The same in decibels.
    std::optional<float> decibels(Direction direction, UInt32 channel = 0) const;
    Result<void> setDecibels(Direction direction, float decibels, UInt32 channel = 0) const;
    /// None if the device cannot be muted there.
    std::optional<bool> isMuted(Direction direction) const;
    Result<void> setMuted(Direction direction, bool isMuted) const;

    /// Where an input takes its sound from, or an output sends it to: "Line In".
    std::vector<DataSource> dataSources(Direction direction) const;
    /// The chosen one's ID; none if there is no choice.
    std::optional<UInt32> dataSource(Direction direction) const;
    Result<void> setDataSource(Direction direction, UInt32 id) const;

    /// Calls `call(std::span<const float> samples, unsigned channels) noexcept` with what the device captures from now
    /// on: see Tap. An error if the device has no input or does not start.
    template <class Call> Result<Tap> onInput(Call call) const
    {
        return Tap::start(*object_, true, makeTapFunction<std::span<const float>>(std::move(call)));
    }
    /// Calls `call(std::span<float> samples, unsigned channels) noexcept` for what the device plays from now on, mixed
    /// with the sound of others: see Tap. The samples are silence at first.
    template <class Call> Result<Tap> onOutput(Call call) const
    {
        return Tap::start(*object_, false, makeTapFunction<std::span<float>>(std::move(call)));
    }

    /// The device object behind it, which the whole process shares if the device came from one of the lists.
    const std::shared_ptr<QMXAudioDevice>& object() const { return object_; }

private:
    std::shared_ptr<QMXAudioDevice> object_;
};

/// The devices that are plugged in, in the order in which they were first seen; those that have inputs, and outputs.
/// backendStatus() says why there are none.
QMX_EXPORT std::vector<Device> devices();
QMX_EXPORT std::vector<Device> inputDevices();
QMX_EXPORT std::vector<Device> outputDevices();
/// The device that the desktop uses unless told otherwise; an error that says why there is none.
QMX_EXPORT Result<Device> defaultInput();
QMX_EXPORT Result<Device> defaultOutput();
/// The device with that UID.
QMX_EXPORT Result<Device> device(const std::string& uid);

/// Why devices are missing: the environment variable QMX_AUDIO_BACKEND names no backend, the backend's module is not
/// installed, or no sound server runs. No error where everything is in place, with or without devices.
QMX_EXPORT Result<void> backendStatus();

/// Ends what it stands for when it is released; on the main thread, nothing is called after that.
class [[nodiscard]] Subscription
{
public:
    Subscription() = default;
    explicit Subscription(std::vector<std::shared_ptr<Object>> observers) : observers_(std::move(observers)) {}

private:
    std::vector<std::shared_ptr<Object>> observers_;
};

enum class DeviceChange {
    devices,       ///< some came or went
    defaultInput,  ///< another device is the default input now, or none is
    defaultOutput, ///< the same for the output
};

/// Calls `callback` on the main thread's run loop (RunLoop::main()) for each change, until the handle is released.
/// Never without memory.
QMX_EXPORT Subscription onDevicesChanged(std::function<void(DeviceChange)> callback);

} // namespace qmx
