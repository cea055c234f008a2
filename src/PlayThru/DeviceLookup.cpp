// SPDX-License-Identifier: MIT
#include "PlayThru/DeviceLookup.h"

#include "Foundation/Text/CFString.h"

namespace qmx
{

OSStatus defaultDevice(bool isInput, AudioDeviceID& device)
{
    device = kAudioDeviceUnknown;
    UInt32 size = sizeof device;
    const AudioHardwarePropertyID property =
        isInput ? kAudioHardwarePropertyDefaultInputDevice : kAudioHardwarePropertyDefaultOutputDevice;
    const OSStatus status = AudioHardwareGetProperty(property, &size, &device);
    return status == noErr && device == kAudioDeviceUnknown ? kAudioHardwareBadDeviceError : status;
}

std::string uidOfDevice(AudioDeviceID device)
{
    CFStringRef text = nullptr;
    UInt32 size = sizeof text;
    if (AudioDeviceGetProperty(device, 0, false, kAudioDevicePropertyDeviceUID, &size, &text) != noErr || !text)
        return {};
    std::string uid = CFStringGetText(text);
    CFRelease(text);
    return uid;
}

AudioDeviceID deviceWithUID(const std::string& uid)
{
    AudioDeviceID device = kAudioDeviceUnknown;
    CFStringRef text = CFStringCreate(uid);
    AudioValueTranslation translation{&text, sizeof text, &device, sizeof device};
    UInt32 size = sizeof translation;
    const OSStatus status = AudioHardwareGetProperty(kAudioHardwarePropertyDeviceForUID, &size, &translation);
    CFRelease(text);
    return status == noErr ? device : kAudioDeviceUnknown;
}

OSStatus nominalRateOf(AudioDeviceID device, bool isInput, Float64& rate)
{
    UInt32 size = sizeof rate;
    return AudioDeviceGetProperty(device, 0, isInput, kAudioDevicePropertyNominalSampleRate, &size, &rate);
}

} // namespace qmx
