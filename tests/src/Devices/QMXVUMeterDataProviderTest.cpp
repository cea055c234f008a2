// SPDX-License-Identifier: MIT
#include "Devices/QMXVUMeterDataProvider.h"

#include "Devices/QMXVUMeterData.h"
#include "support/PlayAndRecord.h"
#include "support/VirtualDevices.h"

#include <gmock/gmock.h>

namespace
{

/// A device whose input repeats some samples, and what its meter posts.
class Meter : public qmx::test::PlayAndRecord
{
protected:
    std::shared_ptr<QMXAudioDevice> device(UInt32 channels, std::vector<Float32> samples)
    {
        const auto id = hardware.addDevice(qmx::VirtualHardware::standardDevice("meter", "Meter", channels, 0));
        EXPECT_EQ(noErr, hardware.setInputSamples(id, std::move(samples), channels, true));
        return QMXAudioDevice::deviceWithDeviceID(id);
    }
    /// Runs cycles one by one and returns the published level of the first channel for each, -1 if none was published.
    std::vector<Float32> cycles(const QMXAudioDevice& of, UInt32 count)
    {
        std::vector<Float32> published;
        for (UInt32 i = 0; i < count; ++i) {
            levels.reset();
            EXPECT_TRUE(hardware.advanceCycles(of.deviceID()));
            posted();
            published.push_back(levels ? levels->floatValueForChannel(1) : -1);
        }
        return published;
    }

    std::shared_ptr<QMXVUMeterData> levels;
    std::vector<std::string> events;

private:
    std::shared_ptr<qmx::Object> observer_ =
        qmx::NotificationCenter::defaultCenter().observe("", nullptr, [this](const qmx::Notification& n) {
            if (n.name == QMXVUMeterDataProviderNewDataIsAvailableNotification)
                levels = std::dynamic_pointer_cast<QMXVUMeterData>(n.sender);
            else if (std::dynamic_pointer_cast<QMXVUMeterDataProvider>(n.sender))
                events.push_back(n.name);
        });
};

TEST_F(Meter, PublishesTheLargestPositiveSamplesOfEveryNthCycle)
{
    const auto input = device(2, {0.25F, -0.5F, 0.75F, -1.0F});
    const auto meter = input->inputVUMeterDataProvider();
    meter->start();
    meter->start();
    EXPECT_THAT(cycles(*input, 2), testing::ElementsAre(0.75F, 0.75F));
    EXPECT_EQ(levels->floatValueForChannel(2), 0.0F);
    meter->setNotificationInterval(3);
    EXPECT_THAT(cycles(*input, 5), testing::ElementsAre(-1, -1, 0.75F, -1, -1));
    meter->setNotificationInterval(0);
    EXPECT_THAT(cycles(*input, 2), testing::ElementsAre(0.75F, 0.75F));
    meter->stop();
    EXPECT_FALSE(input->isRunning());
    posted();
    EXPECT_THAT(events, testing::ElementsAre(QMXVUMeterDataProviderDidStartNotification,
                                             QMXVUMeterDataProviderDidStopNotification));
}

TEST_F(Meter, MetersTheFirstEightOfManyChannels)
{
    const auto input = device(11, {.1F, .2F, .3F, .4F, .5F, .6F, .7F, .8F, .9F, .95F, 1});
    const auto meter = QMXVUMeterDataProvider::initWithAudioDevice(input);
    meter->start();
    cycles(*input, 1);
    EXPECT_EQ(levels->floatValueForChannel(1), .1F);
    EXPECT_EQ(levels->floatValueForChannel(8), .8F);
    meter->stop();
}

TEST_F(Meter, TurnsToAnotherDeviceAndKeepsOneOnlyWhileProviding)
{
    auto first = device(2, {0.5F, 0.5F});
    const auto second = device(1, {0.125F});
    const auto meter = first->inputVUMeterDataProvider();
    const std::weak_ptr<QMXAudioDevice> watched = first;
    meter->start();
    first.reset();
    EXPECT_FALSE(watched.expired());
    meter->setAudioDevice(second);
    EXPECT_TRUE(watched.expired()) << "an idle meter kept its owner";
    EXPECT_THAT(cycles(*second, 1), testing::ElementsAre(0.125F));
    meter->stop();
    EXPECT_EQ(meter->audioDevice(), second);
}

TEST_F(Meter, TellsWhyItsDeviceDoesNotRunAndMetersItOnceItDoes)
{
    const auto input = device(1, {0.5F});
    const auto meter = QMXVUMeterDataProvider::initWithAudioDevice(input);
    hardware.addFault(qmx::test::failing(qmx::HardwareOperation::start, {}, 1));
    meter->start();
    EXPECT_EQ(meter->lastStatus(), kAudioHardwareUnspecifiedError);
    EXPECT_EQ(meter->lastError(), "Meter could not be started: Hardware unspecified error");
    EXPECT_TRUE(input->start()); // by another user, who is not stopped with the meter
    EXPECT_THAT(cycles(*input, 1), testing::ElementsAre(0.5F));
    meter->stop();
    EXPECT_EQ(meter->lastStatus(), noErr);
    EXPECT_TRUE(input->isRunning());
}

TEST(VUMeterData, CopiesEightLevelsAtMost)
{
    const std::vector<Float32> ten(10, 0.5F);
    const auto data = QMXVUMeterData::initWithData_length_scaler(ten.data(), ten.size(), 2);
    data->setData_length(std::vector<Float32>{1}.data(), 1);
    EXPECT_EQ(data->floatValueForChannel(1), 1.0F);
    EXPECT_EQ(data->floatValueForChannel(8), 0.5F);
    EXPECT_EQ(QMXVUMeterData::initWithData_length_scaler(nullptr, 2, 0.5F)->scaler(), 0.0F);
}

TEST(VUMeterData, FindsThePeakWhereverItIsForAnyNumberOfChannels)
{
    for (unsigned long channels = 1; channels <= 9; ++channels)
        for (unsigned long peakAt = 0; peakAt < 100; ++peakAt) {
            std::vector<Float32> samples(100, -1);
            samples[peakAt] = 0.5F;
            const auto block = QMXVUMeterDataProvider::findMaxValues_numChannels_length(samples.data(), channels, 403);
            const auto* const peaks = static_cast<const Float32*>(block.get());
            for (unsigned long i = 0; i < channels; ++i)
                ASSERT_EQ(peaks[i], i == peakAt % channels ? 0.5F : 0.0F) << channels << " channels, " << peakAt;
        }
}

} // namespace
