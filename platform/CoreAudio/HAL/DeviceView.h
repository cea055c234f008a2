// SPDX-License-Identifier: MIT
// The snapshot that properties are read from, and their values. Plain functions of the record: no lock, no state.
#pragma once

#include "CoreAudio/HAL/Backend.h"
#include "CoreAudio/HAL/PropertyValue.h"

#include <memory>
#include <optional>
#include <vector>

namespace qmx
{

/// A device at one moment.
struct DeviceView {
    AudioDeviceID id = kAudioDeviceUnknown;
    std::shared_ptr<const DeviceDescription> description;
    std::vector<AudioStreamID> inputStreams;
    std::vector<AudioStreamID> outputStreams;
    bool isRunning = false;

    const std::vector<AudioStreamID>& streams(bool isInput) const { return isInput ? inputStreams : outputStreams; }
};

/// The place of a stream in its device.
struct StreamPlace {
    bool isInput = false;
    std::size_t index = 0;
};

/// A property's value; none if the device lacks it.
std::optional<PropertyValue> deviceProperty(const DeviceView& device, const PropertyAddress& address);
std::optional<PropertyValue> streamProperty(const DeviceView& device, StreamPlace place,
                                            AudioStreamPropertyID property);

std::optional<PropertyValue> bootChimeProperty(const std::optional<VolumeControl>& volume,
                                               AudioHardwarePropertyID property);

/// Whether a device can be a default ('dIn ', 'dOut' or 'sOut'): its record allows it, and it has streams in that
/// direction.
QMX_MODULE_EXPORT bool canBeDefault(const DeviceDescription& device, AudioHardwarePropertyID which);

/// Answers properties that translate a value from the caller's block; no status for other properties.
std::optional<OSStatus> translateDeviceProperty(const DeviceView& device, const PropertyAddress& address,
                                                UInt32* ioSize, void* block);
std::optional<OSStatus> translateStreamProperty(const DeviceView& device, StreamPlace place,
                                                AudioStreamPropertyID property, UInt32* ioSize, void* block);

/// A value that a caller sets, checked against the record: a request for the backend, or none if the value is set
/// already.
struct CheckedRequest {
    OSStatus status = noErr;
    std::optional<DeviceRequest> request;
};
CheckedRequest deviceRequest(const DeviceView& device, const PropertyAddress& address, UInt32 size, const void* data);
CheckedRequest streamRequest(const DeviceView& device, StreamPlace place, AudioStreamPropertyID property, UInt32 size,
                             const void* data);

/// Reads the gain that a caller sets, in decibels or linear; kAudioHardwareIllegalOperationError unless it is a number.
OSStatus takeVolume(const VolumeControl& volume, bool isDecibels, UInt32 size, const void* data, Float32& scalar);

// The parts about formats (StreamFormats.cpp).

/// The index of the stream that carries a channel of a section (0 for channel 0); none beyond the last channel.
std::optional<std::size_t> streamOfChannel(const SectionDescription& section, UInt32 channel);
/// The channel of the section, counted from 1, that is a stream's first.
UInt32 startingChannel(const SectionDescription& section, std::size_t stream);
/// The format that procedures see: native 32-bit float, interleaved, at the device's rate.
AudioStreamBasicDescription virtualFormat(const DeviceDescription& device, const StreamDescription& stream);
bool hasSampleRate(const DeviceDescription& device, Float64 rate);
std::optional<PropertyValue> formatProperty(const DeviceDescription& device, const StreamDescription& stream,
                                            UInt32 property);
std::optional<OSStatus> translateFormat(const DeviceDescription& device, const StreamDescription& stream,
                                        UInt32 property, UInt32* ioSize, void* block);
CheckedRequest formatRequest(const DeviceDescription& device, StreamPlace place, UInt32 property, UInt32 size,
                             const void* data);

/// Converts a control's linear gain and decibels.
Float32 decibelsOf(const VolumeControl& volume, Float32 scalar);
Float32 scalarOf(const VolumeControl& volume, Float32 decibels);

} // namespace qmx
