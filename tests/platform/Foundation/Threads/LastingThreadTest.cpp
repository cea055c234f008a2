// SPDX-License-Identifier: MIT
// Devices and files when the system has no thread left, and when it has some again.
#include "Foundation/Threads/Retirement.h"
#include "platform/AudioToolbox/Conversion/Conversions.h"
#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/Hardware.h"
#include "support/MemoryDisk.h"
#include "support/NoThreads.h"
#include "support/Units.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>

namespace
{

using namespace qmx::test;

/// Runs in a process where nothing was used before.
class LastingThread : public testing::Test
{
protected:
    template <class Work> static void inAProcessOfItsOwn(Work work)
    {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        const auto run = [&work] {
            alarm(25); // waits for threads are longer
            work();
            std::exit(testing::Test::HasFailure());
        };
        EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
    }
};

TEST_F(LastingThread, DevicesWithoutThreadsGiveAStatusAndWorkWhenThereAreSome)
{
    inAProcessOfItsOwn([] {
        std::optional<NoThreads> none(std::in_place);
        auto& hardware = qmx::VirtualHardware::shared();
        hardware.reset();
        const AudioDeviceID device = hardware.addDevice(qmx::VirtualHardware::standardDevice("uid", "name", 0, 2));
        Heard heard;
        heard.listenToDevice(device, kAudioDevicePropertyDeviceIsRunning);
        const OpenUnit unit(defaultOutput);
        Counter counter;
        set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, counter.callback());
        EXPECT_EQ(AudioUnitInitialize(unit), noErr);
        EXPECT_EQ(AudioOutputUnitStart(unit), kAudioHardwareUnspecifiedError);
        EXPECT_EQ(AudioOutputUnitStop(unit), noErr);
        hardware.setTime(qmx::VirtualTime::fast);
        EXPECT_EQ(hardware.time(), qmx::VirtualTime::manual);

        none.reset();
        counter.times.reserve(2);
        EXPECT_EQ(AudioOutputUnitStart(unit), noErr);
        EXPECT_TRUE(hardware.advanceCycles(device, 2));
        EXPECT_EQ(counter.times.size(), 2U);
        EXPECT_THAT(heard.take(), testing::ElementsAre("goin 0 out"));
        hardware.setTime(qmx::VirtualTime::fast);
        EXPECT_EQ(hardware.time(), qmx::VirtualTime::fast);
        EXPECT_EQ(AudioOutputUnitStop(unit), noErr);
        EXPECT_THAT(heard.take(), testing::ElementsAre("goin 0 out")); // no listener is called after the end
        qmx::waitUntilRetired();
    });
}

TEST_F(LastingThread, AFileThatNoThreadServesIsNotPrimedForRealTime)
{
    inAProcessOfItsOwn([] {
        MemoryDisk disk;
        const auto samples = music(100, 2);
        const ExtAudioFileRef file = createExtended("/d/a.aif", kAudioFileAIFCType, linear(11, 32, 2));
        setClient(file, floats(2));
        std::optional<NoThreads> none(std::in_place);
        EXPECT_EQ(ExtAudioFileWriteAsync(file, 0, nullptr), kAudioFileUnspecifiedError);
        none.reset();
        EXPECT_EQ(ExtAudioFileWriteAsync(file, 0, nullptr), noErr);
        EXPECT_EQ(ExtAudioFileDispose(file), noErr);
    });
}

TEST_F(LastingThread, RatesAreConvertedWithoutAHelpingThreadAndWithOneAlike)
{
    inAProcessOfItsOwn([] {
        const auto samples = music(50'000, 2);
        const auto convert = [&] { return converted<float>(floats(2), floats(2, 48000), samples); };
        const auto hasHelper = [] {
            const std::filesystem::directory_iterator threads("/proc/self/task");
            return std::any_of(begin(threads), end(threads), [](const auto& thread) {
                std::string name;
                std::getline(std::ifstream(thread.path() / "comm"), name);
                return name == "qmx-helper";
            });
        };
        std::optional<NoThreads> none(std::in_place);
        const auto alone = convert();
        EXPECT_FALSE(hasHelper());
        none.reset();
        EXPECT_TRUE(convert() == alone);
        EXPECT_TRUE(hasHelper());
    });
}

} // namespace
