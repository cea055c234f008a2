// SPDX-License-Identifier: MIT
#include "Devices/QMXAudioDevice.h"

#include "Formats/QMXAudioDeviceUtils.h"
#include "support/CapturedLog.h"
#include "support/VirtualDevices.h"

#include <csignal>
#include <cstdio>
#include <functional>
#include <unistd.h>

namespace
{

using qmx::HardwareOperation;
using qmx::VirtualHardware;
using Lines = std::vector<std::string>;

class DeviceRegistry : public qmx::test::VirtualDevices
{
protected:
    static Lines uids(const QMXAudioDeviceList& list)
    {
        Lines all;
        for (const auto& device : list.snapshot())
            all.push_back(device->deviceUID().value_or("(gone)"));
        return all;
    }
    static void expectLists(const Lines& all, const Lines& inputs, const Lines& outputs)
    {
        EXPECT_EQ(uids(QMXAudioDevice::allDevicesArray()), all);
        EXPECT_EQ(uids(QMXAudioDevice::inputDevices()), inputs);
        EXPECT_EQ(uids(QMXAudioDevice::outputDevices()), outputs);
        EXPECT_EQ(QMXAudioDevice::allDevicesDictionary().snapshot().size(), all.size());
    }
};

const Lines pluggedFirst = {"HardwareDevices", "HardwareDefaultInputDevice", "HardwareDefaultOutputDevice",
                            "HardwareProperty"};

TEST_F(DeviceRegistry, FollowsDevicesThatComeAndGo)
{
    const auto& list = QMXAudioDevice::allDevicesArray();
    const AudioDeviceID both = add("both");
    EXPECT_EQ(news(), pluggedFirst);
    const AudioDeviceID microphone = add("microphone", 1, 0);
    add("speaker", 0, 2);
    add("neither", 0, 0);
    EXPECT_EQ(news(), Lines(3, "HardwareDevices"));
    expectLists({"both", "microphone", "speaker", "neither"}, {"both", "microphone"}, {"both", "speaker"});
    EXPECT_EQ(registered(microphone)->description(), "Name of microphone by QMX");

    const auto gone = registered(both);
    EXPECT_EQ(noErr, hardware.removeDevice(both));
    EXPECT_EQ(news(), pluggedFirst);
    expectLists({"microphone", "speaker", "neither"}, {"microphone"}, {"speaker"});
    EXPECT_FALSE(gone->isValid());
    EXPECT_EQ(QMXAudioDevice::defaultInputDevice(), registered(microphone));
    EXPECT_EQ(&QMXAudioDevice::allDevicesArray(), &list);

    hardware.announceHardware(kAudioHardwarePropertyDevices);
    EXPECT_EQ(news(), Lines{"HardwareDevices"});
    expectLists({"microphone", "speaker", "neither"}, {"microphone"}, {"speaker"});
}

/// Does something on the notification thread each time a property changes, after the class was notified.
class OnHardwareChange
{
public:
    OnHardwareChange(AudioHardwarePropertyID property, std::function<void()> action)
        : property_(property), action_(std::move(action))
    {
        EXPECT_EQ(AudioHardwareAddPropertyListener(property_, heard, this), noErr);
    }
    ~OnHardwareChange() { EXPECT_EQ(AudioHardwareRemovePropertyListener(property_, heard, this), noErr); }

private:
    static OSStatus heard(AudioHardwarePropertyID, void* self)
    {
        static_cast<OnHardwareChange*>(self)->action_();
        return noErr;
    }
    const AudioHardwarePropertyID property_;
    const std::function<void()> action_;
};

TEST_F(DeviceRegistry, LosesWhatWentBeforeItGetsWhatCameWithTheSameChange)
{
    const std::vector<AudioDeviceID> old = {add("one"), add("two")};
    add("three", 0, 2);
    news();
    std::vector<std::size_t> counts;
    const OnHardwareChange listener(kAudioHardwarePropertyDevices, [&counts] {
        counts.push_back(QMXAudioDevice::allDevicesArray().snapshot().size());
    });
    const auto added = hardware.changeDevices(old, std::vector{VirtualHardware::standardDevice("new", "New", 2, 0)});
    EXPECT_EQ(news(), (Lines{"HardwareDevices", "HardwareDevices", "HardwareDefaultInputDevice",
                             "HardwareDefaultOutputDevice", "HardwareProperty"}));
    EXPECT_EQ(counts, (std::vector<std::size_t>{1, 2}));
    expectLists({"three", "new"}, {"new"}, {"three"});
    EXPECT_EQ(QMXAudioDevice::defaultInputDevice(), registered(added[0]));
}

TEST_F(DeviceRegistry, KeepsWhatVanishedWhileAnotherCameUntilTheNumberFalls)
{
    const AudioDeviceID old = add("old", 0, 0);
    news();
    const OnHardwareChange listener(kAudioHardwarePropertySleepingIsAllowed, [&] {
        EXPECT_EQ(noErr, hardware.removeDevice(old));
        add("new", 0, 0);
        QMXAudioDevice::initializeListOfDevices(); // before the class was notified of either
        expectLists({"(gone)", "new"}, {}, {});
        EXPECT_FALSE(registered(old)->isAlive());
    });
    hardware.announceHardware(kAudioHardwarePropertySleepingIsAllowed);
    EXPECT_EQ(news(), (Lines{"HardwareProperty", "HardwareDevices", "HardwareDevices"}));
    expectLists({"new"}, {}, {});
}

TEST_F(DeviceRegistry, AsksTheHardwareForTheDefaults)
{
    const AudioDeviceID one = add("one"), two = add("two");
    news();
    EXPECT_EQ(QMXAudioDevice::setDefaultInputDevice(*registered(two)), noErr);
    EXPECT_EQ(news(), Lines{"HardwareDefaultInputDevice"});
    EXPECT_EQ(QMXAudioDevice::setDefaultOutputDevice(*registered(two)), noErr);
    EXPECT_EQ(news(), Lines{"HardwareDefaultOutputDevice"});
    EXPECT_EQ(noErr, hardware.setDefaultDevice(kAudioHardwarePropertyDefaultSystemOutputDevice, two));
    EXPECT_EQ(news(), Lines{"HardwareProperty"});
    EXPECT_EQ(QMXAudioDevice::defaultInputDevice(), registered(two));
    EXPECT_EQ(QMXAudioDevice::defaultOutputDevice(), registered(two));
    EXPECT_EQ(QMXAudioDevice::defaultSystemOutputDevice(), registered(two));
    EXPECT_TRUE(registered(two)->isDefaultDevice(true));
    EXPECT_FALSE(registered(one)->isDefaultDevice(false));

    EXPECT_EQ(noErr, hardware.setDefaultDevice(kAudioHardwarePropertyDefaultInputDevice, kAudioDeviceUnknown));
    EXPECT_EQ(QMXAudioDevice::defaultInputDevice(), nullptr);
    const qmx::test::CapturedLog log;
    hardware.addFault(qmx::test::failing(HardwareOperation::getProperty));
    EXPECT_EQ(QMXAudioDevice::defaultOutputDevice(), nullptr);
    EXPECT_TRUE(log.has("ERR READ HW PROP: Hardware unspecified error (kAudioHardwarePropertyDefaultOutputDevice)"));
    EXPECT_EQ(QMXAudioDeviceUtils::lastReportedError(), kAudioHardwareUnspecifiedError);
    hardware.addFault(qmx::test::failing(HardwareOperation::setProperty));
    EXPECT_EQ(QMXAudioDevice::setDefaultInputDevice(*registered(one)), kAudioHardwareUnspecifiedError);
}

TEST_F(DeviceRegistry, FindsDevicesByTheirUIDs)
{
    const AudioDeviceID id = add("ü");
    news();
    const auto device = QMXAudioDevice::deviceWithDeviceUID("ü");
    ASSERT_TRUE(device);
    EXPECT_EQ(device->deviceID(), id);
    EXPECT_TRUE(device->isValid());
    EXPECT_NE(device, registered(id));

    const qmx::test::CapturedLog log;
    EXPECT_EQ(QMXAudioDevice::deviceWithDeviceUID("other"), nullptr);
    EXPECT_EQ(QMXAudioDevice::audioDeviceIDForUID("other"), 0xFFFFFFFF);
    EXPECT_EQ(log.lines(), Lines(2, "ERROR: Hardware bad device error"));
}

// In a process of its own: after a failed refresh the registry's lock stays held, and the next refresh never returns.
void refreshAfterFailure(HardwareOperation operation, std::size_t registered)
{
    qmx::setLogHandler([](qmx::LogLevel, const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); });
    auto& hardware = VirtualHardware::shared();
    hardware.addFault(qmx::test::failing(operation, kAudioHardwarePropertyDevices));
    QMXAudioDevice::initializeListOfDevices();
    hardware.removeFaults();
    if (QMXAudioDevice::allDevicesArray().snapshot().size() == registered)
        std::fprintf(stderr, "unchanged\n");
    ualarm(200'000, 0);
    QMXAudioDevice::initializeListOfDevices();
    _exit(0);
}

TEST_F(DeviceRegistry, StaysLockedAfterARefreshThatFailed)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    add("one");
    news();
    for (const auto operation : {HardwareOperation::getPropertyInfo, HardwareOperation::getProperty})
        EXPECT_EXIT(refreshAfterFailure(operation, 1), testing::KilledBySignal(SIGALRM),
                    "ERROR: Hardware unspecified error\nunchanged");
}

} // namespace
