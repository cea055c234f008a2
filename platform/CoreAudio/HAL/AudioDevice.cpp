// SPDX-License-Identifier: MIT
#include "CoreAudio/AudioHardware.h"
#include "CoreAudio/HAL/Hardware.h"
#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"

#include <cmath>

namespace
{

using qmx::DeviceIO;
using qmx::DeviceView;
using qmx::Hardware;
using qmx::HardwareDevice;
using qmx::HardwareOperation;
using qmx::Listener;
using qmx::PropertyAddress;

// The start of most calls: asks the backend's permission, then looks up the device.
OSStatus findView(HardwareOperation operation, AudioDeviceID id, const PropertyAddress& address,
                  std::optional<DeviceView>& view)
{
    if (const OSStatus status = Hardware::shared().admit(operation, id, address))
        return status;
    view = Hardware::shared().view(id);
    return view ? noErr : kAudioHardwareBadDeviceError;
}

OSStatus findDevice(HardwareOperation operation, AudioDeviceID id, std::shared_ptr<HardwareDevice>& device)
{
    if (const OSStatus status = Hardware::shared().admit(operation, id))
        return status;
    device = Hardware::shared().deviceOrRemains(id);
    return device ? noErr : kAudioHardwareBadDeviceError;
}

// Inside a callback another thread does it, because the backend may wait.
void stopIfIdle(const std::shared_ptr<HardwareDevice>& device)
{
    if (!qmx::isInsideCallback())
        Hardware::shared().stopDeviceIfIdle(device);
    else if (!device->io->hasRunningProcedures())
        device->io->reportIdle();
}

bool isAlive(AudioDeviceID id)
{
    return Hardware::shared().device(id) != nullptr;
}

} // namespace

OSStatus AudioDeviceGetPropertyInfo(AudioDeviceID inDevice, UInt32 inChannel, Boolean isInput,
                                    AudioDevicePropertyID inPropertyID, UInt32* outSize, Boolean* outWritable)
{
    const PropertyAddress address{inPropertyID, inChannel, isInput};
    std::optional<DeviceView> view;
    if (const OSStatus status = findView(HardwareOperation::getPropertyInfo, inDevice, address, view))
        return status;
    const auto value = deviceProperty(*view, address);
    return value ? value->describe(outSize, outWritable) : kAudioHardwareUnknownPropertyError;
}

OSStatus AudioDeviceGetProperty(AudioDeviceID inDevice, UInt32 inChannel, Boolean isInput,
                                AudioDevicePropertyID inPropertyID, UInt32* ioPropertyDataSize, void* outPropertyData)
{
    if (!ioPropertyDataSize || !outPropertyData)
        return kAudio_ParamError;
    const PropertyAddress address{inPropertyID, inChannel, isInput};
    std::optional<DeviceView> view;
    if (const OSStatus status = findView(HardwareOperation::getProperty, inDevice, address, view))
        return status;
    if (const auto answer = translateDeviceProperty(*view, address, ioPropertyDataSize, outPropertyData))
        return *answer;
    const auto value = deviceProperty(*view, address);
    return value ? value->copyTo(ioPropertyDataSize, outPropertyData) : kAudioHardwareUnknownPropertyError;
}

OSStatus AudioDeviceSetProperty(AudioDeviceID inDevice, const AudioTimeStamp* /*inWhen*/, UInt32 inChannel,
                                Boolean isInput, AudioDevicePropertyID inPropertyID, UInt32 inPropertyDataSize,
                                const void* inPropertyData)
{
    const PropertyAddress address{inPropertyID, inChannel, isInput};
    std::optional<DeviceView> view;
    if (const OSStatus status = findView(HardwareOperation::setProperty, inDevice, address, view))
        return status;
    const qmx::CheckedRequest result = deviceRequest(*view, address, inPropertyDataSize, inPropertyData);
    if (!result.request)
        return result.status;
    const auto device = Hardware::shared().device(inDevice);
    return device ? device->backend->perform(*result.request) : kAudioHardwareBadDeviceError;
}

OSStatus AudioDeviceAddPropertyListener(AudioDeviceID inDevice, UInt32 inChannel, UInt8 inSection,
                                        AudioDevicePropertyID inPropertyID, AudioDevicePropertyListenerProc inProc,
                                        void* inClientData)
{
    if (!inProc)
        return kAudio_ParamError;
    const PropertyAddress address{inPropertyID, inChannel, inSection != 0};
    std::optional<DeviceView> view;
    if (const OSStatus status = findView(HardwareOperation::addListener, inDevice, address, view))
        return status;
    const Listener listener{inPropertyID, inChannel, inSection, inProc, inClientData};
    return Hardware::shared().listeners().add(inDevice, listener) ? noErr : kAudioHardwareIllegalOperationError;
}

OSStatus AudioDeviceRemovePropertyListener(AudioDeviceID inDevice, UInt32 inChannel, UInt8 inSection,
                                           AudioDevicePropertyID inPropertyID, AudioDevicePropertyListenerProc inProc,
                                           void* inClientData)
{
    const PropertyAddress address{inPropertyID, inChannel, inSection != 0};
    const Listener listener{inPropertyID, inChannel, inSection, inProc, inClientData};
    return Hardware::shared().removeAnyway(HardwareOperation::removeListener, inDevice, address, [&]() -> OSStatus {
        if (Hardware::shared().listeners().remove(inDevice, listener))
            return noErr;
        return isAlive(inDevice) ? kAudioHardwareIllegalOperationError : kAudioHardwareBadDeviceError;
    });
}

