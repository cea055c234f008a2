// SPDX-License-Identifier: MIT
// Queued writes of extended audio files. Disks that stall and fill up are in memory.
#include "Foundation/RealTime.h"
#include "Foundation/Threads/Worker.h"
#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/MemoryDisk.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

namespace
{

using namespace qmx::test;

const std::string path = "/d/a.aif";
constexpr std::size_t heldFrames = 4 * 44100; // by the memory of the queue

struct Primed : ExtendedFile {
    explicit Primed(UInt32 channels = 2, const std::string& where = path)
        : ExtendedFile(where, kAudioFileAIFCType, linear(11, 32, channels))
    {
        setClient(*this, floats(channels));
        EXPECT_EQ(ExtAudioFileWriteAsync(*this, 0, nullptr), noErr);
    }
};

OSStatus queue(ExtAudioFileRef file, std::span<const float> samples, UInt32 channels = 2)
{
    const auto list = listOf(samples, channels);
    return ExtAudioFileWriteAsync(file, static_cast<UInt32>(samples.size() / channels), &list);
}

std::vector<float> contents(UInt32 channels = 2)
{
    return floatsAt(path, channels, 1'000'000);
}

TEST(AsyncWrites, RealTimeWritesNeitherWaitNorLoseAnything)
{
    MemoryDisk disk;
    const auto samples = music(heldFrames + 44100, 2);
    const ExtendedFile unprimed("/d/b.aif", kAudioFileAIFCType, linear(11, 32, 2));
    Primed file;
    disk.setStalled(true);
    OSStatus tooEarly = noErr, tooLarge = noErr, full = noErr, fits = noErr;
    {
        const qmx::RealTimeScope realTime;
        const std::span all(samples);
        tooEarly = queue(unprimed, all.first(2));
        tooLarge = queue(file, all);
        for (std::size_t at = 0; at < 2 * heldFrames && fits == noErr; at += 2 * 2100) // cycles of 2100 frames
            fits = queue(file, all.subspan(at, 2 * 2100));
        full = queue(file, all.first(2 * 30000)); // at most one piece is being written
    }
    EXPECT_EQ(tooEarly, kExtAudioFileError_InvalidOperationOrder);
    EXPECT_EQ(tooLarge, kExtAudioFileError_AsyncWriteTooLarge);
    EXPECT_EQ(fits, noErr);
    EXPECT_EQ(full, kExtAudioFileError_AsyncWriteBufferOverflow);
    EXPECT_EQ(positionOf(file), static_cast<SInt64>(heldFrames));
    disk.setStalled(false);
    EXPECT_EQ(file.close(), noErr); // what is queued arrives
    EXPECT_EQ(contents(), std::vector<float>(samples.begin(), samples.begin() + 2 * heldFrames));
}

/// So that simulated time does not outrun the disk.
TEST(AsyncWrites, WorkersRestWhenWhatWasQueuedIsWritten)
{
    MemoryDisk disk;
    const Primed file;
    EXPECT_EQ(queue(file, music(heldFrames / 2, 2)), noErr);
    EXPECT_TRUE(qmx::waitUntilWorkersRest());
    EXPECT_EQ(bytesIn(extendedValue<AudioFileID>(file, kExtAudioFileProperty_AudioFile)), heldFrames / 2 * 8);
}

TEST(AsyncWrites, OtherThreadsWaitForRoomAndKeepTheOrder)
{
    MemoryDisk disk;
    const auto samples = music(3 * heldFrames, 1);
    Primed file(1);
    const std::span all(samples);
    EXPECT_EQ(queue(file, all.first(2 * heldFrames + 17), 1), noErr);              // more than the memory holds
    EXPECT_EQ(writeFloats(file, all.subspan(2 * heldFrames + 17, 100), 1), noErr); // after what is queued
    EXPECT_EQ(lengthOf(file), static_cast<SInt64>(2 * heldFrames + 117));
    EXPECT_EQ(queue(file, all.subspan(2 * heldFrames + 117), 1), noErr);
    EXPECT_EQ(file.close(), noErr);
    EXPECT_EQ(contents(1), samples);
}

TEST(AsyncWrites, AFullDiskIsReportedByTheNextCallAndByClose)
{
    MemoryDisk disk;
    const auto samples = music(heldFrames, 2);
    Primed file;
    disk.setCapacity(400'000);
    EXPECT_EQ(queue(file, samples), noErr);
    while (queue(file, std::span(samples).first(2)) == noErr)
        std::this_thread::yield();
    EXPECT_EQ(queue(file, samples), dskFulErr);
    EXPECT_EQ(file.close(), dskFulErr);
    EXPECT_GT(contents().size(), 50'000U); // what found room is a valid file

    // found only while close drains
    EXPECT_EQ(disk.remove(path), 0);
    disk.clearFaults();
    disk.setCapacity(10'000);
    Primed small;
    EXPECT_EQ(queue(small, std::span(samples).first(2 * 5000)), noErr);
    EXPECT_EQ(small.close(), dskFulErr);
}

TEST(AsyncWrites, QueuesOfSeveralFilesDoNotMeet)
{
    MemoryDisk disk;
    const auto samples = music(2 * heldFrames, 1);
    constexpr int files = 3;
    std::vector<std::thread> threads;
    for (int i = 0; i < files; ++i)
        threads.emplace_back([&, i] {
            const std::string own = "/d/" + std::to_string(i) + ".aif";
            Primed file(1, own);
            for (std::size_t at = 0, piece = 1; at < samples.size(); at += piece) {
                piece = std::min<std::size_t>(piece * 2 % 5003 + static_cast<std::size_t>(i) + 1, samples.size() - at);
                const auto queueInRealTime = [&] {
                    const qmx::RealTimeScope realTime;
                    return queue(file, std::span(samples).subspan(at, piece), 1);
                };
                while (queueInRealTime() != noErr)
                    std::this_thread::yield();
            }
            EXPECT_EQ(file.close(), noErr);
            EXPECT_EQ(floatsAt(own, 1, 1'000'000), samples);
        });
    for (auto& thread : threads)
        thread.join();
}

} // namespace
