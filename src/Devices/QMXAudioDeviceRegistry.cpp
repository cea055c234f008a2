// SPDX-License-Identifier: MIT
// The class side of devices: the registry, the defaults, and the notifications about the hardware as a whole.
#include "Devices/DeviceClassState.h"
#include "Devices/QMXAudioDevice.h"
#include "Formats/LastFailure.h"
#include "Formats/PropertyBlock.h"
#include "Formats/QMXAudioDeviceUtils.h"
#include "Formats/QMXAudioValueRange.h"
#include "Foundation/MainThread/RunLoop.h"
#include "Foundation/Text/CFString.h"
#include "Foundation/Text/Log.h"

#include <algorithm>

namespace
{

using Devices = std::vector<std::shared_ptr<QMXAudioDevice>>;
using qmx::DeviceClassState;

constexpr AudioDeviceID kNoDevice = 0xFFFFFFFF;

class DeviceClass final : public qmx::Object
{
public:
    std::string description() const override { return "QMXAudioDevice"; }
};

void append(QMXAudioDeviceList& list, const std::shared_ptr<QMXAudioDevice>& device)
{
    list.change([&](auto& devices) { devices.push_back(device); });
}

void remove(QMXAudioDeviceList& list, const std::shared_ptr<QMXAudioDevice>& device)
{
    list.change([&](auto& devices) { std::erase(devices, device); });
}

/// The IDs that the hardware reports now.
OSStatus readDeviceIDs(std::vector<AudioDeviceID>& ids)
{
    UInt32 size = sizeof(AudioDeviceID);
    OSStatus status = AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, nullptr);
    if (status != noErr)
        return status;
    ids.resize(size / sizeof(AudioDeviceID) + 1); // a block even for none
    status = AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, ids.data());
    ids.resize(std::min(ids.size(), size / sizeof(AudioDeviceID))); // a device may have gone in between
    return status;
}

OSStatus setDefaultDevice(AudioHardwarePropertyID propertyID, AudioDeviceID deviceID)
{
    return AudioHardwareSetProperty(propertyID, sizeof deviceID, &deviceID);
}

const char* notificationName(AudioHardwarePropertyID propertyID)
{
    switch (propertyID) {
    case kAudioHardwarePropertyDefaultOutputDevice:
        return QMXAudioHardwareDefaultOutputDeviceDidChangeNotification;
    case kAudioHardwarePropertyDevices:
        return QMXAudioHardwareDevicesDidChangeNotification;
    case kAudioHardwarePropertyDefaultInputDevice:
        return QMXAudioHardwareDefaultInputDeviceDidChangeNotification;
    default:
        return QMXAudioHardwarePropertyDidChangeNotification;
    }
}

/// Returns the devices that vanished, to be released without a lock: a device waits for its cycle in flight.
Devices refreshRegistry()
{
    DeviceClassState& state = DeviceClassState::shared();
    Devices vanished;
    state.mutexLock.lock();
    std::vector<AudioDeviceID> ids;
    if (const OSStatus status = readDeviceIDs(ids); status != noErr) {
        qmx::Log("ERROR: %@", QMXAudioDeviceUtils::errorMessage(status));
        return vanished; // with the lock held, as intended
    }
    const auto registered = state.devices.snapshot();
    if (ids.size() < registered.size()) {
        auto left = *registered;
        for (const AudioDeviceID id : ids)
            left.erase(id);
        for (const auto& [id, device] : left) {
            vanished.push_back(device);
            remove(state.deviceArray, device);
            remove(state.outputDeviceArray, device);
            remove(state.inputDeviceArray, device);
            state.devices.change([gone = id](auto& devices) { devices.erase(gone); });
        }
    } else {
        // What vanished while as many or more came stays until a later refresh sees fewer; this is intended.
        for (const AudioDeviceID id : ids) {
            if (registered->contains(id))
                continue;
            const auto device = QMXAudioDevice::deviceWithDeviceID(id);
            state.devices.change([&](auto& devices) { devices.emplace(id, device); });
            append(state.deviceArray, device);
            if (device->canBeOutputDevice())
                append(state.outputDeviceArray, device);
            if (device->canBeInputDevice())
                append(state.inputDeviceArray, device);
        }
    }
    state.mutexLock.unlock();
    return vanished;
}

std::shared_ptr<QMXAudioDevice> registeredDevice(AudioHardwarePropertyID defaultDevice)
{
    const auto devices = DeviceClassState::shared().devices.snapshot();
    const auto found = devices->find(qmx::readHardwareProperty(defaultDevice).first<AudioDeviceID>());
    return found == devices.end() ? nullptr : found->second;
}

OSStatus hardwarePropertyCallback(AudioHardwarePropertyID propertyID, void* clientData)
{
    QMXAudioDevice::hardwarePropertyDidChange_clientData(propertyID, clientData);
    return noErr;
}

} // namespace

DeviceClassState& DeviceClassState::shared()
{
    static DeviceClassState& state = *new DeviceClassState;
    if (state.isInitialized.load())
        return state;
    const std::scoped_lock lock(state.initialization);
    if (!std::exchange(state.initializationHasBegun, true)) {
        state.classObject = std::make_shared<DeviceClass>();
        QMXAudioDevice::initializeListOfDevices();
        if (AudioHardwareAddPropertyListener(kAudioPropertyWildcardPropertyID, hardwarePropertyCallback, nullptr) !=
            noErr)
            qmx::Log("QMXAudioDeviceController:init: Unable to register hardware property listeners");
        state.isInitialized.store(true);
    }
    return state;
}

