// SPDX-License-Identifier: MIT
// What real-time threads read from extended audio files.
#include "CoreAudio/VirtualHardware.h"
#include "Foundation/RealTime.h"
#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/MemoryDisk.h"

#include <atomic>
#include <thread>

namespace
{

using namespace qmx::test;

const std::string path = "/d/a.aif";

OSStatus readOnce(ExtAudioFileRef file, UInt32& count, std::span<const float> room)
{
    auto list = listOf(room, 1);
    const qmx::RealTimeScope realTime;
    const OSStatus status = ExtAudioFileRead(file, &count, &list);
    return status == noErr && list.mBuffers[0].mDataByteSize != count * sizeof(float) ? kAudio_ParamError : status;
}

/// Reads on a thread marked real-time until `frames` came; gives the samples.
std::vector<float> readInRealTime(ExtAudioFileRef file, std::size_t frames, UInt32 atOnce)
{
    std::vector<float> samples(frames);
    for (std::size_t done = 0; done < frames;) {
        auto count = static_cast<UInt32>(std::min<std::size_t>(atOnce, frames - done));
        EXPECT_EQ(readOnce(file, count, std::span(samples).subspan(done, count)), noErr);
        done += count;
        if (count == 0)
            std::this_thread::yield();
    }
    return samples;
}

TEST(ReadAhead, RealTimeReadsTakeWhatIsReadyAndCountTheRest)
{
    MemoryDisk disk;
    const auto samples = music(5 * 44100, 1);
    writeMusic(path, kAudioFileAIFCType, linear(11, 32, 1), samples);
    const ExtendedFile file(path);
    setClient(file, floats(1));
    std::vector<float> room(100);
    UInt32 count = 100;
    EXPECT_EQ(readOnce(file, count, room), kExtAudioFileError_InvalidOperationOrder);
    prime(file); // the first frames are there when it returns
    EXPECT_EQ(readInRealTime(file, 8000, 512), std::vector<float>(samples.begin(), samples.begin() + 8000));
    EXPECT_EQ(qmx::framesMissedByRealTimeReads(file), 0U);
    EXPECT_EQ(positionOf(file), 8000);
    EXPECT_EQ(readInRealTime(file, samples.size() - 8000, 4000),
              std::vector<float>(samples.begin() + 8000, samples.end()));
    EXPECT_EQ(positionOf(file), 5 * 44100);
    // the same from another place, and waiting for all of it elsewhere
    EXPECT_EQ(ExtAudioFileSeek(file, 40000), noErr);
    EXPECT_EQ(readInRealTime(file, 8000, 333), std::vector<float>(samples.begin() + 40000, samples.begin() + 48000));
    EXPECT_EQ(readFloats(file, 1, 1'000'000, 150'000), std::vector<float>(samples.begin() + 48000, samples.end()));
}

TEST(ReadAhead, SeeksElsewhereDoNotTearARealTimeRead)
{
    MemoryDisk disk;
    // each sample tells its frame
    std::vector<float> samples(200'000);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(i) / 262144;
    writeMusic(path, kAudioFileAIFCType, linear(11, 32, 1), samples);
    const ExtendedFile file(path);
    setClient(file, floats(1));
    prime(file);
    std::atomic<bool> ends = false;
    std::thread renderer([&] {
        std::vector<float> room(700);
        while (!ends) {
            UInt32 count = 700;
            (void)readOnce(file, count, room);
            for (UInt32 i = 1; i < count; ++i)
                ASSERT_EQ(room[i] * 262144, room[0] * 262144 + static_cast<float>(i));
        }
    });
    for (SInt64 i = 0; i < 300; ++i)
        EXPECT_EQ(ExtAudioFileSeek(file, i * 7919 % 200'000), noErr);
    ends = true;
    renderer.join();
}

TEST(ReadAhead, HasTwoSecondsLeftWhenTheDiskStalls)
{
    MemoryDisk disk;
    constexpr std::size_t second = 44100;
    const auto samples = music(6 * second, 1);
    writeMusic(path, kAudioFileAIFCType, linear(11, 32, 1), samples);
    const ExtendedFile file(path);
    setClient(file, floats(1));
    prime(file);
    qmx::VirtualHardware::shared().settle(); // until the reading thread waits for work
    readInRealTime(file, second, 512);       // as much as may be missing when the disk stalls
    disk.setStalled(true);
    std::vector<float> next(2 * second);
    UInt32 count = 2 * second;
    EXPECT_EQ(readOnce(file, count, next), noErr);
    EXPECT_EQ(count, 2 * second);
    EXPECT_EQ(next, std::vector<float>(samples.begin() + second, samples.begin() + 3 * second));
    disk.setStalled(false);
}

} // namespace
