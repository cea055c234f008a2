// SPDX-License-Identifier: MIT
// MPEG-4 files in fragments: when a file becomes one, and what the close makes of it. FailingDiskTest kills, fails and
// cuts them.
#include "Foundation/ByteFields.h"
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/MemoryDisk.h"

namespace
{

using namespace qmx::test;

const std::string path = "/d/a.m4a";
const AudioStreamBasicDescription aac{44100, kAudioFormatMPEG4AAC, 0, 0, 0, 0, 1, 0, 0};

OSStatus keep(AudioFileID file, UInt32 keeps)
{
    const OSStatus status = AudioFileSetProperty(file, kAudioFilePropertyKeepsReadable, sizeof keeps, &keeps);
    EXPECT_EQ(property<UInt32>(file, kAudioFilePropertyKeepsReadable) != 0, (status == noErr) == (keeps != 0));
    return status;
}

OSStatus writePackets(AudioFileID file, UInt32 count)
{
    const std::vector<AudioStreamPacketDescription> descriptions(count, {0, 0, 9});
    return AudioFileWritePackets(file, false, 9, descriptions.data(), 0, &count, pattern(9).data());
}

TEST(MPEG4Fragments, BecomeOneMovieBehindItsData)
{
    for (const UInt32 count : {0U, 2000U}) {
        const MemoryDisk disk;
        const auto made = createFile(path, kAudioFileM4AType, aac);
        EXPECT_EQ(keep(made.file, 1), noErr);
        EXPECT_EQ(writePackets(made.file, count), noErr);
        EXPECT_EQ(AudioFileClose(made.file), noErr);
        const ByteBlock file = disk.contents(path);
        std::string atoms;
        for (std::size_t at = 0, size = 0; at < file.size(); at += size) {
            size = qmx::load32(&file[at], qmx::ByteOrder::big);
            ASSERT_GE(size, 8U);
            atoms.append(file.begin() + static_cast<long>(at) + 4, file.begin() + static_cast<long>(at) + 8);
        }
        EXPECT_EQ(atoms, "ftypfreemdatmoov");
        EXPECT_EQ(propertyAt<UInt64>(path, kAudioFilePropertyAudioDataPacketCount), count);
    }
}

TEST(MPEG4Fragments, AreTakenAndGivenUpOnlyBeforeTheFirstPacket)
{
    const MemoryDisk disk;
    const auto made = createFile(path, kAudioFileM4AType, aac);
    for (const UInt32 keeps : {0U, 1U, 0U})
        EXPECT_EQ(keep(made.file, keeps), noErr);
    EXPECT_EQ(writePackets(made.file, 1), noErr);
    EXPECT_EQ(keep(made.file, 1), kAudioFileOperationNotSupportedError);
    EXPECT_EQ(AudioFileClose(made.file), noErr);
    const Opened opened(openFile(path, fsRdWrPerm));
    EXPECT_EQ(keep(opened.file, 1), kAudioFileOperationNotSupportedError);
}

} // namespace
