// SPDX-License-Identifier: MIT
// What a process meets that starts without a module. What files of modules can be wrong is tested with the example
// programs (tests/examples/modules-test).
#include "Foundation/Modules.h"

#include "AudioToolbox/AudioFormat.h"
#include "CoreAudio/AudioHardware.h"
#include "platform/AudioToolbox/CodedFiles.h"
#include "support/CapturedLog.h"
#include "support/MemoryDisk.h"

#include <algorithm>
#include <cstdlib>
#include <latch>
#include <thread>

using namespace qmx::test;

namespace
{

bool canEncode()
{
    const AudioStreamBasicDescription pcm = linear(12, 16, 2), compressed = coded(kAudioFormatMPEG4AAC, 2);
    AudioConverterRef converter = nullptr;
    const OSStatus status = AudioConverterNew(&pcm, &compressed, &converter);
    EXPECT_EQ(status == noErr, qmx::missingModule().empty());
    return status == noErr && AudioConverterDispose(converter) == noErr;
}

void checkWithoutModule()
{
    MemoryDisk disk;
    disk.setContents("/d/flac", {'f', 'L', 'a', 'C', 0, 0, 0, 0, 0, 0, 0, 0, 0});
    disk.setContents("/d/text", {'t', 'e', 'x', 't'});
    const auto before = disk.changesMade();
    const qmx::test::CapturedLog log;
    qmx::setModulePath("/nowhere");
    EXPECT_EQ(openFile("/d/flac").status, kAudioFileUnsupportedFileTypeError);
    const std::string reason = qmx::missingModule();
    EXPECT_EQ(reason, "the module of compressed codings is missing (package libqmxcoreaudio-codings): "
                      "/nowhere/codings.so: cannot open shared object file: No such file or directory");
    EXPECT_EQ(openFile("/d/text").status, kAudioFileUnsupportedFileTypeError);
    UInt32 size = 1;
    const AudioFormatID samples = kAudioFormatLinearPCM;
    EXPECT_EQ(AudioFormatGetPropertyInfo(kAudioFormatProperty_AvailableEncodeBitRates, sizeof samples, &samples, &size),
              noErr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(qmx::setAudioBackend(qmx::AudioBackend::pipeWire), kAudioHardwareUnsupportedOperationError);
    EXPECT_EQ(qmx::missingModule(), ""); // nothing of this needs the codings
    const auto compressed = coded(kAudioFormatMPEG4AAC, 2);
    EXPECT_EQ(createFile("/d/a", kAudioFileM4AType, compressed).status, kAudioFileUnsupportedFileTypeError);
    EXPECT_EQ(createFile("/d/a", kAudioFileCAFType, compressed).status, kAudioFileUnsupportedDataFormatError);
    EXPECT_EQ(qmx::missingModule(), reason);
    EXPECT_FALSE(canEncode());
    EXPECT_EQ(disk.changesMade(), before);
    const Opened made(createFile("/d/a", kAudioFileCAFType, linear(12, 16, 2)));
    EXPECT_EQ(made.status, noErr);
    EXPECT_EQ(qmx::missingModule(), "");
    EXPECT_EQ(std::ranges::count(log.lines(), "QMXCoreAudio: " + reason), 1);
}

void checkThatThreadsMayNeedItAtOnce()
{
    qmx::setModulePath("");
    std::latch start(2);
    bool other = false;
    std::thread thread([&] {
        start.arrive_and_wait();
        other = canEncode();
    });
    start.arrive_and_wait();
    EXPECT_TRUE(canEncode());
    thread.join();
    EXPECT_TRUE(other);
}

} // namespace

TEST(Modules, AMissingOneIsReportedOnceAndUsedOnceItIsThere)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a new process, which has no module yet
    const auto run = [] {
        checkWithoutModule();
        checkThatThreadsMayNeedItAtOnce();
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}
