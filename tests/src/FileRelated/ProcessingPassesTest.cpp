// SPDX-License-Identifier: MIT
#include "FileRelated/QMXAudioFileProcessor.h"
#include "Processing/QMXAudioProcessor.h"
#include "support/FileWork.h"

namespace
{

using namespace qmx::test;

class Untouched : public QMXAudioProcessor
{
public:
    void reset() override {}
    OSStatus processAudio_numberOfFrames(AudioBufferList& /*audio*/, UInt32* /*numberOfFrames*/) override
    {
        ADD_FAILURE() << "a processor was handed packets";
        return noErr;
    }
};

using ProcessingPassesTest = FileWork;

TEST_F(ProcessingPassesTest, PacketsAreRefusedByLastStatusThoughTheResultIsNoErr)
{
    const auto packets =
        createFile(path, kAudioFileCAFType, {44100, kAudioFormatAppleLossless, 0, 0, 4096, 0, 2, 0, 0});
    EXPECT_EQ(AudioFileClose(packets.file), noErr);
    const auto processor = QMXAudioFileProcessor::initWithSourcePath_processFramesWith_progressSubscriber(
        path, std::make_shared<Untouched>(), nullptr);
    EXPECT_EQ(processor->processFrames_endFrame(0, 1000), noErr);
    expectFailure(*processor, kAudioFileUnsupportedDataFormatError,
                  path + " could not be processed: not a format for it");
}

} // namespace
