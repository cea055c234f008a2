// SPDX-License-Identifier: MIT
#include "Front/Devices.h"

#include "support/VirtualDevices.h"

#include <gmock/gmock.h>

using qmx::DeviceChange;
using qmx::Direction;
using testing::ElementsAre;
using testing::HasSubstr;

class FrontDevicesTest : public qmx::test::VirtualDevices
{
protected:
    static std::vector<std::string> uids(const std::vector<qmx::Device>& devices)
    {
        std::vector<std::string> all;
        for (const qmx::Device& each : devices)
            all.push_back(each.uid());
        return all;
    }
};

TEST_F(FrontDevicesTest, AreListedByDirectionAndFoundByUID)
{
    EXPECT_EQ("There is no input device", qmx::defaultInput().error().text());
    const AudioDeviceID both = add("both");
    add("in", 2, 0);
    add("out", 0, 6);
    news();
    EXPECT_THAT(uids(qmx::devices()), ElementsAre("both", "in", "out"));
    EXPECT_THAT(uids(qmx::inputDevices()), ElementsAre("both", "in"));
    EXPECT_THAT(uids(qmx::outputDevices()), ElementsAre("both", "out"));
    EXPECT_EQ(both, qmx::defaultInput()->id());
    EXPECT_EQ(6U, qmx::device("out")->outputChannels());
    EXPECT_EQ("away: there is no such device", qmx::device("away").error().text());
    EXPECT_TRUE(qmx::backendStatus());

    // one goes as another comes
    const qmx::Device gone = *qmx::device("both");
    hardware.changeDevices(std::vector{both}, std::vector{qmx::VirtualHardware::standardDevice("new", "New", 2, 2)});
    news();
    EXPECT_THAT(uids(qmx::devices()), ElementsAre("in", "out", "new"));
    EXPECT_FALSE(gone.isAlive());
    EXPECT_EQ("Name of both", gone.name());
    EXPECT_EQ(kAudioHardwareBadDeviceError, gone.setVolume(Direction::output, 1).error().status());
}

TEST_F(FrontDevicesTest, AreSetPerDirection)
{
    add("both");
    news();
    const qmx::Device device = *qmx::device("both");
    EXPECT_TRUE(device.setSampleRate(96000));
    EXPECT_EQ(96000, device.sampleRate());
    const auto refused = device.setSampleRate(12345);
    ASSERT_FALSE(refused);
    EXPECT_THAT(refused.error().text(), HasSubstr("Name of both could not change its sample rate: "));
    EXPECT_TRUE(device.setBufferFrames(256));
    EXPECT_EQ(256U, device.bufferFrames());
    for (const Direction direction : {Direction::input, Direction::output}) {
        const Direction other = direction == Direction::input ? Direction::output : Direction::input;
        EXPECT_TRUE(device.setVolume(direction, 0.5F));
        EXPECT_EQ(0.5F, device.volume(direction));
        EXPECT_NEAR(-6.02F, *device.decibels(direction), 0.01F);
        EXPECT_TRUE(device.setMuted(direction, true));
        EXPECT_EQ(true, device.isMuted(direction));
        EXPECT_EQ(direction == Direction::output, *device.isMuted(other));
        const auto sources = device.dataSources(direction);
        ASSERT_EQ(2U, sources.size());
        EXPECT_TRUE(device.setDataSource(direction, sources[1].id));
        EXPECT_EQ(sources[1].id, device.dataSource(direction));
    }
    EXPECT_EQ(std::nullopt, device.volume(Direction::input, 3));
}

TEST_F(FrontDevicesTest, TellTheirChangesUntilTheHandleIsReleased)
{
    std::vector<DeviceChange> changes;
    auto subscription = qmx::onDevicesChanged([&](DeviceChange change) { changes.push_back(change); });
    add("one");
    news();
    EXPECT_THAT(changes, ElementsAre(DeviceChange::devices, DeviceChange::defaultInput, DeviceChange::defaultOutput));
    add("two");
    hardware.settle(); // a change that is on its way is not delivered, either
    subscription = {};
    news();
    EXPECT_EQ(3U, changes.size());
}
