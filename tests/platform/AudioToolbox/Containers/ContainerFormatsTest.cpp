// SPDX-License-Identifier: MIT
// The bytes of headers, formats that are taken and refused, and the odd and damaged files that are met.
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/MemoryDisk.h"

#include <optional>

using namespace qmx::test;

namespace
{

// Bytes from hex digits and, between apostrophes, plain text. Blanks mean nothing.
ByteBlock bytes(const std::string& text)
{
    ByteBlock result;
    bool isText = false;
    std::string digits;
    for (const char character : text) {
        if (character == '\'')
            isText = !isText;
        else if (isText)
            result.push_back(static_cast<std::uint8_t>(character));
        else if (character != ' ')
            digits += character;
        if (digits.size() == 2) {
            result.push_back(static_cast<std::uint8_t>(std::stoi(digits, nullptr, 16)));
            digits.clear();
        }
    }
    return result;
}

const AudioFileTypeID aiff = kAudioFileAIFFType;
const AudioFileTypeID aifc = kAudioFileAIFCType;
const AudioFileTypeID wave = kAudioFileWAVEType;

} // namespace

TEST(ContainerFormats, WrittenFilesAreExactToTheByte)
{
    const struct {
        AudioFileTypeID type;
        AudioStreamBasicDescription format;
        const char* expected;
    } files[] = {
        {aiff, linear(14, 16, 2, 44099.9),
         "'FORM' 00000032 'AIFF' 'COMM' 00000012 0002 00000001 0010 400eac43e66666666800"
         "'SSND' 0000000c 00000000 00000000 01020304"},
        {aifc, linear(14, 24, 1),
         "'FORM' 00000052 'AIFC' 'FVER' 00000004 a2805140"
         "'COMM' 00000026 0001 00000001 0018 400eac44000000000000 'NONE' 0e 'not compressed' 00"
         "'SSND' 0000000c 00000000 00000000 01020304"},
        {wave, linear(12, 16, 2),
         "'RIFF' 4c000000 'WAVE' 'JUNK' 1c000000 00000000000000000000000000000000000000000000000000000000"
         "'fmt ' 10000000 0100 0200 44ac0000 10b10200 0400 1000 'data' 04000000 01020304"},
        {wave, linear(9, 32, 1),
         "'RIFF' 5a000000 'WAVE' 'JUNK' 1c000000 00000000000000000000000000000000000000000000000000000000"
         "'fmt ' 12000000 0300 0100 44ac0000 10b10200 0400 2000 0000 'fact' 04000000 01000000"
         "'data' 04000000 01020304"},
        {wave, linear(4 | 8, 20, 3, 96000),
         "'RIFF' 64000000 'WAVE' 'JUNK' 1c000000 00000000000000000000000000000000000000000000000000000000"
         "'fmt ' 28000000 feff 0300 00770100 002f0d00 0900 1800 1600 1400 00000000 0100"
         "000000001000800000aa00389b71 'data' 04000000 01020304"},
        {wave, linear(14, 16, 2),
         "'RIFX' 00000028 'WAVE' 'fmt ' 00000010 0001 0002 0000ac44 0002b110 0004 0010"
         "'data' 00000004 01020304"},
    };
    for (const auto& [type, format, expected] : files) {
        MemoryDisk disk;
        const auto made = createFile("/d/file", type, format);
        ASSERT_EQ(made.status, noErr);
        // the fourth byte comes first: the header has to follow both
        ASSERT_EQ(writeAudio(made.file, 3, {4}), noErr);
        ASSERT_EQ(writeAudio(made.file, 0, {1, 2, 3}), noErr);
        ASSERT_EQ(AudioFileClose(made.file), noErr);
        EXPECT_EQ(disk.contents("/d/file"), bytes(expected)) << expected;
    }
}