OSStatus AudioDeviceAddIOProc(AudioDeviceID inDevice, AudioDeviceIOProc inProc, void* inClientData)
{
    if (!inProc)
        return kAudio_ParamError;
    std::shared_ptr<HardwareDevice> device;
    if (const OSStatus status = findDevice(HardwareOperation::addIOProc, inDevice, device))
        return status;
    if (!isAlive(inDevice))
        return kAudioHardwareBadDeviceError;
    return device->io->add(inProc, inClientData);
}

OSStatus AudioDeviceRemoveIOProc(AudioDeviceID inDevice, AudioDeviceIOProc inProc, void* inClientData)
{
    if (DeviceIO* const own = DeviceIO::ofCallingThread(); own && own->device() == inDevice)
        return own->removeInCycle(inProc, inClientData);
    return Hardware::shared().removeAnyway(HardwareOperation::removeIOProc, inDevice, {}, [&]() -> OSStatus {
        const std::shared_ptr<HardwareDevice> device = Hardware::shared().deviceOrRemains(inDevice);
        if (!device)
            return kAudioHardwareBadDeviceError;
        if (const OSStatus status = device->io->remove(inProc, inClientData))
            return status;
        (void)qmx::withinMemory([&] { // it is removed; a device that goes on idle for want of memory does no harm
            stopIfIdle(device);
            Hardware::shared().forgetRemains(*device);
        });
        return noErr;
    });
}

OSStatus AudioDeviceStart(AudioDeviceID inDevice, AudioDeviceIOProc inProc, void* inClientData)
{
    std::shared_ptr<HardwareDevice> device;
    if (const OSStatus status = findDevice(HardwareOperation::start, inDevice, device))
        return status;
    if (!isAlive(inDevice))
        return kAudioHardwareBadDeviceError;
    device->io->armIdleReport();
    if (const OSStatus status = device->io->markRunning(inProc, inClientData))
        return status;
    const OSStatus status = Hardware::shared().startDevice(device);
    if (status)
        device->io->markStopped(inProc, inClientData);
    return status;
}

OSStatus AudioDeviceStop(AudioDeviceID inDevice, AudioDeviceIOProc inProc, void* inClientData)
{
    if (DeviceIO* const own = DeviceIO::ofCallingThread(); own && own->device() == inDevice)
        return own->markStoppedInCycle(inProc, inClientData);
    std::shared_ptr<HardwareDevice> device;
    if (const OSStatus status = findDevice(HardwareOperation::stop, inDevice, device))
        return status;
    if (const OSStatus status = device->io->markStopped(inProc, inClientData))
        return status;
    if (!isAlive(inDevice))
        return kAudioHardwareBadDeviceError;
    stopIfIdle(device);
    return noErr;
}

namespace
{

// The present instant of a running device, and its nominal rate in Hz.
OSStatus presentOf(AudioDeviceID id, AudioTimeStamp& now, Float64& sampleRate)
{
    std::optional<DeviceView> view;
    if (const OSStatus status = findView(HardwareOperation::getTime, id, {}, view))
        return status;
    const auto device = Hardware::shared().device(id);
    if (!device)
        return kAudioHardwareBadDeviceError;
    if (!view->isRunning)
        return kAudioHardwareNotRunningError;
    sampleRate = view->description->nominalSampleRate;
    return device->backend->currentTime(now);
}

} // namespace

OSStatus AudioDeviceGetCurrentTime(AudioDeviceID inDevice, AudioTimeStamp* outTime)
{
    Float64 sampleRate = 0;
    return outTime ? presentOf(inDevice, *outTime, sampleRate) : kAudio_ParamError;
}

OSStatus AudioDeviceTranslateTime(AudioDeviceID inDevice, const AudioTimeStamp* inTime, AudioTimeStamp* outTime)
{
    if (!inTime || !outTime)
        return kAudio_ParamError;
    AudioTimeStamp now;
    Float64 sampleRate = 0;
    if (const OSStatus status = presentOf(inDevice, now, sampleRate))
        return status;
    const Float64 nanosecondsPerFrame = 1e9 / sampleRate * now.mRateScalar;
    Float64 frames = 0; // counted from now
    if (inTime->mFlags & kAudioTimeStampSampleTimeValid)
        frames = inTime->mSampleTime - now.mSampleTime;
    else if (inTime->mFlags & kAudioTimeStampHostTimeValid)
        frames = static_cast<Float64>(static_cast<SInt64>(inTime->mHostTime - now.mHostTime)) / nanosecondsPerFrame;
    else
        return kAudio_ParamError;
    outTime->mFlags &= now.mFlags;
    if (outTime->mFlags & kAudioTimeStampSampleTimeValid)
        outTime->mSampleTime = now.mSampleTime + frames;
    if (outTime->mFlags & kAudioTimeStampHostTimeValid)
        outTime->mHostTime =
            now.mHostTime + static_cast<UInt64>(static_cast<SInt64>(std::llround(frames * nanosecondsPerFrame)));
    if (outTime->mFlags & kAudioTimeStampRateScalarValid)
        outTime->mRateScalar = now.mRateScalar;
    return noErr;
}
