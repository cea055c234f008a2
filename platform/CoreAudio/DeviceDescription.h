// SPDX-License-Identifier: MIT
// The description of a device as one record. A backend publishes a record for each of its devices, and a new one when
// something has changed; the hardware layer answers properties from it and announces the differences.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/AudioChannelLayout.h>
#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace qmx
{

/// The calls of the hardware layer, as a backend sees them.
enum class HardwareOperation {
    getPropertyInfo,
    getProperty,
    setProperty,
    addListener,
    removeListener,
    addIOProc,
    removeIOProc,
    start,
    stop,
    getTime
};

/// Which value: the property, the channel (0 for the section as a whole), the section.
struct PropertyAddress {
    UInt32 property = 0;
    UInt32 channel = 0;
    bool isInput = false;
    bool operator==(const PropertyAddress&) const = default;
    bool operator<(const PropertyAddress& other) const
    {
        return std::tie(property, channel, isInput) < std::tie(other.property, other.channel, other.isInput);
    }
};

/// One stream: channels that are interleaved in one buffer.
struct StreamDescription {
    UInt32 channels = 2;
    UInt32 terminalType = 0;
    UInt32 latency = 0; ///< frames, in addition to the device's
    /// Formats that the hardware can be set to, all packed; a rate of 0 stands for all rates of the device.
    std::vector<AudioStreamBasicDescription> physicalFormats;
    AudioStreamBasicDescription physicalFormat; ///< the current one; its rate is the device's
};

struct DataSource {
    UInt32 id = 0;
    std::optional<std::string> name; ///< none: the hardware has no name for it
    bool operator==(const DataSource&) const = default;
};

/// A level: a linear gain from 0.0 to 1.0 and its decibels (1.0 is the range's maximum, half the gain is 6 dB less, 0.0
/// is the range's minimum).
struct VolumeControl {
    Float32 scalar = 1;
    Float32 minimumDecibels = -96;
    Float32 maximumDecibels = 0;
    bool isSettable = true;
    bool operator==(const VolumeControl&) const = default;
};

struct MuteControl {
    bool isMuted = false;
    bool isSettable = true;
    bool operator==(const MuteControl&) const = default;
};

/// One direction of a device.
struct SectionDescription {
    std::vector<StreamDescription> streams; ///< none: the device lacks this direction
    std::vector<DataSource> dataSources;
    UInt32 dataSource = 0; ///< the chosen one's ID
    bool dataSourceIsSettable = true;
    std::map<UInt32, VolumeControl> volumes; ///< by channel, 0 for the master
    std::map<UInt32, MuteControl> mutes;     ///< by channel, 0 for the master
    std::optional<bool> jackIsConnected;
    UInt32 latency = 0;      ///< frames
    UInt32 safetyOffset = 0; ///< frames
    UInt32 preferredChannelsForStereo[2] = {1, 2};
    AudioChannelLayoutTag channelLayoutTag = 0; ///< 0: derived from the number of channels
    bool canBeDefaultDevice = true;
};

/// A property value that overrides the rest of the record at its address, or adds a property that the record lacks.
struct RawProperty {
    std::vector<std::byte> value;
    bool isWritable = false; ///< a value that is set replaces this one
    bool operator==(const RawProperty&) const = default;
};

struct DeviceDescription {
    std::string uid;
    std::string name;
    std::string manufacturer;
    std::string modelUID;
    UInt32 transportType = 0;
    Float64 nominalSampleRate = 44100;
    Float64 actualSampleRate = 44100;
    std::vector<AudioValueRange> availableSampleRates;
    bool sampleRateIsSettable = true;
    UInt32 bufferFrameSize = 512;
    UInt32 minimumBufferFrameSize = 16;
    UInt32 maximumBufferFrameSize = 8192;
    bool usesVariableBufferFrameSizes = false;
    bool canBeDefaultSystemDevice = true;
    bool supportsMixing = true;
    SectionDescription input;
    SectionDescription output;
    std::map<PropertyAddress, RawProperty> rawProperties;

    const SectionDescription& section(bool isInput) const { return isInput ? input : output; }
    SectionDescription& section(bool isInput) { return isInput ? input : output; }
};

/// The number of channels of all streams of a section.
QMX_EXPORT UInt32 numberOfChannels(const SectionDescription& section);

/// Packed linear PCM for a stream's physical formats: signed integer, or float for 32 bits with `isFloat`; native byte
/// order.
QMX_EXPORT AudioStreamBasicDescription packedPhysicalFormat(Float64 sampleRate, UInt32 channels, UInt32 bits,
                                                            bool isFloat = false);

} // namespace qmx
