// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudio/VirtualHardware.h"
#include "Devices/QMXAudioDevice.h"
#include "Foundation/MainThread/RunLoop.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace qmx::test
{

/// Calls of one kind that fail.
inline VirtualFault failing(HardwareOperation operation, std::optional<UInt32> property = {},
                            UInt32 times = std::numeric_limits<UInt32>::max())
{
    return {kAudioHardwareUnspecifiedError, operation, {}, property, {}, {}, 0, times};
}

/// The virtual hardware without devices, in manual time, and the notifications that a test causes with it.
class VirtualDevices : public testing::Test
{
protected:
    VirtualDevices()
    {
        hardware.reset();
        QMXAudioDevice::initialize();
        news();
        observer_ =
            NotificationCenter::defaultCenter().observe("", nullptr, [this](const Notification& n) { keep(n); });
    }
    ~VirtualDevices() override
    {
        observer_.reset();
        hardware.reset();
        news();
    }

    AudioDeviceID add(const std::string& uid, UInt32 inputs = 2, UInt32 outputs = 2)
    {
        return hardware.addDevice(
            VirtualHardware::standardDevice(uid, std::string("Name of ").append(uid), inputs, outputs));
    }
    static std::shared_ptr<QMXAudioDevice> registered(AudioDeviceID id)
    {
        const auto devices = QMXAudioDevice::allDevicesDictionary().snapshot();
        const auto found = devices->find(id);
        return found == devices.end() ? nullptr : found->second;
    }
    /// The notifications since the last call, in order: "DeviceStreams a" for
    /// QMXAudioDeviceStreamsDidChangeNotification from the device with the UID a; without a UID if the class is the
    /// sender.
    std::vector<std::string> news()
    {
        hardware.settle();
        while (RunLoop::main().runOnce())
            continue;
        return std::exchange(news_, {});
    }

    VirtualHardware& hardware = VirtualHardware::shared();

private:
    void keep(const Notification& notification)
    {
        EXPECT_TRUE(RunLoop::main().isCurrent());
        constexpr std::string_view before = "QMXAudio", behind = "DidChangeNotification";
        std::string name = notification.name.substr(before.size());
        name.resize(name.size() - behind.size());
        if (const auto device = std::dynamic_pointer_cast<QMXAudioDevice>(notification.sender))
            name.append(" ").append(device->deviceUID().value_or("(gone)"));
        else
            EXPECT_EQ(notification.sender, QMXAudioDevice::classObject());
        news_.push_back(name);
    }

    std::vector<std::string> news_;
    std::shared_ptr<Object> observer_;
};

} // namespace qmx::test
