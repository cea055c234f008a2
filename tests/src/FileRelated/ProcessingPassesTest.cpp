// SPDX-License-Identifier: MIT
#include "FileRelated/QMXAudioFileProcessor.h"
#include "support/FileWork.h"
#include "support/Gain.h"

namespace
{

using namespace qmx::test;

using ProcessingPassesTest = FileWork;

TEST_F(ProcessingPassesTest, PacketsAreRefusedByLastStatusThoughTheResultIsNoErr)
{
    const auto packets =
        createFile(path, kAudioFileCAFType, {44100, kAudioFormatAppleLossless, 0, 0, 4096, 0, 2, 0, 0});
    EXPECT_EQ(AudioFileClose(packets.file), noErr);
    const auto gain = std::make_shared<Gain>(0.5F);
    const auto processor =
        QMXAudioFileProcessor::initWithSourcePath_processFramesWith_progressSubscriber(path, gain, nullptr);
    EXPECT_EQ(processor->processFrames_endFrame(0, 1000), noErr);
    expectFailure(*processor, kAudioFileUnsupportedDataFormatError,
                  path + " could not be processed: not a format for it");
    EXPECT_EQ(gain->passes, 0) << "a processor was handed packets";
}

} // namespace