TEST(ContainerFormats, FormatIsTakenExactlyOrRefused)
{
    const AudioFormatFlags bigInt = 14, littleInt = 12, unsignedInt = 8, bigFloat = 11, littleFloat = 9;
    const auto unpacked = [](AudioFormatFlags flags, UInt32 bits, UInt32 sampleBytes) {
        auto format = linear(flags, bits, 2);
        format.mBytesPerFrame = format.mBytesPerPacket = sampleBytes * 2;
        return format;
    };
    auto wrongCounts = linear(bigInt, 16, 2);
    wrongCounts.mBytesPerFrame = wrongCounts.mBytesPerPacket = wrongCounts.mFramesPerPacket = 99;
    const struct {
        AudioStreamBasicDescription format;
        std::optional<AudioFormatFlags> inAIFF, inAIFC, inWAVE; // flags as the file tells them; empty: refused
    } formats[] = {
        {linear(bigInt, 8, 1), 14, 14, {}},
        {linear(littleInt, 8, 1), 14, 14, {}},
        {linear(unsignedInt, 8, 1), {}, 8, 8},
        {linear(bigInt, 16, 2), 14, 14, 14},
        {linear(littleInt, 16, 2), {}, 12, 12},
        {linear(bigInt, 20, 2), 22, 22, 22},
        {linear(bigInt, 24, 5), 14, 14, 14},
        {linear(littleInt, 24, 5), {}, 12, 12},
        {linear(bigInt, 32, 1024), 14, 14, 14},
        {linear(littleInt, 32, 1), {}, 12, 12},
        {linear(unsignedInt, 16, 1), {}, {}, {}},
        {linear(bigFloat, 32, 2), {}, 11, 11},
        {linear(littleFloat, 32, 2), {}, {}, 9},
        {linear(bigFloat, 64, 1), {}, 11, 11},
        {linear(littleFloat, 64, 1), {}, {}, 9},
        {linear(littleFloat, 24, 1), {}, {}, {}},
        {unpacked(4 | 16, 24, 4), {}, {}, 20},
        {unpacked(4, 24, 4), {}, {}, {}},
        {unpacked(2 | 4 | 16, 20, 3), 22, 22, 22},
        {unpacked(4 | 8 | 32, 16, 1), {}, {}, {}},
        {wrongCounts, 14, 14, 14},
        {companded(kAudioFormatULaw, 2), {}, 0, 0},
        {companded(kAudioFormatALaw, 1), {}, 0, 0},
        {companded(kAudioFormatMPEG4AAC, 2), {}, {}, {}},
        {linear(bigInt, 16, 0), {}, {}, {}},
        {linear(bigInt, 16, 1025), {}, {}, {}},
        {linear(bigInt, 16, 1, 0), {}, {}, {}},
        {linear(bigInt, 16, 1, -1), {}, {}, {}},
        {linear(bigInt, 16, 1, 1e7 + 1), {}, {}, {}},
        {linear(bigInt, 16, 1, std::numeric_limits<double>::quiet_NaN()), {}, {}, {}},
        {linear(bigInt, 16, 1, 22050.5), 14, 14, {}},
        {linear(bigInt, 33, 1), {}, {}, {}},
    };
    for (const auto& row : formats) {
        const std::pair<AudioFileTypeID, std::optional<AudioFormatFlags>> results[] = {
            {aiff, row.inAIFF}, {aifc, row.inAIFC}, {wave, row.inWAVE}};
        for (const auto& [type, flags] : results) {
            SCOPED_TRACE(testing::Message() << "row " << &row - formats << " in " << qmx::fourCharString(type));
            MemoryDisk disk;
            const auto made = createFile("/d/file", type, row.format);
            EXPECT_EQ(made.status, flags ? noErr : kAudioFileUnsupportedDataFormatError);
            EXPECT_EQ(disk.changesMade() > 0, flags.has_value());
            if (!made.file)
                continue;
            const UInt32 frame = formatOf(made.file).mBytesPerFrame;
            const ByteBlock audio = pattern(std::size_t{frame} * 7);
            EXPECT_EQ(writeAudio(made.file, 0, audio), noErr);
            EXPECT_EQ(AudioFileClose(made.file), noErr);
            const auto opened = openFile("/d/file");
            ASSERT_EQ(opened.status, noErr);
            const auto format = formatOf(opened.file);
            EXPECT_EQ(property<UInt32>(opened.file, kAudioFilePropertyFileFormat), type);
            EXPECT_EQ(format.mFormatFlags, *flags);
            EXPECT_EQ(format.mFormatID, row.format.mFormatID);
            EXPECT_EQ(format.mSampleRate, row.format.mSampleRate);
            EXPECT_EQ(format.mBitsPerChannel, row.format.mBitsPerChannel);
            EXPECT_EQ(format.mChannelsPerFrame, row.format.mChannelsPerFrame);
            EXPECT_EQ(format.mBytesPerPacket, frame);
            EXPECT_EQ(format.mFramesPerPacket, 1U);
            EXPECT_TRUE(audioOf(opened.file) == audio);
            AudioFileClose(opened.file);
        }
    }
}

