// SPDX-License-Identifier: MIT
#include "Front/Tap.h"

#include "Foundation/Threads/Retirement.h"
#include "Front/Devices.h"
#include "support/OutsideRealTime.h"
#include "support/VirtualDevices.h"

#include <atomic>
#include <thread>

namespace
{

using qmx::Tap;

class TapTest : public qmx::test::VirtualDevices
{
protected:
    /// A device whose directions each have a stereo and a mono stream; what it captures names frame and channel.
    AudioDeviceID addWithTwoStreams()
    {
        auto description = qmx::VirtualHardware::standardDevice("split", "Split", 2, 2);
        for (qmx::SectionDescription* section : {&description.input, &description.output}) {
            qmx::StreamDescription mono = section->streams[0];
            mono.channels = 1;
            mono.physicalFormats.clear();
            mono.physicalFormat = qmx::packedPhysicalFormat(44100, 1, 16);
            section->streams.push_back(mono);
        }
        return captured(hardware.addDevice(description));
    }
    AudioDeviceID captured(AudioDeviceID id)
    {
        EXPECT_EQ(noErr, hardware.setInput(id, [](Float32* samples, UInt32 frames, UInt32 channels, SInt64 first) {
            for (UInt32 i = 0; i < frames * channels; ++i)
                samples[i] = static_cast<Float32>((first + i / channels) * 4 + i % channels) / 65536;
        }));
        return id;
    }
    qmx::Device deviceOf(AudioDeviceID id)
    {
        news();
        return qmx::Device(registered(id));
    }
    /// Waits for what callbacks left to another thread.
    static void retire() { qmx::waitUntilRetired(); }
};

/// Whether samples count on as `captured` counts, for `channels` channels.
bool countsOn(std::span<const float> samples, unsigned channels)
{
    const auto first = static_cast<long>(samples[0] * 65536);
    for (std::size_t i = 0; i < samples.size(); ++i)
        if (static_cast<long>(samples[i] * 65536) != first + static_cast<long>(i / channels * 4 + i % channels))
            return false;
    return samples.size() % channels == 0;
}

} // namespace

TEST_F(TapTest, ReceivesAllChannelsOfEachCycle)
{
    for (const bool isSplit : {false, true}) {
        const AudioDeviceID id = isSplit ? addWithTwoStreams() : captured(add("plain"));
        const unsigned expected = isSplit ? 3 : 2;
        std::size_t frames = 0, wrong = 0;
        {
            const auto tap = deviceOf(id).onInput([&](std::span<const float> samples, unsigned channels) noexcept {
                wrong += channels == expected && countsOn(samples, channels) ? 0 : 1;
                frames += samples.size() / expected;
            });
            ASSERT_TRUE(tap);
            EXPECT_TRUE(tap->isRunning());
            EXPECT_TRUE(hardware.advanceCycles(id, 4));
            EXPECT_EQ(noErr, hardware.setCycleFrames(id, 1000)); // comes in slices
            EXPECT_TRUE(hardware.advanceCycles(id, 2));          // the first of them was due before
        }
        EXPECT_EQ(5 * 512 + 1000, frames);
        EXPECT_EQ(0, wrong);
        EXPECT_FALSE(hardware.advanceCycles(id)) << "its device still runs";
    }
}

TEST_F(TapTest, SuppliesWhatIsPlayedMixedWithOthers)
{
    for (const bool isSplit : {false, true}) {
        const AudioDeviceID id = isSplit ? addWithTwoStreams() : add("plain");
        const auto plays = [](float level) {
            return [level](std::span<float> samples, unsigned channels) noexcept {
                for (std::size_t i = 0; i < samples.size(); ++i)
                    samples[i] += level * static_cast<float>(i % channels + 1);
            };
        };
        const auto one = deviceOf(id).onOutput(plays(0.125F)), other = deviceOf(id).onOutput(plays(0.0625F));
        ASSERT_TRUE(one && other);
        EXPECT_EQ(noErr, hardware.captureOutput(id, 1024));
        EXPECT_TRUE(hardware.advanceCycles(id, 2));
        const auto played = hardware.capturedOutput(id);
        const std::size_t channels = isSplit ? 3 : 2;
        ASSERT_EQ(1024 * channels, played.size());
        for (std::size_t i = 0; i < played.size(); ++i)
            ASSERT_EQ(0.1875F * static_cast<float>(i % channels + 1), played[i]) << i;
    }
}

TEST_F(TapTest, EndsWithItsHandleOnAnyThreadAndInsideItsFunction)
{
    const AudioDeviceID id = add("a");
    const qmx::Device device = deviceOf(id);
    const auto alive = std::make_shared<int>();
    std::optional<Tap> own;
    std::atomic<int> ownCalls = 0;
    own = std::move(*device.onInput([&, kept = alive](std::span<const float>, unsigned) noexcept {
        ++ownCalls;
        own.reset();
    }));
    EXPECT_TRUE(hardware.advanceCycles(id)); // under the trap for real-time threads
    retire();
    EXPECT_EQ(1, ownCalls);
    EXPECT_EQ(1, alive.use_count());
    EXPECT_FALSE(hardware.advanceCycles(id));

    // also while something else holds the device object
    std::optional<Tap> held = std::move(*device.onInput([](std::span<const float>, unsigned) noexcept {}));
    const auto object = held->object();
    EXPECT_TRUE(hardware.advanceCycles(id));
    held.reset();
    EXPECT_FALSE(hardware.advanceCycles(id));

    // a thread that runs ahead of its device
    hardware.setTime(qmx::VirtualTime::fast);
    std::atomic<int> calls = 0;
    for (int round = 0; round < 50; ++round) {
        const auto before = calls.load();
        std::atomic<bool> isOver = false;
        std::optional<Tap> tap = std::move(*device.onInput([&](std::span<const float>, unsigned) noexcept {
            ++calls;
            if (isOver)
                std::abort();
        }));
        while (calls == before)
            std::this_thread::yield();
        std::thread([&] {
            tap.reset();
            isOver = true;
        }).join();
    }
    hardware.setTime(qmx::VirtualTime::manual);
}

TEST_F(TapTest, IsRefusedWhereThereIsNoSound)
{
    const AudioDeviceID id = add("out", 0, 2);
    const qmx::Device device = deviceOf(id);
    const auto listens = [](std::span<const float>, unsigned) noexcept {};
    EXPECT_EQ("Name of out has no input", device.onInput(listens).error().text());
    hardware.addFault(qmx::test::failing(qmx::HardwareOperation::start));
    EXPECT_EQ(kAudioHardwareUnspecifiedError,
              device.onOutput([](std::span<float>, unsigned) noexcept {}).error().status());
    EXPECT_EQ(noErr, hardware.removeDevice(id));
    EXPECT_EQ("Name of out is gone", device.onInput(listens).error().text());
}
