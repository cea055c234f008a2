// SPDX-License-Identifier: MIT
#include "platform/CoreAudio/PipeWireTest.h"

#include "support/OutsideRealTime.h"

#include <algorithm>
#include <atomic>
#include <span>

namespace
{

// A pattern that has no period within a test: quarter amplitude, exact in 24 bits.
Float32 pattern(std::uint64_t sample)
{
    std::uint64_t mixed = (sample + 1) * 0x9E3779B97F4A7C15ULL;
    mixed ^= mixed >> 29;
    return (static_cast<Float32>(mixed & 0xFFFF) + 1) / 262144.0F;
}

class Procedure
{
public:
    using Work =
        std::function<void(const AudioBufferList&, const AudioTimeStamp&, AudioBufferList&, const AudioTimeStamp&)>;
    Procedure(AudioDeviceID device, Work work) : device_(device), work_(std::move(work))
    {
        EXPECT_EQ(AudioDeviceAddIOProc(device_, run, this), noErr);
    }
    ~Procedure() { AudioDeviceRemoveIOProc(device_, run, this); }
    OSStatus start() { return AudioDeviceStart(device_, run, this); }
    OSStatus stop() { return AudioDeviceStop(device_, run, this); }

private:
    static OSStatus run(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList* input,
                        const AudioTimeStamp* inputTime, AudioBufferList* output, const AudioTimeStamp* outputTime,
                        void* self)
    {
        static_cast<Procedure*>(self)->work_(*input, *inputTime, *output, *outputTime);
        return noErr;
    }
    AudioDeviceID device_;
    Work work_;
};

std::span<Float32> samplesOf(const AudioBufferList& list)
{
    return {static_cast<Float32*>(list.mBuffers[0].mData), list.mBuffers[0].mDataByteSize / sizeof(Float32)};
}

// What an input captured, and whether its times were those of one unbroken piece.
struct Capture {
    explicit Capture(std::size_t most) : samples(most) {}
    std::vector<Float32> samples;
    std::atomic<std::size_t> used{0};
    Float64 next = -1;
    std::atomic<int> breaks{0};
    std::atomic<Float64> hostError{0};

    void add(const AudioBufferList& list, const AudioTimeStamp& time)
    {
        const auto from = samplesOf(list);
        if (next >= 0 && time.mSampleTime != next)
            ++breaks;
        next = time.mSampleTime + static_cast<Float64>(from.size() / 2);
        const std::size_t count = std::min(from.size(), samples.size() - used);
        std::copy_n(from.begin(), count, samples.begin() + static_cast<std::ptrdiff_t>(used.load()));
        used += count;
    }
    bool isFull() const { return used == samples.size(); }
};

constexpr std::size_t sampleCount = 2 * 48000;

} // namespace

class PipeWireIOTest : public PipeWireTest
{
protected:
    /// Plays the pattern on the test sink and captures `input`; the samples of the pattern found, or 0 after a gap.
    std::size_t playAndCapture(AudioDeviceID input)
    {
        Capture capture(sampleCount);
        std::uint64_t played = 0;
        Procedure player(find("test-sink"), [&](const auto&, const auto&, AudioBufferList& output, const auto&) {
            for (Float32& sample : samplesOf(output))
                sample = pattern(played++);
        });
        Procedure recorder(input, [&](const AudioBufferList& list, const AudioTimeStamp& time, auto&, const auto&) {
            capture.add(list, time);
            const qmx::test::OutsideRealTime outside;
            if (capture.isFull())
                tell();
        });
        EXPECT_EQ(recorder.start(), noErr);
        EXPECT_EQ(player.start(), noErr);
        EXPECT_TRUE(waitUntil([&] { return capture.isFull(); }));
        EXPECT_EQ(player.stop(), noErr);
        EXPECT_EQ(recorder.stop(), noErr);
        const std::vector<Float32> first = {pattern(0), pattern(1), pattern(2), pattern(3), pattern(4), pattern(5)};
        const auto begin = std::search(capture.samples.begin(), capture.samples.end(), first.begin(), first.end());
        const auto length = static_cast<std::size_t>(capture.samples.end() - begin);
        std::size_t same = 0;
        while (same < length && begin[static_cast<std::ptrdiff_t>(same)] == pattern(same))
            ++same;
        if (same != length && capture.breaks == 0)
            ADD_FAILURE() << "sample " << same << " differs though no gap was told";
        return same == length ? same : 0;
    }
    /// A busy machine may lose a cycle, and tells so: then it is tried again.
    void expectExact(const std::string& uid)
    {
        std::size_t found = 0;
        for (int attempt = 0; attempt < 3 && found == 0; ++attempt)
            found = playAndCapture(find(uid));
        EXPECT_GT(found, sampleCount / 2) << uid;
    }
};

