// SPDX-License-Identifier: MIT
#include "CoreAudio/AudioHardware.h"

#include "CoreAudio/HAL/Hardware.h"
#include "Foundation/RealTime.h"
#include "Foundation/Text/CFString.h"

#include <algorithm>

namespace
{

using qmx::Hardware;
using qmx::HardwareOperation;
using qmx::Listener;
using qmx::PropertyAddress;
using qmx::PropertyValue;

constexpr UInt32 systemObject = 0;

std::optional<PropertyValue> hardwareProperty(AudioHardwarePropertyID property)
{
    Hardware& hardware = Hardware::shared();
    switch (property) {
    case kAudioHardwarePropertyDevices:
        return PropertyValue::listOf(hardware.devices().ids);
    case kAudioHardwarePropertyDefaultInputDevice:
        return PropertyValue::of(hardware.defaults().input, true);
    case kAudioHardwarePropertyDefaultOutputDevice:
        return PropertyValue::of(hardware.defaults().output, true);
    case kAudioHardwarePropertyDefaultSystemOutputDevice:
        return PropertyValue::of(hardware.defaults().systemOutput, true);
    case kAudioHardwarePropertyDeviceForUID:
        return PropertyValue::of(AudioValueTranslation{});
    case kAudioHardwarePropertyRunLoop:
        return PropertyValue::of(static_cast<void*>(nullptr)); // listeners have a thread of their own
    case kAudioHardwarePropertySleepingIsAllowed:
    case kAudioHardwarePropertyProcessIsMaster:
        return PropertyValue::flag(true);
    case kAudioHardwarePropertyUnloadingIsAllowed:
    case kAudioHardwarePropertyIsInitingOrExiting:
    case kAudioHardwarePropertyHogModeIsAllowed:
        return PropertyValue::flag(false);
    default:
        return bootChimeProperty(hardware.bootChime(), property);
    }
}

// A list that did not fit into the caller's block does not count as read.
OSStatus readDevices(UInt32* ioSize, void* out)
{
    Hardware& hardware = Hardware::shared();
    const qmx::DeviceList list = hardware.devices();
    const PropertyValue value = PropertyValue::listOf(list.ids);
    const OSStatus status = value.copyTo(ioSize, out);
    if (*ioSize == value.size())
        hardware.noteRead(list);
    return status;
}

// The input size is ignored: callers pass the length of the text there.
OSStatus translateUID(UInt32* ioSize, void* block)
{
    AudioValueTranslation translation;
    if (const OSStatus status = qmx::takeTranslation(ioSize, block, 0, sizeof(AudioDeviceID), translation))
        return status;
    CFStringRef uid = nullptr;
    std::memcpy(&uid, translation.mInputData, sizeof uid);
    const auto device = Hardware::shared().deviceForUID(CFStringGetText(uid));
    if (!device)
        return kAudioHardwareBadDeviceError;
    std::memcpy(translation.mOutputData, &*device, sizeof *device);
    translation.mOutputDataSize = sizeof *device;
    std::memcpy(block, &translation, sizeof translation);
    return noErr;
}

OSStatus translateBootChime(AudioHardwarePropertyID property, UInt32* ioSize, void* block)
{
    const auto volume = Hardware::shared().bootChime();
    if (!volume)
        return kAudioHardwareUnknownPropertyError;
    return qmx::translateInPlace<Float32>(ioSize, block, [&](Float32& value) -> OSStatus {
        value = property == kAudioHardwarePropertyBootChimeVolumeScalarToDecibels ? qmx::decibelsOf(*volume, value)
                                                                                  : qmx::scalarOf(*volume, value);
        return noErr;
    });
}

OSStatus setDefault(AudioHardwarePropertyID property, UInt32 size, const void* data)
{
    AudioDeviceID device = kAudioDeviceUnknown;
    if (const OSStatus status = qmx::takeValue(size, data, device))
        return status;
    const auto view = Hardware::shared().view(device);
    if (!view)
        return kAudioHardwareBadDeviceError;
    if (!qmx::canBeDefault(*view->description, property))
        return kAudioHardwareIllegalOperationError;
    return Hardware::shared().backend().setDefaultDevice(property, device);
}

OSStatus setBootChime(AudioHardwarePropertyID property, UInt32 size, const void* data)
{
    const auto volume = Hardware::shared().bootChime();
    if (!volume)
        return kAudioHardwareUnknownPropertyError;
    const bool isDecibels = property == kAudioHardwarePropertyBootChimeVolumeDecibels;
    Float32 scalar = 0;
    if (const OSStatus status = qmx::takeVolume(*volume, isDecibels, size, data, scalar))
        return status;
    return Hardware::shared().backend().setBootChimeVolume(scalar);
}

Listener listenerOf(AudioHardwarePropertyID property, AudioHardwarePropertyListenerProc procedure, void* clientData)
{
    return {property, kAudioPropertyWildcardChannel, kAudioPropertyWildcardSection, procedure, clientData};
}

} // namespace