TEST(ContainerFormats, OddAndDamagedFilesAreReadOrRefused)
{
    const std::string comm2 = "'COMM' 00000012 0001 00000002 0010 400eac44000000000000"; // 2 frames of 2 bytes
    const std::string comm3 = "'COMM' 00000012 0001 00000003 0008 400eac44000000000000"; // 3 frames of 1 byte
    const std::string ssnd = "'SSND' 0000000c 00000000 00000000 01020304";
    const std::string fmt = "'fmt ' 10000000 0100 0100 44ac0000 88580100 0200 1000";
    const std::string aifcComm = "'FORM' 00000044 'AIFC' 'COMM' 00000018 0001 00000002 0010 400eac44000000000000";
    const std::string audio = "01020304";
    const OSStatus damaged = kAudioFileInvalidFileError, otherFormat = kAudioFileUnsupportedDataFormatError,
                   noAudioFile = kAudioFileUnsupportedFileTypeError;
    const struct {
        const char* name;
        std::string file;
        OSStatus status;
        std::string audio;
    } files[] = {
        {"sound before common", "'FORM' 00000032 'AIFF'" + ssnd + comm2, noErr, audio},
        {"form size of 0", "'FORM' 00000000 'AIFF'" + comm2 + ssnd, noErr, audio},
        {"form size too large", "'FORM' ffffffff 'AIFF'" + comm2 + ssnd, noErr, audio},
        {"form size wrong by one chunk", "'FORM' 0000001e 'AIFF'" + comm2 + ssnd, noErr, audio},
        {"bytes after the form", "'FORM' 00000032 'AIFF'" + comm2 + ssnd + "'TAG junk'", noErr, audio},
        {"zeros in the form", "'FORM' 00000042 'AIFF'" + comm2 + ssnd + std::string(32, '0'), noErr, audio},
        {"odd unknown chunk", "'FORM' 0000003c 'AIFF'" + comm2 + "'what' 00000001 ff 00" + ssnd, noErr, audio},
        {"pad left out in the middle", "'FORM' 0000003b 'AIFF'" + comm2 + "'what' 00000001 ff" + ssnd, noErr, audio},
        {"slack behind the samples",
         "'FORM' 00000036 'AIFF'" + comm2 + "'SSND' 00000010 00000000 00000000 0102030405060708", noErr, audio},
        {"sound offset", "'FORM' 00000036 'AIFF'" + comm2 + "'SSND' 00000010 00000004 00000000 aaaaaaaa 01020304",
         noErr, audio},
        {"sound offset past the end", "'FORM' 00000032 'AIFF'" + comm2 + "'SSND' 0000000c 7fffffff 00000000 01020304",
         damaged, ""},
        {"sound past the end", "'FORM' 00000032 'AIFF'" + comm2 + "'SSND' 7fffffff 00000000 00000000 01020304", noErr,
         audio},
        {"frames past the end", "'FORM' 00000030 'AIFF'" + comm2 + "'SSND' 0000000c 00000000 00000000 0102", noErr,
         "0102"},
        {"pad not counted", "'FORM' 00000031 'AIFF'" + comm3 + "'SSND' 0000000b 00000000 00000000 010203 00", noErr,
         "010203"},
        {"pad left out", "'FORM' 00000031 'AIFF'" + comm3 + "'SSND' 0000000b 00000000 00000000 010203", noErr,
         "010203"},
        {"pad counted but left out", "'FORM' 00000032 'AIFF'" + comm3 + "'SSND' 0000000b 00000000 00000000 010203",
         noErr, "010203"},
        {"no frames and no sound", "'FORM' 0000001e 'AIFF' 'COMM' 00000012 0001 00000000 0010 400eac44000000000000",
         noErr, ""},
        {"frames and no sound", "'FORM' 0000001e 'AIFF'" + comm2, damaged, ""},
        {"common of size 0", "'FORM' 00000028 'AIFF' 'COMM' 00000000" + ssnd, damaged, ""},
        {"no common", "'FORM' 00000018 'AIFF'" + ssnd, damaged, ""},
        {"cut in the common", "'FORM' 00000032 'AIFF' 'COMM' 00000012 0001 0000", damaged, ""},
        {"header only", "'FORM' 00000032 'AIFF'", damaged, ""},
        {"no channels", "'FORM' 00000032 'AIFF' 'COMM' 00000012 0000 00000002 0010 400eac44000000000000" + ssnd,
         otherFormat, ""},
        {"no bits", "'FORM' 00000032 'AIFF' 'COMM' 00000012 0001 00000002 0000 400eac44000000000000" + ssnd,
         otherFormat, ""},
        {"rate out of range", "'FORM' 00000032 'AIFF' 'COMM' 00000012 0001 00000002 0010 7ffeffffffffffffffff" + ssnd,
         otherFormat, ""},
        {"rate not a number", "'FORM' 00000032 'AIFF' 'COMM' 00000012 0001 00000002 0010 7fffffffffffffffffff" + ssnd,
         otherFormat, ""},
        {"other form", "'FORM' 00000032 '8SVX'" + comm2 + ssnd, noAudioFile, ""},
        {"text", "'This is no audio file at all.'", noAudioFile, ""},
        {"empty", "", noAudioFile, ""},
        {"AIFF-C without version", aifcComm + "'sowt' 0000" + ssnd, noErr, audio},
        {"AIFF-C of an unknown coding", aifcComm + "'GSM ' 0000" + ssnd, otherFormat, ""},
        {"streamed wave", "'RIFF' 00000000 'WAVE'" + fmt + "'data' 00000000 01020304", noErr, audio},
        {"streamed wave with largest sizes", "'RIFF' ffffffff 'WAVE'" + fmt + "'data' ffffffff 01020304", noErr, audio},
        {"no data but a chunk", "'RIFF' 2c000000 'WAVE'" + fmt + "'data' 00000000 'LIST' 00000000", noErr, ""},
        {"data before format", "'RIFF' 28000000 'WAVE' 'data' 04000000 01020304" + fmt, noErr, audio},
        {"data past the end", "'RIFF' 28000000 'WAVE'" + fmt + "'data' 40000000 01020304", noErr, audio},
        {"half a frame", "'RIFF' 28000000 'WAVE'" + fmt + "'data' 03000000 010203 00", noErr, "0102"},
        {"no data chunk", "'RIFF' 1c000000 'WAVE'" + fmt, damaged, ""},
        {"16-bit block align of 0",
         "'RIFF' 28000000 'WAVE' 'fmt ' 10000000 0100 0100 44ac0000 88580100 0000 1000 'data' 04000000 01020304", noErr,
         audio},
        {"compressed wave",
         "'RIFF' 28000000 'WAVE' 'fmt ' 10000000 1100 0100 44ac0000 88580100 0200 0400 'data' 04000000 01020304",
         otherFormat, ""},
        {"RF64",
         "'RF64' ffffffff 'WAVE' 'ds64' 1c000000 4800000000000000 0400000000000000 0200000000000000 00000000" + fmt +
             "'data' ffffffff 01020304 'LIST' 00000000",
         noErr, audio},
        {"RF64 with absurd sizes",
         "'RF64' ffffffff 'WAVE' 'ds64' 1c000000 ffffffffffffffff ffffffffffffffff ffffffffffffffff ffffffff" + fmt +
             "'data' ffffffff 01020304",
         noErr, audio},
        {"RF64 without its sizes", "'RF64' ffffffff 'WAVE'" + fmt + "'data' ffffffff 01020304", damaged, ""},
    };
    for (const auto& row : files) {
        SCOPED_TRACE(row.name);
        MemoryDisk disk;
        const ByteBlock contents = bytes(row.file);
        disk.setContents("/d/file", contents);
        const auto opened = openFile("/d/file");
        EXPECT_EQ(opened.status, row.status);
        if (opened.file) {
            EXPECT_EQ(audioOf(opened.file), bytes(row.audio));
            AudioFileClose(opened.file);
        }
        // writing goes on behind what is there, and the other chunks stay
        const auto writing = openFile("/d/file", fsRdWrPerm);
        EXPECT_EQ(writing.status, row.status);
        if (!writing.file)
            continue;
        ByteBlock audioThere = audioOf(writing.file);
        EXPECT_GE(audioThere.size(), bytes(row.audio).size());
        EXPECT_EQ(writeAudio(writing.file, static_cast<SInt64>(audioThere.size()), pattern(5000)), noErr);
        EXPECT_EQ(AudioFileClose(writing.file), noErr);
        const auto again = openFile("/d/file");
        ASSERT_EQ(again.status, noErr);
        const ByteBlock added = pattern(5000);
        audioThere.insert(audioThere.end(), added.begin(), added.end());
        EXPECT_EQ(audioOf(again.file), audioThere);
        AudioFileClose(again.file);
    }
}

