// SPDX-License-Identifier: MIT
// What the tests of the sound server's devices have in common: a server, and waiting for what listeners are told.
#pragma once

#include "CoreAudio/AudioHardware.h"
#include "CoreAudioTypes/FourCharCode.h"
#include "Foundation/CFString.h"
#include "support/SoundServer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

class PipeWireTest : public testing::Test
{
protected:
    PipeWireTest()
    {
        EXPECT_EQ(qmx::setAudioBackend(qmx::AudioBackend::pipeWire), noErr);
        server().start();
        for (const AudioHardwarePropertyID property :
             {kAudioHardwarePropertyDevices, kAudioHardwarePropertyDefaultInputDevice,
              kAudioHardwarePropertyDefaultOutputDevice})
            EXPECT_EQ(AudioHardwareAddPropertyListener(property, hardwareHeard, this), noErr);
        EXPECT_TRUE(waitUntil([] { return find("test-sink") && find("test-source"); }))
            << "the server's devices do not come";
    }
    ~PipeWireTest() override
    {
        server().kill();
        EXPECT_TRUE(waitUntil([] { return devices().empty(); })) << "devices outlast the server";
        for (const AudioHardwarePropertyID property :
             {kAudioHardwarePropertyDevices, kAudioHardwarePropertyDefaultInputDevice,
              kAudioHardwarePropertyDefaultOutputDevice})
            AudioHardwareRemovePropertyListener(property, hardwareHeard, this);
    }

    static qmx::test::SoundServer& server()
    {
        static qmx::test::SoundServer shared;
        return shared;
    }

    /// Asks again whenever a listener or a procedure had something to tell.
    bool waitUntil(const std::function<bool()>& isMet)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        for (;;) {
            std::unique_lock lock(mutex_);
            const std::size_t before = heardCount_;
            lock.unlock();
            if (isMet())
                return true;
            lock.lock();
            if (!heard_.wait_until(lock, deadline, [&] { return heardCount_ != before; }))
                return isMet();
        }
    }
    void tell()
    {
        const std::scoped_lock lock(mutex_);
        ++heardCount_;
        heard_.notify_all();
    }

    /// 0 when there is no such device.
    static AudioDeviceID find(const std::string& uid)
    {
        for (const AudioDeviceID id : devices())
            if (textOf(id, kAudioDevicePropertyDeviceUID) == uid)
                return id;
        return kAudioDeviceUnknown;
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
    static std::string textOf(AudioDeviceID id, AudioDevicePropertyID property)
    {
        CFStringRef text = nullptr;
        UInt32 size = sizeof text;
        if (AudioDeviceGetProperty(id, 0, false, property, &size, &text) != noErr || !text)
            return {};
        std::string result = CFStringGetText(text);
        CFRelease(text);
        return result;
    }
    template <class T> static T get(AudioDeviceID device, UInt32 channel, bool isInput, AudioDevicePropertyID property)
    {
        T value{};
        UInt32 size = sizeof value;
        EXPECT_EQ(AudioDeviceGetProperty(device, channel, isInput, property, &size, &value), noErr);
        return value;
    }
    template <class T>
    static OSStatus set(AudioDeviceID device, UInt32 channel, bool isInput, AudioDevicePropertyID property, T value)
    {
        return AudioDeviceSetProperty(device, nullptr, channel, isInput, property, sizeof value, &value);
    }
    void listenTo(AudioDeviceID device)
    {
        EXPECT_EQ(AudioDeviceAddPropertyListener(device, kAudioPropertyWildcardChannel, kAudioPropertyWildcardSection,
                                                 kAudioPropertyWildcardPropertyID, deviceHeard, this),
                  noErr);
    }
    void stopListeningTo(AudioDeviceID device)
    {
        AudioDeviceRemovePropertyListener(device, kAudioPropertyWildcardChannel, kAudioPropertyWildcardSection,
                                          kAudioPropertyWildcardPropertyID, deviceHeard, this);
    }

private:
    static OSStatus hardwareHeard(AudioHardwarePropertyID, void* self)
    {
        static_cast<PipeWireTest*>(self)->tell();
        return noErr;
    }
    static OSStatus deviceHeard(AudioDeviceID, UInt32, Boolean, AudioDevicePropertyID, void* self)
    {
        static_cast<PipeWireTest*>(self)->tell();
        return noErr;
    }
    std::mutex mutex_;
    std::condition_variable heard_;
    std::size_t heardCount_ = 0;
};
