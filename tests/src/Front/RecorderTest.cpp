// SPDX-License-Identifier: MIT
#include "Front/Recorder.h"

#include "support/PlayAndRecord.h"

#include <gmock/gmock.h>

#include <cmath>

using qmx::Recorder;
using qmx::RecordingSummary;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

/// Frame and channel of a captured sample, in 16 bits.
Float32 pattern(SInt64 frame, UInt32 channel)
{
    return static_cast<Float32>(frame % 8192 + 1) / 32768 * (channel % 2 == 0 ? 1 : -1) / (channel < 2 ? 1 : 2);
}

class FrontRecorderTest : public qmx::test::PlayAndRecord
{
protected:
    AudioDeviceID plugIn(UInt32 channels = 2)
    {
        id = hardware.addDevice(qmx::VirtualHardware::standardDevice("mic", "Microphone", channels, 0));
        EXPECT_EQ(noErr, hardware.setInput(id, [](Float32* samples, UInt32 frames, UInt32 count, SInt64 first) {
            for (UInt32 i = 0; i < frames * count; ++i)
                samples[i] = pattern(first + i / count, i % count);
        }));
        posted();
        return id;
    }
    qmx::Result<Recorder> start(const std::string& file, const qmx::RecorderOptions& options = {})
    {
        return Recorder::start(*qmx::device("mic"), file, options);
    }
    void run(UInt32 cycles) { EXPECT_TRUE(hardware.advanceCycles(id, cycles)); }
    /// Notes the end.
    void listen(Recorder& recorder)
    {
        recorder.onEnd([this](const qmx::Error& why) { ends.push_back(why.isCancelled() ? "stopped" : why.text()); });
    }
    /// Expects the pattern of these channels, without a gap, in `frames` frames from frame `at` of the file on.
    static void expectPattern(const std::string& file, std::size_t at, std::size_t frames,
                              const std::vector<UInt32>& channels = {0, 1})
    {
        const auto samples = qmx::test::recordedSamples(file);
        ASSERT_LE((at + frames) * channels.size(), samples.size());
        const SInt64 first =
            std::lround(std::abs(samples[at * channels.size()]) * 32768 * (channels[0] < 2 ? 1 : 2)) - 1;
        for (std::size_t i = 0; i < frames * channels.size(); ++i)
            ASSERT_EQ(pattern(first + static_cast<SInt64>(i / channels.size()), channels[i % channels.size()]),
                      samples[at * channels.size() + i])
                << i;
    }

    AudioDeviceID id = 0;
    std::vector<std::string> ends;
};

} // namespace

TEST_F(FrontRecorderTest, RecordsEveryFrameIntoTheTypeOfTheExtension)
{
    plugIn();
    for (const std::string file : {"/d/a.aif", "/d/a.wav", "/d/a.caf", "/d/a.flac"}) {
        SCOPED_TRACE(file);
        auto recorder = start(file, {.meters = true});
        ASSERT_TRUE(recorder) << recorder.error().text();
        listen(*recorder);
        run(7);
        EXPECT_TRUE(recorder->pause());
        EXPECT_FALSE(recorder->isRecording());
        hardware.advance(500'000'000);
        EXPECT_TRUE(recorder->resume());
        run(3);
        EXPECT_NEAR(5120 / 44100.0, recorder->seconds(), 1e-9);
        EXPECT_EQ(2U, recorder->levels().size());
        const auto summary = recorder->stop();
        ASSERT_TRUE(summary) << summary.error().text();
        EXPECT_EQ(5120, summary->frames);
        EXPECT_EQ(0U, summary->lost);
        EXPECT_EQ(file.ends_with("flac"), recorder->object() == nullptr);
        expectPattern(file, 0, 7 * 512);
        expectPattern(file, 7 * 512, 3 * 512);
        EXPECT_FALSE(hardware.advanceCycles(id)) << "its device still runs";
        posted();
        EXPECT_THAT(std::exchange(ends, {}), ElementsAre("stopped"));
    }
}

