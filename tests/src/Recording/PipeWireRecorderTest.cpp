// SPDX-License-Identifier: MIT
#include "CoreAudio/DeviceDescription.h"
#include "Devices/QMXAudioDevice.h"
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/MainThread/RunLoop.h"
#include "Recording/QMXAudioRecorder.h"
#include "platform/CoreAudio/PipeWireTest.h"
#include "support/OutsideRealTime.h"
#include "support/RecordedSamples.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <array>

namespace
{

/// Plays counting samples on an output.
class Player : public QMXCoreAudioIOSubscriber
{
public:
    explicit Player(std::function<void()> tell) : tell_(std::move(tell)) {}

    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice&, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*, AudioBufferList* output,
        const AudioTimeStamp*, QMXAudioDevice&) override
    {
        auto* const samples = static_cast<Float32*>(output->mBuffers[0].mData);
        for (UInt32 i = 0; i < output->mBuffers[0].mDataByteSize / sizeof(Float32); ++i)
            samples[i] = counted(played_++);
        const qmx::test::OutsideRealTime outside;
        tell_();
        return noErr;
    }

private:
    std::function<void()> tell_;
    UInt64 played_ = 1;
};

} // namespace

class PipeWireRecorderTest : public PipeWireTest
{
protected:
    /// Records what is played on the test sink until `frames` frames have come.
    void beginTake(UInt32 frames)
    {
        path_ = folder_.path("take" + std::to_string(++takes_) + ".aif");
        sink_ = QMXAudioDevice::deviceWithDeviceID(find("test-sink"));
        recorder = QMXAudioRecorder::initWithAudioDevice_filePath(
            QMXAudioDevice::deviceWithDeviceID(find("test-source")), path_);
        for (const AudioDeviceID device : devicesOfTake())
            listenTo(device);
        recorder->setFileStreamFormat(QMXAudioStreamBasicDescription(qmx::packedPhysicalFormat(48000, 2, 32, true)));
        recorder->setWritesPartialBufferAtStop(true);
        ASSERT_TRUE(recorder->record());
        sink_->addAudioIOSubscriber_forInput(player_ = std::make_shared<Player>([this] { tell(); }), false);
        ASSERT_TRUE(sink_->start());
        ASSERT_TRUE(waitUntil([&] { return recorder->lengthInFrames() >= frames; }));
    }
    /// Stops recording; returns how many of the counting samples are in the file in order. A busy machine loses cycles,
    /// and reports them.
    std::size_t endTake()
    {
        EXPECT_TRUE(recorder->stop());
        sink_->removeAudioIOSubscriber_forInput(*player_, false);
        sink_->stop();
        while (qmx::RunLoop::main().runOnce())
            continue;
        const auto samples = qmx::test::recordedSamples(path_);
        EXPECT_EQ(samples.size(), std::size_t{2} * recorder->lengthInFrames());
        const ArrivedCount arrived(samples);
        EXPECT_EQ(arrived.changed, 0U);
        const auto isTold = [this] {
            return !recorder->lostFramePositions().empty() ||
                   std::ranges::any_of(devicesOfTake(), [this](AudioDeviceID device) {
                       return wasTold(device, kAudioDeviceProcessorOverload);
                   });
        };
        EXPECT_TRUE(arrived.breaks == 0 || waitUntil(isTold)) << arrived.breaks << " breaks though no loss was told";
        for (const AudioDeviceID device : devicesOfTake())
            stopListeningTo(device);
        return arrived.inOrder;
    }
    /// The number of samples in order in a take during which `happens` was called.
    std::size_t take(UInt32 frames, const std::function<void()>& happens)
    {
        std::size_t right = 0;
        for (int attempt = 0; attempt < 3 && right <= frames / 2 && !HasFatalFailure(); ++attempt) {
            beginTake(frames);
            happens();
            right = endTake();
        }
        return right;
    }

    std::shared_ptr<QMXAudioRecorder> recorder;

private:
    std::array<AudioDeviceID, 2> devicesOfTake() const
    {
        return {sink_->deviceID(), recorder->inputDevice()->deviceID()};
    }

    qmx::test::TemporaryFolder folder_;
    std::string path_;
    int takes_ = 0;
    std::shared_ptr<QMXAudioDevice> sink_;
    std::shared_ptr<Player> player_;
};

TEST_F(PipeWireRecorderTest, WhatASinkPlaysIsInTheFileBitForBit)
{
    EXPECT_GT(take(2 * 48000, [] {}), 48000U);
}

TEST_F(PipeWireRecorderTest, AServerThatDiesLeavesAFileWithAllThatCame)
{
    EXPECT_GT(take(48000,
                   [this] {
                       const auto failed = qmx::NotificationCenter::defaultCenter().observe(
                           QMXAudioRecorderFailedNotification, recorder,
                           [](const qmx::Notification&) { qmx::RunLoop::main().stop(); });
                       server().kill();
                       EXPECT_FALSE(qmx::RunLoop::main().runFor(30)) << "the recorder does not tell of it";
                       EXPECT_TRUE(waitUntil([] { return devices().empty(); }));
                       EXPECT_FALSE(recorder->inputDevice()->isRunning());
                       server().start(); // for another attempt
                       EXPECT_TRUE(waitUntil([] { return find("test-sink") && find("test-source"); }));
                   }),
              24000U);
}
