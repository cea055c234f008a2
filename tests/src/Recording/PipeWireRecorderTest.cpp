// SPDX-License-Identifier: MIT
#include "CoreAudio/DeviceDescription.h"
#include "Devices/QMXAudioDevice.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Recording/QMXAudioRecorder.h"
#include "platform/CoreAudio/PipeWireTest.h"
#include "support/PostedNames.h"
#include "support/RecordedSamples.h"
#include "support/TemporaryFolder.h"
#include "support/TimedSound.h"

#include <array>

class PipeWireRecorderTest : public PipeWireTest
{
protected:
    /// Records what is played on the test sink for a second. Returns how many frames of it are in the file in order. A
    /// busy machine loses cycles, and reports them.
    SInt64 take(bool serverDies)
    {
        const std::string path = folder_.path("take" + std::to_string(++takes_) + ".aif");
        const std::array<AudioDeviceID, 2> devicesOfTake{find("test-sink"), find("test-source")};
        const auto source = QMXAudioDevice::deviceWithDeviceID(devicesOfTake[1]);
        const auto recorder = QMXAudioRecorder::initWithAudioDevice_filePath(source, path);
        for (const AudioDeviceID device : devicesOfTake)
            listenTo(device);
        recorder->setFileStreamFormat(QMXAudioStreamBasicDescription(qmx::packedPhysicalFormat(48000, 2, 32, true)));
        recorder->setWritesPartialBufferAtStop(true);
        recorder->setEventMask(0); // but failures are posted
        EXPECT_TRUE(recorder->record());
        SInt64 played = 0;
        Procedure player(devicesOfTake[0], [&](const auto&, const auto&, const AudioBufferList& output, const auto&) {
            qmx::test::TimedSound::fill(samplesOf(output), played);
            played += static_cast<SInt64>(samplesOf(output).size() / 2);
            const qmx::test::OutsideRealTime outside;
            tell();
        });
        EXPECT_EQ(player.start(), noErr);
        EXPECT_TRUE(waitUntil([&] { return recorder->lengthInFrames() >= 48000; }));
        if (serverDies) {
            qmx::test::PostedNames posted;
            posted.observe(recorder);
            server().kill();
            EXPECT_EQ(posted.next(1), std::vector<std::string>{QMXAudioRecorderFailedNotification});
            EXPECT_TRUE(waitUntil([] { return devices().empty(); }));
            EXPECT_FALSE(source->isRunning());
            server().start(); // for another attempt
            EXPECT_TRUE(waitUntil([] { return find("test-sink") && find("test-source"); }));
        }
        EXPECT_TRUE(recorder->stop());
        const auto samples = qmx::test::recordedSamples(path);
        EXPECT_EQ(samples.size(), std::size_t{2} * recorder->lengthInFrames());
        qmx::test::TimedTake arrived;
        arrived.add(samples);
        EXPECT_EQ(arrived.changed, 0);
        const auto isTold = [&] {
            return !recorder->lostFramePositions().empty() ||
                   std::ranges::any_of(devicesOfTake, [this](AudioDeviceID device) {
                       return wasTold(device, kAudioDeviceProcessorOverload);
                   });
        };
        EXPECT_TRUE(arrived.breaks == 0 || waitUntil(isTold)) << arrived.breaks << " breaks though no loss was told";
        for (const AudioDeviceID device : devicesOfTake)
            stopListeningTo(device);
        return arrived.right;
    }

private:
    qmx::test::TemporaryFolder folder_;
    int takes_ = 0;
};

TEST_F(PipeWireRecorderTest, WhatASinkPlaysIsInTheFileBitForBitAlsoIfTheServerDies)
{
    for (const bool serverDies : {false, true}) {
        SInt64 inOrder = 0;
        for (int attempt = 0; attempt < 3 && inOrder <= 12000; ++attempt)
            inOrder = take(serverDies);
        EXPECT_GT(inOrder, 12000) << serverDies;
    }
}