TEST(ContainerFormats, CloseWithoutChangesWritesNothing)
{
    for (const char* file : {"'FORM' 00000031 'AIFF' 'COMM' 00000012 0001 00000003 0008 400eac44000000000000"
                             "'SSND' 0000000b 00000000 00000000 010203",
                             "'FORM' ffffffff 'AIFF' 'COMM' 00000012 0001 00000003 0008 400eac44000000000000"
                             "'SSND' 0000000b 00000000 00000000 010203 00 'APPL' 00000001 ff 00"}) {
        MemoryDisk disk;
        disk.setContents("/d/file", bytes(file));
        const auto opened = openFile("/d/file", fsRdWrPerm);
        ASSERT_EQ(opened.status, noErr);
        EXPECT_EQ(AudioFileClose(opened.file), noErr);
        EXPECT_EQ(disk.changesMade(), 0U);
    }
}

TEST(ContainerFormats, FileOfTinyChunksIsWalkedInBoundedTime)
{
    MemoryDisk disk;
    ByteBlock file = bytes("'FORM' 00000000 'AIFF' 'COMM' 00000012 0001 00000000 0010 400eac44000000000000");
    const ByteBlock chunk = bytes("'tiny' 00000000");
    for (int i = 0; i < 1 << 20; ++i)
        file.insert(file.end(), chunk.begin(), chunk.end());
    disk.setContents("/d/file", file);
    const auto opened = openFile("/d/file");
    ASSERT_EQ(opened.status, noErr);
    UInt32 size = 0;
    EXPECT_EQ(AudioFileGetPropertyInfo(opened.file, kAudioFilePropertyChunkIDs, &size, nullptr), noErr);
    EXPECT_LE(size, 65536U * 4);
    AudioFileClose(opened.file);
}
