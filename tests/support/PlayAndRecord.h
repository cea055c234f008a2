// SPDX-License-Identifier: MIT
// The virtual hardware in manual time, a disk in memory, sound files of floats on it, and what an object posts.
#pragma once

#include "CoreAudio/VirtualHardware.h"
#include "Devices/QMXAudioDevice.h"
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/MainThread/RunLoop.h"
#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/CapturedFailures.h"
#include "support/RecordedSamples.h"
#include "support/Slices.h"
#include "support/WatchedDisk.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace qmx::test
{

class PlayAndRecord : public testing::Test
{
protected:
    static constexpr const char* path = "/d/sound.wav";

    PlayAndRecord()
    {
        hardware.reset();
        QMXAudioDevice::initialize();
        posted();
    }
    ~PlayAndRecord() override
    {
        posted();
        hardware.reset();
    }
    std::shared_ptr<QMXAudioDevice> addDevice(const std::string& uid, UInt32 inputs, UInt32 outputs,
                                              Float64 rate = 44100)
    {
        auto description = VirtualHardware::standardDevice(uid, "Name of " + uid, inputs, outputs);
        description.nominalSampleRate = rate;
        auto device = QMXAudioDevice::initWithDeviceID(hardware.addDevice(description));
        posted();
        return device;
    }
    /// A stereo file at 44100 Hz, by default a WAVE file of floats.
    static void writeFile(const std::string& file, UInt32 frames, const std::function<Float32(UInt32, UInt32)>& sample,
                          AudioFileTypeID type = kAudioFileWAVEType,
                          const AudioStreamBasicDescription& fileFormat = floats(2))
    {
        std::vector<Float32> samples;
        for (UInt32 frame = 0; frame < frames; ++frame)
            for (const UInt32 channel : {0U, 1U})
                samples.push_back(sample(frame, channel));
        writeMusic(file, type, fileFormat, samples);
    }
    /// What a device is given in its next cycles, interleaved.
    std::vector<Float32> played(const QMXAudioDevice& device, UInt32 cycles)
    {
        EXPECT_EQ(noErr, hardware.captureOutput(device.deviceID(), std::size_t{cycles} * 512));
        for (UInt32 cycle = 0; cycle < cycles; ++cycle)
            if (!hardware.advanceCycles(device.deviceID()))
                break;
        return hardware.capturedOutput(device.deviceID());
    }
    /// Starts and stops while the rate of a device changes again and again; `names` are those that each stop posts.
    void stopWhileRateChanges(const QMXAudioDevice& device, const std::function<OSStatus()>& start,
                              const std::function<OSStatus()>& stop, const std::vector<std::string>& names)
    {
        for (int round = 0; round < 20; ++round) {
            EXPECT_EQ(noErr, start());
            posted();
            std::atomic<bool> ends = false;
            std::thread changer([&] {
                for (int i = 0; !ends; ++i)
                    (void)hardware.change(device.deviceID(), [&](auto& description) {
                        description.nominalSampleRate = description.actualSampleRate = i % 2 == 0 ? 48000 : 44100;
                    });
            });
            for (int i = 0; i < round * 100; ++i)
                std::this_thread::yield();
            EXPECT_EQ(noErr, stop());
            ends = true;
            changer.join();
            EXPECT_EQ(names, posted());
            EXPECT_FALSE(hardware.advanceCycles(device.deviceID())); // nothing runs
        }
    }
    void observe(const std::shared_ptr<Object>& sender)
    {
        observer_ = NotificationCenter::defaultCenter().observe(
            "", sender, [this](const Notification& notification) { names_.push_back(notification.name); });
    }
    /// The names of what the observed object posted since the last look.
    std::vector<std::string> posted()
    {
        hardware.settle();
        while (RunLoop::main().runOnce())
            continue;
        return std::exchange(names_, {});
    }

    VirtualHardware& hardware = VirtualHardware::shared();
    WatchedDisk disk;
    CapturedFailures failures;

private:
    std::vector<std::string> names_;
    std::shared_ptr<Object> observer_;
};

} // namespace qmx::test
