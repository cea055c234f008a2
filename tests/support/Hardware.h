// SPDX-License-Identifier: MIT
// Shared by the tests of the hardware layer: no devices and manual time at the start, and a record of the listeners'
// calls.
#pragma once

#include "CoreAudio/VirtualHardware.h"
#include "support/DeviceProperties.h"

#include <mutex>
#include <string>
#include <vector>

/// Collects the calls of listeners as texts: "volm 1 in".
class Heard
{
public:
    Heard() = default;
    ~Heard()
    {
        for (const UInt32 property : ofHardware_)
            EXPECT_EQ(AudioHardwareRemovePropertyListener(property, hardware, this), noErr);
    }
    /// Listens to the system until the end.
    void listenToHardware(UInt32 property = kAudioPropertyWildcardPropertyID)
    {
        EXPECT_EQ(AudioHardwareAddPropertyListener(property, hardware, this), noErr);
        ofHardware_.push_back(property);
    }
    static OSStatus hardware(AudioHardwarePropertyID property, void* clientData)
    {
        static_cast<Heard*>(clientData)->add(qmx::fourCharString(property));
        return noErr;
    }
    static OSStatus device(AudioDeviceID, UInt32 channel, Boolean isInput, AudioDevicePropertyID property,
                           void* clientData)
    {
        static_cast<Heard*>(clientData)
            ->add(qmx::fourCharString(property) + " " + std::to_string(channel) + (isInput ? " in" : " out"));
        return noErr;
    }
    static OSStatus stream(AudioStreamID, UInt32, AudioStreamPropertyID property, void* clientData)
    {
        static_cast<Heard*>(clientData)->add("stream " + qmx::fourCharString(property));
        return noErr;
    }
    void listenToDevice(AudioDeviceID id, UInt32 property = kAudioPropertyWildcardPropertyID)
    {
        EXPECT_EQ(AudioDeviceAddPropertyListener(id, kAudioPropertyWildcardChannel, kAudioPropertyWildcardSection,
                                                 property, device, this),
                  noErr);
    }
    OSStatus stopListeningToDevice(AudioDeviceID id, UInt32 property = kAudioPropertyWildcardPropertyID)
    {
        return AudioDeviceRemovePropertyListener(id, kAudioPropertyWildcardChannel, kAudioPropertyWildcardSection,
                                                 property, device, this);
    }
    /// The calls since the last take(), including those for all earlier changes.
    std::vector<std::string> take()
    {
        qmx::VirtualHardware::shared().settle();
        const std::scoped_lock lock(mutex_);
        return std::exchange(entries_, {});
    }

private:
    void add(std::string entry)
    {
        const std::scoped_lock lock(mutex_);
        entries_.push_back(std::move(entry));
    }
    std::mutex mutex_;
    std::vector<std::string> entries_;
    std::vector<UInt32> ofHardware_;
};

class HardwareTest : public qmx::test::DeviceProperties
{
protected:
    HardwareTest() { hardware.reset(); }
    ~HardwareTest() override { hardware.reset(); }

    AudioDeviceID add(const std::string& uid, UInt32 inputChannels, UInt32 outputChannels)
    {
        return hardware.addDevice(
            qmx::VirtualHardware::standardDevice(uid, uid + " name", inputChannels, outputChannels));
    }
    /// The samples that `id` plays in its next cycles, interleaved.
    std::vector<Float32> played(AudioDeviceID id, UInt32 cycles = 1)
    {
        EXPECT_EQ(noErr, hardware.captureOutput(id, std::size_t{cycles} * 512));
        EXPECT_TRUE(hardware.advanceCycles(id, cycles));
        return hardware.capturedOutput(id);
    }

    qmx::VirtualHardware& hardware = qmx::VirtualHardware::shared();
};