TEST_F(PipeWireIOTest, WhatASinkPlaysIsCapturedBitForBit)
{
    expectExact("test-source");
    expectExact("test-sink.monitor");
}

TEST_F(PipeWireIOTest, CyclesHaveTheSizeAndTheRateThatWereAskedFor)
{
    const AudioDeviceID sink = find("test-sink");
    ASSERT_EQ(set(sink, 0, false, kAudioDevicePropertyBufferFrameSize, UInt32{256}), noErr);
    ASSERT_EQ(set(sink, 0, false, kAudioDevicePropertyNominalSampleRate, Float64{44100}), noErr);
    listenTo(sink);
    ASSERT_TRUE(waitUntil([&] {
        return get<Float64>(sink, 0, false, kAudioDevicePropertyNominalSampleRate) == 44100 &&
               get<UInt32>(sink, 0, false, kAudioDevicePropertyBufferFrameSize) == 256;
    }));
    std::atomic<int> cycles{0}, others{0};
    std::atomic<UInt32> frames{0};
    AudioTimeStamp first, last;
    Procedure player(sink, [&](const auto&, const auto&, AudioBufferList& output, const AudioTimeStamp& time) {
        if (cycles++ == 0)
            first = time;
        last = time;
        frames = static_cast<UInt32>(samplesOf(output).size() / 2);
        if (frames != 256 && cycles < 100)
            ++others;
        const qmx::test::OutsideRealTime outside;
        tell();
    });
    ASSERT_EQ(player.start(), noErr);
    EXPECT_TRUE(waitUntil([&] { return cycles >= 100; }));
    EXPECT_EQ(get<UInt32>(sink, 0, false, kAudioDevicePropertyDeviceIsRunning), 1U);
    EXPECT_EQ(set(sink, 0, false, kAudioDevicePropertyBufferFrameSize, UInt32{128}), noErr);
    EXPECT_TRUE(waitUntil([&] { return frames == 128; })); // while it runs, too
    AudioTimeStamp now;
    EXPECT_EQ(AudioDeviceGetCurrentTime(sink, &now), noErr);
    EXPECT_EQ(player.stop(), noErr);
    qmx::waitForIOCycle(sink);
    stopListeningTo(sink);
    EXPECT_EQ(set(sink, 0, false, kAudioDevicePropertyNominalSampleRate, Float64{48000}), noErr); // it would be kept
    EXPECT_LE(others, 3); // before the server has changed the cycle
    const Float64 seconds = static_cast<Float64>(last.mHostTime - first.mHostTime) / 1e9;
    EXPECT_NEAR((last.mSampleTime - first.mSampleTime) / seconds, 44100, 44100 * 0.03); // a busy server drops cycles
    EXPECT_NEAR(now.mSampleTime, last.mSampleTime, 4 * 1024);
}

TEST_F(PipeWireIOTest, ADeviceThatIsUnpluggedWhileItRunsGoesAtOnce)
{
    server().plugIn("plugged");
    ASSERT_TRUE(waitUntil([] { return find("plugged") != 0; }));
    const AudioDeviceID plugged = find("plugged");
    std::atomic<int> cycles{0};
    Procedure player(plugged, [&](const auto&, const auto&, auto&, const auto&) {
        ++cycles;
        const qmx::test::OutsideRealTime outside;
        tell();
    });
    ASSERT_EQ(player.start(), noErr);
    ASSERT_TRUE(waitUntil([&] { return cycles > 5; }));
    const auto begin = std::chrono::steady_clock::now();
    server().unplug("plugged");
    EXPECT_TRUE(waitUntil([] { return !find("plugged"); }));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1500)); // no wait for its cycles
    qmx::waitForIOCycle(plugged);
    const int last = cycles;
    EXPECT_TRUE(find("test-sink"));
    EXPECT_EQ(cycles, last);
}

TEST_F(PipeWireIOTest, ServersMayDieAndComeBackWhileDevicesRun)
{
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(waitUntil([] { return find("test-sink") && find("test-source"); })) << round;
        std::atomic<int> played{0}, captured{0};
        Procedure player(find("test-sink"), [&](const auto&, const auto&, auto&, const auto&) {
            ++played;
            const qmx::test::OutsideRealTime outside;
            tell();
        });
        Procedure recorder(find("test-source"), [&](const auto&, const auto&, auto&, const auto&) {
            ++captured;
            const qmx::test::OutsideRealTime outside;
            tell();
        });
        ASSERT_EQ(player.start(), noErr) << round;
        ASSERT_EQ(recorder.start(), noErr) << round;
        ASSERT_TRUE(waitUntil([&] { return played > 0 && captured > 0; })) << round;
        server().kill();
        ASSERT_TRUE(waitUntil([] { return devices().empty(); })) << round;
        server().start();
    }
}
