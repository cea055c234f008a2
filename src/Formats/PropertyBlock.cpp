// SPDX-License-Identifier: MIT
#include "Formats/PropertyBlock.h"

#include "Formats/QMXAudioDeviceUtils.h"
#include "Foundation/Text/Log.h"

#include <atomic>

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
    if (reported(AudioDeviceGetPropertyInfo(device, channel, isInput, propertyID, &size, nullptr)) != noErr)
        return {};
    if (size == 0) {
        Log("Property (%@) value size is 0", QMXAudioDeviceUtils::propertyName(propertyID));
        return {};
    }
    PropertyBlock value = allocatePropertyBlock(size);
    if (reported(AudioDeviceGetProperty(device, channel, isInput, propertyID, &value.size, value.block.get())) != noErr)
        return {};
    return value;
}

PropertyBlock readHardwareProperty(AudioHardwarePropertyID propertyID)
{
    const UInt32 size = QMXAudioDeviceUtils::hardwarePropertySize(propertyID);
    if (size == 0)
        return {};
    PropertyBlock value = allocatePropertyBlock(size);
    const OSStatus status = reported(AudioHardwareGetProperty(propertyID, &value.size, value.block.get()));
    if (status == noErr)
        return value;
    Log("ERR READ HW PROP: %@", QMXAudioDeviceUtils::errorMessage_forProperty(status, propertyID));
    return {};
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
