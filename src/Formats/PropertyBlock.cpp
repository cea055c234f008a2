// SPDX-License-Identifier: MIT
#include "Formats/PropertyBlock.h"

#include "Formats/QMXAudioDeviceUtils.h"
#include "Foundation/Text/Log.h"

#include <atomic>
#include <utility>

namespace
{

constexpr std::size_t kZerosBehind = 64;
std::atomic<OSStatus> lastStatus{noErr};
std::atomic<bool> debugIsOn{false};

} // namespace

namespace qmx
{

OSStatus reported(OSStatus status)
{
    lastStatus.store(status, std::memory_order_relaxed);
    return status;
}

PropertyBlock allocatePropertyBlock(UInt32 size)
{
    PropertyBlock value;
    value.block.reset(std::calloc(1, size + kZerosBehind));
    value.size = value.block ? size : 0;
    return value;
}

PropertyBlock readDeviceProperty(AudioDeviceID device, AudioDevicePropertyID propertyID, UInt32 channel, bool isInput)
{
    UInt32 size = 0;
    OSStatus status = reported(AudioDeviceGetPropertyInfo(device, channel, isInput, propertyID, &size, nullptr));
    if (status != noErr)
        return {.status = status};
    if (size == 0) {
        Log("Property (%@) value size is 0", QMXAudioDeviceUtils::propertyName(propertyID));
        return {};
    }
    PropertyBlock value = allocatePropertyBlock(size);
    status = reported(AudioDeviceGetProperty(device, channel, isInput, propertyID, &value.size, value.block.get()));
    return status == noErr ? std::move(value) : PropertyBlock{.status = status};
}

OSStatus hardwarePropertySize(AudioHardwarePropertyID propertyID, UInt32* size)
{
    const OSStatus status = reported(AudioHardwareGetPropertyInfo(propertyID, size, nullptr));
    if (status != noErr)
        Log("ERR READ HW PROP SIZE: %@", QMXAudioDeviceUtils::errorMessage_forProperty(status, propertyID));
    return status;
}

PropertyBlock readHardwareProperty(AudioHardwarePropertyID propertyID)
{
    UInt32 size = 0;
    OSStatus status = hardwarePropertySize(propertyID, &size);
    if (status != noErr || size == 0)
        return {.status = status};
    PropertyBlock value = allocatePropertyBlock(size);
    status = reported(AudioHardwareGetProperty(propertyID, &value.size, value.block.get()));
    if (status == noErr)
        return value;
    Log("ERR READ HW PROP: %@", QMXAudioDeviceUtils::errorMessage_forProperty(status, propertyID));
    return {.status = status};
}

OSStatus setDeviceProperty(AudioDeviceID device, AudioDevicePropertyID propertyID, UInt32 channel, bool isInput,
                           UInt32 size, const void* data)
{
    Boolean isWritable = false;
    OSStatus status = AudioDeviceGetPropertyInfo(device, channel, isInput, propertyID, nullptr, &isWritable);
    if (!isWritable)
        Log("ERR SET DEV PROP NO WRITE: %@", QMXAudioDeviceUtils::errorMessage_forProperty(status, propertyID));
    if (status == noErr) {
        if (!isWritable)
            return kAudioHardwareUnsupportedOperationError;
        status = AudioDeviceSetProperty(device, nullptr, channel, isInput, propertyID, size, data);
    }
    if (status != noErr)
        Log("ERR SET DEV PROP: %@", QMXAudioDeviceUtils::errorMessage_forProperty(status, propertyID));
    return status;
}

} // namespace qmx

OSStatus QMXAudioDeviceUtils::lastReportedError()
{
    return lastStatus.load(std::memory_order_relaxed);
}

void QMXAudioDeviceUtils::setPrintDebug(bool prints)
{
    debugIsOn.store(prints, std::memory_order_relaxed);
}

bool QMXAudioDeviceUtils::printDebug()
{
    return debugIsOn.load(std::memory_order_relaxed);
}