void QMXAudioDevice::initialize()
{
    DeviceClassState::shared();
}

std::shared_ptr<qmx::Object> QMXAudioDevice::classObject()
{
    return DeviceClassState::shared().classObject;
}

void QMXAudioDevice::initializeListOfDevices()
{
    refreshRegistry();
}

QMXAudioDeviceDictionary& QMXAudioDevice::allDevicesDictionary()
{
    return DeviceClassState::shared().devices;
}

QMXAudioDeviceList& QMXAudioDevice::allDevicesArray()
{
    return DeviceClassState::shared().deviceArray;
}

QMXAudioDeviceList& QMXAudioDevice::inputDevices()
{
    return DeviceClassState::shared().inputDeviceArray;
}

QMXAudioDeviceList& QMXAudioDevice::outputDevices()
{
    return DeviceClassState::shared().outputDeviceArray;
}

std::shared_ptr<QMXAudioDevice> QMXAudioDevice::defaultInputDevice()
{
    return registeredDevice(kAudioHardwarePropertyDefaultInputDevice);
}

std::shared_ptr<QMXAudioDevice> QMXAudioDevice::defaultOutputDevice()
{
    return registeredDevice(kAudioHardwarePropertyDefaultOutputDevice);
}

std::shared_ptr<QMXAudioDevice> QMXAudioDevice::defaultSystemOutputDevice()
{
    return registeredDevice(kAudioHardwarePropertyDefaultSystemOutputDevice);
}

OSStatus QMXAudioDevice::setDefaultInputDevice(const QMXAudioDevice& device)
{
    return setDefaultDevice(kAudioHardwarePropertyDefaultInputDevice, device.deviceID());
}

OSStatus QMXAudioDevice::setDefaultOutputDevice(const QMXAudioDevice& device)
{
    return setDefaultDevice(kAudioHardwarePropertyDefaultOutputDevice, device.deviceID());
}

Float32 QMXAudioDevice::bootChimeVolumeScalar()
{
    return qmx::readHardwareProperty(kAudioHardwarePropertyBootChimeVolumeScalar).first<Float32>();
}

Float32 QMXAudioDevice::bootChimeVolumeDecibels()
{
    return qmx::readHardwareProperty(kAudioHardwarePropertyBootChimeVolumeDecibels).first<Float32>();
}

std::shared_ptr<QMXAudioValueRange> QMXAudioDevice::bootChimeVolumeRangeDecibels()
{
    const auto value = qmx::readHardwareProperty(kAudioHardwarePropertyBootChimeVolumeRangeDecibels);
    return QMXAudioValueRange::initWithAudioValueRange(static_cast<const AudioValueRange*>(value.block.get()));
}

std::shared_ptr<QMXAudioDevice> QMXAudioDevice::deviceWithDeviceID(AudioDeviceID deviceID)
{
    return initWithDeviceID(deviceID);
}

std::shared_ptr<QMXAudioDevice> QMXAudioDevice::deviceWithDeviceUID(const std::string& uid)
{
    return initWithDeviceUID(uid);
}

std::shared_ptr<QMXAudioDevice> QMXAudioDevice::initWithDeviceUID(const std::string& uid)
{
    const AudioDeviceID deviceID = audioDeviceIDForUID(uid);
    return deviceID == kNoDevice ? nullptr : initWithDeviceID(deviceID);
}

AudioDeviceID QMXAudioDevice::audioDeviceIDForUID(const std::string& uid)
{
    DeviceClassState::shared();
    CFStringRef reference = CFStringCreate(uid);
    AudioDeviceID deviceID = kAudioDeviceUnknown;
    // the input size is the text's length, not a reference's; this is intended
    AudioValueTranslation translation{&reference, static_cast<UInt32>(uid.size()), &deviceID, sizeof deviceID};
    UInt32 size = sizeof translation;
    const OSStatus status =
        qmx::reported(AudioHardwareGetProperty(kAudioHardwarePropertyDeviceForUID, &size, &translation));
    CFRelease(reference);
    if (status == noErr && size != 0)
        return deviceID;
    qmx::Log("ERROR: %@", QMXAudioDeviceUtils::errorMessage(status));
    return kNoDevice;
}

bool QMXAudioDevice::isValid() const
{
    return DeviceClassState::shared().devices.snapshot()->contains(deviceID());
}

bool QMXAudioDevice::isDefaultDevice(bool isInput) const
{
    const qmx::LastFailure::Operation operation(failure());
    const auto propertyID =
        isInput ? kAudioHardwarePropertyDefaultInputDevice : kAudioHardwarePropertyDefaultOutputDevice;
    const auto value = qmx::readHardwareProperty(propertyID);
    noted(value.status, propertyID, "give");
    return value.first<AudioDeviceID>() == deviceID();
}

void QMXAudioDevice::hardwarePropertyDidChange_clientData(AudioHardwarePropertyID propertyID, void* /*clientData*/)
{
    DeviceClassState& state = DeviceClassState::shared();
    Devices vanished; // released without a lock
    const char* name = nullptr;
    {
        const std::scoped_lock lock(state.hwMutexLock);
        if (propertyID == kAudioHardwarePropertyDevices)
            vanished = refreshRegistry();
        name = notificationName(propertyID);
    }
    qmx::RunLoop::main().perform([name] { threadCallbackForHardwarePropertyChanges(name); });
}

void QMXAudioDevice::threadCallbackForHardwarePropertyChanges(const std::string& notificationName)
{
    qmx::NotificationCenter::defaultCenter().postNotification(notificationName, classObject());
}