OSStatus AudioHardwareGetPropertyInfo(AudioHardwarePropertyID inPropertyID, UInt32* outSize, Boolean* outWritable)
{
    if (const OSStatus status = Hardware::shared().admit(HardwareOperation::getPropertyInfo, systemObject,
                                                         PropertyAddress{.property = inPropertyID}))
        return status;
    const auto value = hardwareProperty(inPropertyID);
    return value ? value->describe(outSize, outWritable) : kAudioHardwareUnknownPropertyError;
}

OSStatus AudioHardwareGetProperty(AudioHardwarePropertyID inPropertyID, UInt32* ioPropertyDataSize,
                                  void* outPropertyData)
{
    if (!ioPropertyDataSize || !outPropertyData)
        return kAudio_ParamError;
    if (const OSStatus status = Hardware::shared().admit(HardwareOperation::getProperty, systemObject,
                                                         PropertyAddress{.property = inPropertyID}))
        return status;
    switch (inPropertyID) {
    case kAudioHardwarePropertyDevices:
        return readDevices(ioPropertyDataSize, outPropertyData);
    case kAudioHardwarePropertyDeviceForUID:
        return translateUID(ioPropertyDataSize, outPropertyData);
    case kAudioHardwarePropertyBootChimeVolumeScalarToDecibels:
    case kAudioHardwarePropertyBootChimeVolumeDecibelsToScalar:
        return translateBootChime(inPropertyID, ioPropertyDataSize, outPropertyData);
    default:
        break;
    }
    const auto value = hardwareProperty(inPropertyID);
    return value ? value->copyTo(ioPropertyDataSize, outPropertyData) : kAudioHardwareUnknownPropertyError;
}

OSStatus AudioHardwareSetProperty(AudioHardwarePropertyID inPropertyID, UInt32 inPropertyDataSize,
                                  const void* inPropertyData)
{
    if (const OSStatus status = Hardware::shared().admit(HardwareOperation::setProperty, systemObject,
                                                         PropertyAddress{.property = inPropertyID}))
        return status;
    const auto value = hardwareProperty(inPropertyID);
    if (!value)
        return kAudioHardwareUnknownPropertyError;
    if (!value->isWritable)
        return kAudioHardwareUnsupportedOperationError;
    switch (inPropertyID) {
    case kAudioHardwarePropertyBootChimeVolumeScalar:
    case kAudioHardwarePropertyBootChimeVolumeDecibels:
        return setBootChime(inPropertyID, inPropertyDataSize, inPropertyData);
    default:
        return setDefault(inPropertyID, inPropertyDataSize, inPropertyData);
    }
}

OSStatus AudioHardwareAddPropertyListener(AudioHardwarePropertyID inPropertyID,
                                          AudioHardwarePropertyListenerProc inProc, void* inClientData)
{
    if (!inProc)
        return kAudio_ParamError;
    Hardware& hardware = Hardware::shared();
    const PropertyAddress devices{.property = kAudioHardwarePropertyDevices};
    if (const OSStatus status =
            hardware.admit(HardwareOperation::addListener, systemObject, PropertyAddress{.property = inPropertyID}))
        return status;
    const Listener listener = listenerOf(inPropertyID, inProc, inClientData);
    const bool announcesNow = listener.wants(devices) && hardware.devicesChangedSinceRead();
    return hardware.listeners().add(systemObject, listener, announcesNow, devices)
               ? noErr
               : kAudioHardwareIllegalOperationError;
}

OSStatus AudioHardwareRemovePropertyListener(AudioHardwarePropertyID inPropertyID,
                                             AudioHardwarePropertyListenerProc inProc, void* inClientData)
{
    Hardware& hardware = Hardware::shared();
    const PropertyAddress address{.property = inPropertyID};
    return hardware.removeAnyway(HardwareOperation::removeListener, systemObject, address, [&]() -> OSStatus {
        return hardware.listeners().remove(systemObject, listenerOf(inPropertyID, inProc, inClientData))
                   ? noErr
                   : kAudioHardwareIllegalOperationError;
    });
}

UInt64 AudioGetCurrentHostTime()
{
    return Hardware::shared().backend().hostTime();
}

OSStatus qmx::setAudioBackend(AudioBackend backend)
{
    return Hardware::choose(backend);
}

std::string qmx::audioBackendFailure()
{
    return Hardware::failure();
}

void qmx::waitForIOCycle(AudioDeviceID device)
{
    if (isInsideCallback())
        return;
    if (const auto found = Hardware::shared().deviceOrRemains(device))
        found->io->waitForCycle();
}
