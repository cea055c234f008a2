// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudio/AudioHardware.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>
#include <string>
#include <vector>

class QMXAudioDevice;
class QMXAudioStreamBasicDescription;
namespace qmx
{
class LastFailure;
struct PropertyBlock;
} // namespace qmx

/// One stream of a device: channels that travel together. Keeps its device alive. Each call queries the hardware; a
/// value that cannot be read is 0, null or an empty list. Any thread but the real-time ones. Streams come from the
/// factory only: do not derive from this class.
class QMX_EXPORT QMXAudioStream : public qmx::Object
{
public:
    using Formats = std::vector<std::shared_ptr<QMXAudioStreamBasicDescription>>;

    /// Without a device, all values of the stream are unknown.
    static std::shared_ptr<QMXAudioStream> initWithAudioDevice_streamID(const std::shared_ptr<QMXAudioDevice>& device,
                                                                        AudioStreamID streamID);

    /// The status of what failed in this object's last operation; 0 when nothing did. Operations that several threads
    /// have under way at once count as one.
    OSStatus lastStatus() const;
    /// The same as a sentence for people that names the device and the property, empty when nothing failed.
    std::string lastError() const;

    virtual std::shared_ptr<QMXAudioDevice> owningDevice() const = 0;
    AudioDeviceID owningDeviceID() const;
    virtual AudioStreamID streamID() const = 0;

    /// The number of its first channel in the device's section, counted from 1.
    UInt32 startingChannel() const;
    /// 1: input, 0: output.
    UInt32 streamDirection() const;
    /// What the stream leads to: a terminal code of CoreAudio/AudioDeviceTypes.h.
    UInt32 terminalType() const;
    /// The channels of all streams of the device in this direction together.
    UInt32 numberOfChannels() const;
    /// What the hardware is set to.
    std::shared_ptr<QMXAudioStreamBasicDescription> physicalFormat() const;
    /// What it can be set to; a sample rate of 0.0 stands for all rates of the device.
    Formats physicalFormats() const;
    /// The same with one rate per format: fixed-rate formats first; any-rate formats follow, expanded to one per rate
    /// of the device. A range counts in steps of 25 Hz from its minimum, limited to 8 kHz to 768 kHz; a range of one
    /// rate has that rate.
    Formats expandedPhysicalFormats() const;

private:
    class Implementation;
    QMXAudioStream() = default;
    virtual qmx::LastFailure& failure() const = 0;
    qmx::PropertyBlock read(UInt32 channel, AudioStreamPropertyID propertyID) const;
    template <class Value> Value ofDevice(Value (QMXAudioDevice::*give)(bool isInput) const) const;
};
