// SPDX-License-Identifier: MIT
// The properties of the hardware and of devices as plain values.
#include "Formats/PropertyBlock.h"
#include "Formats/QMXAudioDeviceUtils.h"
#include "Foundation/Text/Log.h"

bool QMXAudioDeviceUtils::canSetHardwareProperty(AudioHardwarePropertyID propertyID)
{
    Boolean isWritable = false;
    return AudioHardwareGetPropertyInfo(propertyID, nullptr, &isWritable) == noErr && isWritable;
}

UInt32 QMXAudioDeviceUtils::hardwarePropertySize(AudioHardwarePropertyID propertyID)
{
    UInt32 size = 0;
    return qmx::hardwarePropertySize(propertyID, &size) == noErr ? size : 0;
}

qmx::HeapBlock QMXAudioDeviceUtils::hardwareProperty(AudioHardwarePropertyID propertyID)
{
    return qmx::readHardwareProperty(propertyID).block;
}

bool QMXAudioDeviceUtils::setHardwareProperty_inData(AudioHardwarePropertyID propertyID, const void* data)
{
    UInt32 size = 0;
    Boolean isWritable = false;
    OSStatus status = AudioHardwareGetPropertyInfo(propertyID, &size, &isWritable);
    if (status == noErr && !isWritable) {
        qmx::Log("ERR SET HW PROP: Property not writable (%@)", propertyName(propertyID));
        return false;
    }
    if (status == noErr)
        status = AudioHardwareSetProperty(propertyID, size, data);
    if (status != noErr)
        qmx::Log("ERR SET HW PROP: %@", errorMessage_forProperty(status, propertyID));
    return status == noErr;
}

UInt32 QMXAudioDeviceUtils::sizeOfPropertyData_propertyID_forChannel_isInput(AudioDeviceID device,
                                                                             AudioDevicePropertyID propertyID,
                                                                             UInt32 channel, bool isInput)
{
    UInt32 size = 0;
    return qmx::reported(AudioDeviceGetPropertyInfo(device, channel, isInput, propertyID, &size, nullptr)) == noErr
               ? size
               : 0;
}

qmx::HeapBlock QMXAudioDeviceUtils::anyProperty_propertyID_forChannel_isInput(AudioDeviceID device,
                                                                              AudioDevicePropertyID propertyID,
                                                                              UInt32 channel, bool isInput)
{
    return qmx::readDeviceProperty(device, propertyID, channel, isInput).block;
}

qmx::HeapBlock QMXAudioDeviceUtils::anyProperty_propertyID_isInput(AudioDeviceID device,
                                                                   AudioDevicePropertyID propertyID, bool isInput)
{
    return anyProperty_propertyID_forChannel_isInput(device, propertyID, 0, isInput);
}

qmx::HeapBlock QMXAudioDeviceUtils::anyProperty_propertyID(AudioDeviceID device, AudioDevicePropertyID propertyID)
{
    return anyProperty_propertyID_isInput(device, propertyID, true);
}

UInt32 QMXAudioDeviceUtils::integerProperty_propertyID_forChannel_isInput(AudioDeviceID device,
                                                                          AudioDevicePropertyID propertyID,
                                                                          UInt32 channel, bool isInput)
{
    return qmx::readDeviceProperty(device, propertyID, channel, isInput).first<UInt32>();
}

UInt32 QMXAudioDeviceUtils::integerProperty_propertyID_isInput(AudioDeviceID device, AudioDevicePropertyID propertyID,
                                                               bool isInput)
{
    return integerProperty_propertyID_forChannel_isInput(device, propertyID, 0, isInput);
}

UInt32 QMXAudioDeviceUtils::integerProperty_propertyID(AudioDeviceID device, AudioDevicePropertyID propertyID)
{
    return integerProperty_propertyID_isInput(device, propertyID, true);
}

Float32 QMXAudioDeviceUtils::float32Property_propertyID_forChannel_isInput(AudioDeviceID device,
                                                                           AudioDevicePropertyID propertyID,
                                                                           UInt32 channel, bool isInput)
{
    return qmx::readDeviceProperty(device, propertyID, channel, isInput).first<Float32>();
}

Float32 QMXAudioDeviceUtils::float32Property_propertyID_isInput(AudioDeviceID device, AudioDevicePropertyID propertyID,
                                                                bool isInput)
{
    return float32Property_propertyID_forChannel_isInput(device, propertyID, 0, isInput);
}

Float32 QMXAudioDeviceUtils::float32Property_propertyID(AudioDeviceID device, AudioDevicePropertyID propertyID)
{
    return float32Property_propertyID_isInput(device, propertyID, true);
}

Float64 QMXAudioDeviceUtils::float64Property_propertyID_forChannel_isInput(AudioDeviceID device,
                                                                           AudioDevicePropertyID propertyID,
                                                                           UInt32 channel, bool isInput)
{
    return qmx::readDeviceProperty(device, propertyID, channel, isInput).first<Float64>();
}

Float64 QMXAudioDeviceUtils::float64Property_propertyID_isInput(AudioDeviceID device, AudioDevicePropertyID propertyID,
                                                                bool isInput)
{
    return float64Property_propertyID_forChannel_isInput(device, propertyID, 0, isInput);
}

Float64 QMXAudioDeviceUtils::float64Property_propertyID(AudioDeviceID device, AudioDevicePropertyID propertyID)
{
    return float64Property_propertyID_isInput(device, propertyID, true);
}

bool QMXAudioDeviceUtils::canSetDeviceProperty_inPropertyID_inChannel_isInput(AudioDeviceID device,
                                                                              AudioDevicePropertyID propertyID,
                                                                              UInt32 channel, bool isInput)
{
    Boolean isWritable = false;
    return AudioDeviceGetPropertyInfo(device, channel, isInput, propertyID, nullptr, &isWritable) == noErr &&
           isWritable;
}

bool QMXAudioDeviceUtils::setDeviceProperty_inPropertyID_inChannel_isInput_inPropertyDataSize_inPropertyData(
    AudioDeviceID device, AudioDevicePropertyID propertyID, UInt32 channel, bool isInput, UInt32 size, const void* data)
{
    return qmx::setDeviceProperty(device, propertyID, channel, isInput, size, data) == noErr;
}
