// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudio/AudioHardware.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/HeapBlock.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <string>

/// Texts for people and logs from the platform's codes, and the properties of the hardware and of devices as plain
/// values. Any thread but the real-time ones.
///
/// Returned blocks are followed by at least 64 zero bytes, so that a record read from a value that is too short has
/// zeros in the rest.
class QMX_EXPORT QMXAudioDeviceUtils : public qmx::Object
{
public:
    // --- Texts

    /// What a status of the hardware layer means; a status without a text shows as number and four characters.
    static std::string errorMessage(OSStatus status);
    /// The same, followed by the property's name in parentheses.
    static std::string errorMessage_forProperty(OSStatus status, UInt32 propertyID);
    /// A coding's name, "Unknown format" if it has none.
    static std::string formatNameForID(AudioFormatID formatID);
    /// The name of the constant for a property of the hardware, of a device or of a stream. A code that a device and a
    /// stream share gives the device's name.
    static std::string propertyName(UInt32 propertyID);

    // --- The hardware as a whole. Failures are logged.

    static bool canSetHardwareProperty(AudioHardwarePropertyID propertyID);
    /// Bytes of a value; 0 on failure.
    static UInt32 hardwarePropertySize(AudioHardwarePropertyID propertyID);
    /// A value in a block of its own; null on failure.
    static qmx::HeapBlock hardwareProperty(AudioHardwarePropertyID propertyID);
    /// Sets a value from as many bytes as the property has now. Whether it was set.
    [[nodiscard]] static bool setHardwareProperty_inData(AudioHardwarePropertyID propertyID, const void* data);

    // --- Devices. `isInput` names the section, `channel` one of its channels or 0 for all. Readers log nothing, but
    // --- for a value of no bytes. Left-out arguments mean channel 0 of the input section.

    /// Bytes of a value; 0 on failure.
    static UInt32 sizeOfPropertyData_propertyID_forChannel_isInput(AudioDeviceID device,
                                                                   AudioDevicePropertyID propertyID, UInt32 channel,
                                                                   bool isInput);
    /// A value in a block of its own; null on failure and for a value of no bytes.
    static qmx::HeapBlock anyProperty_propertyID_forChannel_isInput(AudioDeviceID device,
                                                                    AudioDevicePropertyID propertyID, UInt32 channel,
                                                                    bool isInput);
    static qmx::HeapBlock anyProperty_propertyID_isInput(AudioDeviceID device, AudioDevicePropertyID propertyID,
                                                         bool isInput);
    static qmx::HeapBlock anyProperty_propertyID(AudioDeviceID device, AudioDevicePropertyID propertyID);
    /// The first word of a value; 0 on failure.
    static UInt32 integerProperty_propertyID_forChannel_isInput(AudioDeviceID device, AudioDevicePropertyID propertyID,
                                                                UInt32 channel, bool isInput);
    static UInt32 integerProperty_propertyID_isInput(AudioDeviceID device, AudioDevicePropertyID propertyID,
                                                     bool isInput);
    static UInt32 integerProperty_propertyID(AudioDeviceID device, AudioDevicePropertyID propertyID);
    /// The first number of a value; 0.0 on failure.
    static Float32 float32Property_propertyID_forChannel_isInput(AudioDeviceID device, AudioDevicePropertyID propertyID,
                                                                 UInt32 channel, bool isInput);
    static Float32 float32Property_propertyID_isInput(AudioDeviceID device, AudioDevicePropertyID propertyID,
                                                      bool isInput);
    static Float32 float32Property_propertyID(AudioDeviceID device, AudioDevicePropertyID propertyID);
    static Float64 float64Property_propertyID_forChannel_isInput(AudioDeviceID device, AudioDevicePropertyID propertyID,
                                                                 UInt32 channel, bool isInput);
    static Float64 float64Property_propertyID_isInput(AudioDeviceID device, AudioDevicePropertyID propertyID,
                                                      bool isInput);
    static Float64 float64Property_propertyID(AudioDeviceID device, AudioDevicePropertyID propertyID);

    static bool canSetDeviceProperty_inPropertyID_inChannel_isInput(AudioDeviceID device,
                                                                    AudioDevicePropertyID propertyID, UInt32 channel,
                                                                    bool isInput);
    /// Sets a value. Whether it was set; failures are logged.
    [[nodiscard]] static bool setDeviceProperty_inPropertyID_inChannel_isInput_inPropertyDataSize_inPropertyData(
        AudioDeviceID device, AudioDevicePropertyID propertyID, UInt32 channel, bool isInput, UInt32 size,
        const void* data);

    // --- The last status

    /// The status of the process's last size query or read, 0 after a success; meaningful only right after it, on the
    /// same thread.
    static OSStatus lastReportedError();
    /// A switch that callers may read to print more; off by default.
    static void setPrintDebug(bool prints);
    static bool printDebug();
};
