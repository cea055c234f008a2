// SPDX-License-Identifier: MIT
// Only for a build without codings: what needs them is refused clearly, before the disk is touched.
#include "AudioToolbox/AudioConverter.h"
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/MemoryDisk.h"

using namespace qmx::test;

TEST(NoCodings, TypesAndFormatsThatNeedThemAreRefused)
{
    MemoryDisk disk;
    const auto before = disk.changesMade();
    for (const AudioFormatID coding : {kAudioFormatMPEG4AAC, kAudioFormatAppleLossless, kAudioFormatFLAC}) {
        const AudioStreamBasicDescription compressed{44100, coding, 0, 0, 0, 0, 2, 0, 0}, pcm = linear(12, 16, 2);
        for (const AudioFileTypeID type :
             {kAudioFileM4AType, kAudioFileMPEG4Type, kAudioFileAAC_ADTSType, kAudioFileMP3Type, kAudioFileFLACType})
            EXPECT_EQ(createFile("/d/a", type, compressed).status, kAudioFileUnsupportedFileTypeError);
        EXPECT_EQ(createFile("/d/a", kAudioFileCAFType, compressed).status, kAudioFileUnsupportedDataFormatError);
        AudioConverterRef converter = nullptr;
        EXPECT_EQ(AudioConverterNew(&pcm, &compressed, &converter), kAudioConverterErr_FormatNotSupported);
        EXPECT_EQ(AudioConverterNew(&compressed, &pcm, &converter), kAudioConverterErr_FormatNotSupported);
    }
    EXPECT_EQ(disk.changesMade(), before);
    disk.setContents("/d/a", {'f', 'L', 'a', 'C', 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(openFile("/d/a").status, kAudioFileUnsupportedFileTypeError);
}