TEST_F(FrontRecorderTest, RefusesAnExistingFileUnlessItMayReplaceIt)
{
    plugIn();
    for (const std::string file : {"/d/a.aif", "/d/a.flac"}) {
        SCOPED_TRACE(file);
        disk.setContents(file, qmx::MemoryFileSystem::Bytes(100'000, 7));
        const auto refused = start(file);
        ASSERT_FALSE(refused);
        EXPECT_EQ(dupFNErr, refused.error().status());
        EXPECT_EQ(file + ": File exists", refused.error().text());

        // what does not start leaves it, too
        qmx::VirtualFault fault;
        fault.operation = qmx::HardwareOperation::start;
        hardware.addFault(fault);
        const auto changes = disk.changesMade();
        EXPECT_FALSE(start(file, {.replace = true}));
        EXPECT_EQ(qmx::MemoryFileSystem::Bytes(100'000, 7), disk.contents(file));
        EXPECT_FALSE(start("/d/new" + file.substr(4)));
        EXPECT_TRUE(disk.contents("/d/new" + file.substr(4)).empty());
        EXPECT_LT(changes, disk.changesMade());
        hardware.removeFaults();

        auto replacing = start(file, {.replace = true});
        ASSERT_TRUE(replacing) << replacing.error().text();
        run(3);
        EXPECT_TRUE(replacing->pause());
        EXPECT_TRUE(replacing->resume());
        run(3);
        EXPECT_EQ(6 * 512, replacing->stop()->frames);
        expectPattern(file, 0, 3 * 512);
        EXPECT_FALSE(disk.isAnyLeft());
    }
    EXPECT_EQ("/d/a.txt: Its extension names no type of audio file", start("/d/a.txt").error().text());
    EXPECT_EQ("Microphone has no input channel 3", start("/d/b.wav", {.channels = {1, 3}}).error().text());
    EXPECT_EQ(paramErr, start("/d/b.wav", {.seconds = NAN}).error().status());
    qmx::FileStatus status;
    EXPECT_EQ(ENOENT, disk.status("/d/b.wav", status));
}

TEST_F(FrontRecorderTest, EndsWithTheReasonWhenItCannotGoOn)
{
    for (const std::string file : {"/d/a.aif", "/d/a.flac"}) {
        SCOPED_TRACE(file);
        plugIn();
        auto recorder = start(file);
        ASSERT_TRUE(recorder);
        listen(*recorder);
        run(20);
        EXPECT_EQ(noErr, hardware.removeDevice(id));
        posted();
        EXPECT_THAT(std::exchange(ends, {}), ElementsAre("Microphone was unplugged"));
        EXPECT_TRUE(recorder->hasEnded());
        EXPECT_EQ(20 * 512, recorder->summary().frames);
        EXPECT_EQ(kAudioHardwareBadDeviceError, recorder->stop().error().status());
        expectPattern(file, 0, 20 * 512);
        EXPECT_EQ(noErr, disk.remove(file));
    }

    // a device recorder stops rather than go on at the wrong pitch
    plugIn();
    {
        auto recorder = start("/d/rate.wav");
        ASSERT_TRUE(recorder);
        listen(*recorder);
        run(20);
        ASSERT_TRUE(qmx::device("mic")->setSampleRate(48000));
        posted();
        EXPECT_THAT(std::exchange(ends, {}), ElementsAre("Microphone changed its sample rate"));
        EXPECT_EQ(noErr, hardware.removeDevice(id));
        EXPECT_EQ(noErr, disk.remove("/d/rate.wav"));
    }

    plugIn();
    constexpr std::size_t room = 500'000;
    disk.setCapacity(room);
    auto recorder = start("/d/full.wav");
    ASSERT_TRUE(recorder);
    listen(*recorder);
    for (int i = 0; i < 50 && ends.empty(); ++i) {
        run(10);
        posted();
    }
    EXPECT_THAT(ends, ElementsAre(HasSubstr("/d/full.wav could not be written: the disk is full")));
    const auto summary = recorder->summary();
    EXPECT_GT(summary.frames * 4, SInt64{room} - 4096) << "what fitted";
    EXPECT_GT(summary.lost, 0U);
    EXPECT_THAT(summary.loss, AllOf(HasSubstr(std::to_string(summary.lost) + " frames are missing "),
                                    HasSubstr("the file cannot be written")));
    expectPattern("/d/full.wav", 0, static_cast<std::size_t>(summary.frames));
}

TEST_F(FrontRecorderTest, EndsAfterItsTimeAndWithoutASound)
{
    plugIn();
    auto silent = start("/d/silent.wav", {.startTimeout = 0.001});
    ASSERT_TRUE(silent);
    std::string reason;
    silent->onEnd([&](const qmx::Error& why) {
        reason = why.text();
        qmx::RunLoop::main().stop();
    });
    EXPECT_FALSE(qmx::RunLoop::main().runFor(60));
    EXPECT_EQ("Microphone delivers no sound", reason);
    qmx::FileStatus status;
    EXPECT_EQ(ENOENT, disk.status("/d/silent.wav", status));

    auto brief = start("/d/brief.wav", {.seconds = 0.001});
    ASSERT_TRUE(brief);
    run(2);
    EXPECT_TRUE(qmx::RunLoop::main().runFor(0.01));
    EXPECT_TRUE(brief->hasEnded());
    listen(*brief); // also who asks later is told
    posted();
    EXPECT_THAT(ends, ElementsAre("stopped"));
    EXPECT_EQ(1024, brief->stop()->frames);
}

TEST_F(FrontRecorderTest, WaitsForItsDevice)
{
    plugIn();
    auto recorder = start("/d/a.wav", {.whenUnplugged = qmx::WhenUnplugged::wait});
    ASSERT_TRUE(recorder);
    listen(*recorder);
    run(4);
    EXPECT_EQ(noErr, hardware.removeDevice(id));
    posted();
    EXPECT_TRUE(recorder->isRecording());
    addDevice("another", 2, 0);
    plugIn();
    run(5);
    EXPECT_EQ(9 * 512, recorder->stop()->frames);
    posted();
    EXPECT_THAT(ends, ElementsAre("stopped"));
    expectPattern("/d/a.wav", 0, 4 * 512);
    expectPattern("/d/a.wav", 4 * 512, 5 * 512);
}

TEST_F(FrontRecorderTest, TakesChosenChannelsAndEndsWithItsHandle)
{
    plugIn(8);
    {
        auto recorder = start("/d/a.wav", {.format = qmx::Format::wave(0, 24), .channels = {4, 1}});
        ASSERT_TRUE(recorder) << recorder.error().text();
        listen(*recorder);
        run(2);
    }
    posted();
    EXPECT_THAT(ends, ElementsAre());
    EXPECT_FALSE(hardware.advanceCycles(id));
    expectPattern("/d/a.wav", 0, 1024, {3, 0});
}
