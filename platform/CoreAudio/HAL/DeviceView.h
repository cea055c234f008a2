// SPDX-License-Identifier: MIT
// What properties are answered from, and their answers. Plain functions of the record: no lock, no state.
#pragma once

#include "CoreAudio/HAL/Backend.h"
#include "CoreAudio/HAL/PropertyValue.h"

#include <memory>
#include <optional>
#include <vector>

namespace qmx
{

/// One moment of a device.
struct DeviceView {
    AudioDeviceID id = kAudioDeviceUnknown;
    std::shared_ptr<const DeviceDescription> description;
    std::vector<AudioStreamID> inputStreams;
    std::vector<AudioStreamID> outputStreams;
    bool isRunning = false;

    const std::vector<AudioStreamID>& streams(bool isInput) const { return isInput ? inputStreams : outputStreams; }
};

/// Where a stream is.
struct StreamPlace {
    bool isInput = false;
    std::size_t index = 0;
};

/// A property's value; none where the device lacks it.
std::optional<PropertyValue> deviceProperty(const DeviceView& device, const PropertyAddress& address);
std::optional<PropertyValue> streamProperty(const DeviceView& device, StreamPlace place,
                                            AudioStreamPropertyID property);

std::optional<PropertyValue> bootChimeProperty(const std::optional<VolumeControl>& volume,
                                               AudioHardwarePropertyID property);

/// Whether a device can be a default ('dIn ', 'dOut' or 'sOut'): it says so, and has streams in that direction.
bool canBeDefault(const DeviceDescription& device, AudioHardwarePropertyID which);

/// Properties that read their question from the caller's block: the status of the answer; none for other properties.
std::optional<OSStatus> translateDeviceProperty(const DeviceView& device, const PropertyAddress& address,
                                                UInt32* ioSize, void* block);
std::optional<OSStatus> translateStreamProperty(const DeviceView& device, StreamPlace place,
                                                AudioStreamPropertyID property, UInt32* ioSize, void* block);

/// What a caller wants to be set, checked against the record: a request for the backend, nothing when the value is
/// there already.
struct CheckedRequest {
    OSStatus status = noErr;
    std::optional<DeviceRequest> request;
};
CheckedRequest deviceRequest(const DeviceView& device, const PropertyAddress& address, UInt32 size, const void* data);
CheckedRequest streamRequest(const DeviceView& device, StreamPlace place, AudioStreamPropertyID property, UInt32 size,
                             const void* data);

/// The gain that a caller wants a control to have, in decibels or as it is: kAudioHardwareIllegalOperationError unless
/// it is a number.
OSStatus takeVolume(const VolumeControl& volume, bool isDecibels, UInt32 size, const void* data, Float32& scalar);

// Parts of these that formats have in common (StreamFormats.cpp).

/// Which stream of a section carries a channel (the first one for channel 0); none beyond the last.
std::optional<std::size_t> streamOfChannel(const SectionDescription& section, UInt32 channel);
/// The section's channel that is a stream's first, from 1.
UInt32 startingChannel(const SectionDescription& section, std::size_t stream);
/// What procedures see: native 32-bit float, interleaved, at the device's rate.
AudioStreamBasicDescription virtualFormat(const DeviceDescription& device, const StreamDescription& stream);
bool hasSampleRate(const DeviceDescription& device, Float64 rate);
std::optional<PropertyValue> formatProperty(const DeviceDescription& device, const StreamDescription& stream,
                                            UInt32 property);
std::optional<OSStatus> translateFormat(const DeviceDescription& device, const StreamDescription& stream,
                                        UInt32 property, UInt32* ioSize, void* block);
CheckedRequest formatRequest(const DeviceDescription& device, StreamPlace place, UInt32 property, UInt32 size,
                             const void* data);

/// Linear gain and decibels of a control.
Float32 decibelsOf(const VolumeControl& volume, Float32 scalar);
Float32 scalarOf(const VolumeControl& volume, Float32 decibels);

} // namespace qmx
