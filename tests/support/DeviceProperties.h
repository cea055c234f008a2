// SPDX-License-Identifier: MIT
// Short ways to the properties of the hardware layer, whatever its backend.
#pragma once

#include "CoreAudio/AudioHardware.h"
#include "CoreAudioTypes/FourCharCode.h"
#include "Foundation/Text/CFString.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qmx::test
{

class DeviceProperties : public testing::Test
{
protected:
    template <class T>
    static OSStatus get(AudioDeviceID device, UInt32 channel, bool isInput, AudioDevicePropertyID property, T& value)
    {
        UInt32 size = sizeof value;
        return AudioDeviceGetProperty(device, channel, isInput, property, &size, &value);
    }
    template <class T> static T get(AudioDeviceID device, UInt32 channel, bool isInput, AudioDevicePropertyID property)
    {
        T value{};
        EXPECT_EQ(get(device, channel, isInput, property, value), noErr) << fourCharString(property);
        return value;
    }
    template <class T>
    static OSStatus set(AudioDeviceID device, UInt32 channel, bool isInput, AudioDevicePropertyID property,
                        const T& value)
    {
        return AudioDeviceSetProperty(device, nullptr, channel, isInput, property, sizeof value, &value);
    }
    /// Empty if there is none.
    static std::string textOf(AudioDeviceID device, AudioDevicePropertyID property)
    {
        CFStringRef text = nullptr;
        if (get(device, 0, false, property, text) != noErr || !text)
            return {};
        std::string result = CFStringGetText(text);
        CFRelease(text);
        return result;
    }
    static std::vector<AudioDeviceID> devices()
    {
        std::vector<AudioDeviceID> ids(64);
        UInt32 size = static_cast<UInt32>(ids.size() * sizeof(AudioDeviceID));
        EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, ids.data()), noErr);
        ids.resize(size / sizeof(AudioDeviceID));
        return ids;
    }
    static AudioDeviceID defaultDevice(AudioHardwarePropertyID which)
    {
        AudioDeviceID id = kAudioDeviceUnknown;
        UInt32 size = sizeof id;
        EXPECT_EQ(AudioHardwareGetProperty(which, &size, &id), noErr);
        return id;
    }
};

} // namespace qmx::test
