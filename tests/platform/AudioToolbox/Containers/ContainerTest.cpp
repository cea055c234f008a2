// SPDX-License-Identifier: MIT
// The bytes of headers, formats that are accepted and refused, and odd and damaged files found in practice.
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/Archives.h"
#include "support/MemoryDisk.h"

#include <cstring>
#include <optional>
#include <sstream>
#include <utility>

using namespace qmx::test;

namespace
{

// Bytes from hex digits and, between apostrophes, plain text. Blanks are ignored.
ByteBlock bytes(const std::string& text)
{
    ByteBlock result;
    std::istringstream parts(text);
    bool isText = false;
    for (std::string part; std::getline(parts, part, '\''); isText = !isText) {
        const auto more = isText ? ByteBlock(part.begin(), part.end()) : fromHex(part);
        result.insert(result.end(), more.begin(), more.end());
    }
    return result;
}

const AudioFileTypeID aiff = kAudioFileAIFFType, aifc = kAudioFileAIFCType, wave = kAudioFileWAVEType;

} // namespace

TEST(Containers, WrittenFilesAreExactToTheByte)
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
        {kAudioFileCAFType, linear(12, 16, 2),
         "'caff' 00010000 'desc' 0000000000000020 40e5888000000000 'lpcm' 00000002 00000004 00000001 00000002 00000010"
         "'data' 0000000000000008 00000000 01020304"},
        {kAudioFileNextType, linear(14, 16, 2),
         "'.snd' 00000020 00000004 00000003 0000ac44 00000002 0000000000000000 01020304"},
        {kAudioFileSoundDesigner2Type, linear(14, 16, 2), "01020304"},
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

TEST(Containers, FormatIsTakenExactlyOrRefused)
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
        std::optional<AudioFormatFlags> inAIFF, inAIFC, inWAVE; // flags as stored in the file; empty: refused
    } formats[] = {
        {linear(bigInt, 8, 1), 14, 14, {}},
        {linear(unsignedInt, 8, 1), {}, 8, 8},
        {linear(bigInt, 16, 2), 14, 14, 14},
        {linear(littleInt, 16, 2), {}, 12, 12},
        {linear(bigInt, 20, 2), 22, 22, 22},
        {linear(littleInt, 24, 5), {}, 12, 12},
        {linear(bigInt, 32, 1024), 14, 14, 14},
        {linear(unsignedInt, 16, 1), {}, {}, {}},
        {linear(bigFloat, 32, 2), {}, 11, 11},
        {linear(littleFloat, 32, 2), {}, {}, 9},
        {linear(littleFloat, 24, 1), {}, {}, {}},
        {unpacked(4 | 16, 24, 4), {}, {}, 20},
        {unpacked(4, 24, 4), {}, {}, {}},
        {unpacked(2 | 4 | 16, 20, 3), 22, 22, 22},
        {unpacked(4 | 8 | 32, 16, 1), {}, {}, {}},
        {wrongCounts, 14, 14, 14},
        {companded(kAudioFormatULaw, 2), {}, 0, 0},
        {companded(kAudioFormatALaw, 1), {}, 0, 0},
        {linear(bigInt, 16, 1025), {}, {}, {}},
        {linear(bigInt, 16, 1, 0), {}, {}, {}},
        {linear(bigInt, 16, 1, 1e7 + 1), {}, {}, {}},
        {linear(bigInt, 16, 1, std::numeric_limits<double>::quiet_NaN()), {}, {}, {}},
        {linear(bigInt, 16, 1, 22050.5), 14, 14, {}},
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
            const Opened opened(openFile("/d/file"));
            ASSERT_EQ(opened.status, noErr);
            const auto format = formatOf(opened.file);
            EXPECT_EQ(property<UInt32>(opened.file, kAudioFilePropertyFileFormat), type);
            auto expected = row.format;
            expected.mFormatFlags = *flags;
            expected.mBytesPerPacket = expected.mBytesPerFrame = frame;
            expected.mFramesPerPacket = 1;
            EXPECT_EQ(std::memcmp(&format, &expected, sizeof format), 0);
            EXPECT_TRUE(audioOf(opened.file) == audio);
        }
    }
}

TEST(Containers, OddAndDamagedFilesAreReadOrRefused)
{
    const auto form = [](const char* size, const char* type = "'AIFF'") { return "'FORM'" + std::string(size) + type; };
    const auto riff = [](const char* size) { return "'RIFF'" + std::string(size) + "'WAVE'"; };
    const auto common = [](const char* fields) { return "'COMM' 00000012" + std::string(fields); };
    const std::string rate = "400eac44000000000000", comm2 = common("0001 00000002 0010") + rate; // 2 frames of 2 bytes
    const std::string comm3 = common("0001 00000003 0008") + rate;                                // 3 frames of 1 byte
    const std::string none = "00000000 00000000", ssnd = "'SSND' 0000000c" + none + "01020304";
    const std::string odd = "'SSND' 0000000b" + none + "010203", lead = form("00000032");
    const std::string fmt = "'fmt ' 10000000 0100 0100 44ac0000 88580100 0200 1000", data = "'data' 04000000 01020304";
    const std::string aifcComm = form("00000044", "'AIFC'") + "'COMM' 00000018 0001 00000002 0010" + rate;
    const std::string rf64 = "'RF64' ffffffff 'WAVE'", data64 = "'data' ffffffff 01020304";
    const auto rifx = [](const char* identifier) {
        return "'RIFX' 00000040 'WAVE' 'fmt ' 00000028 fffe 0001 0000ac44 00015888 0002 0010 0016 0010 00000004" +
               std::string(identifier) + "8000 00aa00389b71 'data' 00000004 01020304";
    };
    const std::string max64 = "ffffffffffffffff", caff = "'caff' 00010000";
    const std::string desc =
        "'desc' 0000000000000020 40e5888000000000 'lpcm' 00000000 00000002 00000001 00000001 00000010";
    const std::string snd = "'.snd' 00000018 00000004 00000003 0000ac44 00000001";
    const OSStatus damaged = kAudioFileInvalidFileError, otherFormat = kAudioFileUnsupportedDataFormatError,
                   noAudioFile = kAudioFileUnsupportedFileTypeError;
    const struct {
        const char* name;
        std::string file;
        std::string audio = "01020304";
        OSStatus status = noErr;
    } files[] = {
        {"sound before common", lead + ssnd + comm2},
        {"form size of 0", form("00000000") + comm2 + ssnd},
        {"form size wrong by one chunk", form("0000001e") + comm2 + ssnd},
        {"bytes after the form", lead + comm2 + ssnd + "'TAG junk'"},
        {"zeros in the form", form("00000042") + comm2 + ssnd + std::string(32, '0')},
        {"odd unknown chunk", form("0000003c") + comm2 + "'what' 00000001 ff 00" + ssnd},
        {"pad left out in the middle", form("0000003b") + comm2 + "'what' 00000001 ff" + ssnd},
        {"pad left out behind the sound", form("0000003a") + comm3 + odd + "'what' 00000001 ff", "010203"},
        {"slack behind the samples", form("00000036") + comm2 + "'SSND' 00000010" + none + "0102030405060708"},
        {"sound offset", form("00000036") + comm2 + "'SSND' 00000010 00000004 00000000 aaaaaaaa 01020304"},
        {"sound offset past the end", lead + comm2 + "'SSND' 0000000c 7fffffff 00000000 01020304", "", damaged},
        {"sound past the end", lead + comm2 + "'SSND' 7fffffff" + none + "01020304"},
        {"frames past the end", form("00000030") + comm2 + "'SSND' 0000000c" + none + "0102", "0102"},
        {"pad not counted", form("00000031") + comm3 + odd + "00", "010203"},
        {"pad left out", form("00000031") + comm3 + odd, "010203"},
        {"pad counted but left out", lead + comm3 + odd, "010203"},
        {"no frames and no sound", form("0000001e") + common("0001 00000000 0010") + rate, ""},
        {"frames and no sound", form("0000001e") + comm2, "", damaged},
        {"common of size 0", form("00000028") + "'COMM' 00000000" + ssnd, "", damaged},
        {"cut in the common", lead + common("0001 0000"), "", damaged},
        {"rate out of range", lead + common("0001 00000002 0010 7ffe") + max64 + ssnd, "", otherFormat},
        {"rate not a number", lead + common("0001 00000002 0010 7fff") + max64 + ssnd, "", otherFormat},
        {"other form", form("00000032", "'8SVX'") + comm2 + ssnd, "", noAudioFile},
        {"AIFF-C without version", aifcComm + "'sowt' 0000" + ssnd},
        {"AIFF-C of an unknown coding", aifcComm + "'GSM ' 0000" + ssnd, "", otherFormat},
        {"streamed wave", riff("00000000") + fmt + "'data' 00000000 01020304"},
        {"streamed wave with largest sizes", riff("ffffffff") + fmt + data64},
        {"no data but a chunk", riff("2c000000") + fmt + "'data' 00000000 'LIST' 00000000", ""},
        {"data before format", riff("28000000") + data + fmt},
        {"half a frame", riff("28000000") + fmt + "'data' 03000000 010203 00", "0102"},
        {"block align of 0", riff("28000000") + replaced(fmt, "0200 1000", "0000 1000") + data},
        {"compressed wave", riff("28000000") + replaced(fmt, "0100", "1100") + data, "", otherFormat},
        {"extensible RIFX of a big-endian identifier", rifx("00000001 0000 0010")},
        {"extensible RIFX of a little-endian identifier", rifx("01000000 0000 1000")},
        {"extensible RIFX of a big-endian tag", rifx("0001 0000 0000 1000")},
        {"extensible RIFX of an unknown coding", rifx("00000011 0000 0010"), "", otherFormat},
        {"CAF to the end of the file", caff + desc + "'data'" + max64 + "00000000 01020304"},
        {"CAF of an absurd size", caff + desc + "'data' 7fffffffffffffff 00000000 01020304"},
        {"CAF with odd chunks around",
         caff + desc +
             "'odd ' 0000000000000001 ff 'data' 0000000000000008 00000000 01020304 'info' 0000000000000003 010203"},
        {"CAF with stray bytes behind", caff + desc + "'data' 0000000000000008 00000000 01020304 00ff"},
        {"CAF without data", caff + desc, "", damaged},
        {"CAF of frames that contradict themselves",
         caff + replaced(desc, "00000002 00000001", "00000007 00000001") + "'data' 0000000000000008 00000000 01020304",
         "", otherFormat},
        {"NeXT", snd + "01020304"},
        {"NeXT of unknown size", replaced(snd, "00000004", "ffffffff") + "01020304"},
        {"NeXT cut off", snd + "0102", "0102"},
        {"NeXT that begins behind its end", replaced(snd, "00000018", "00001000") + "01020304", "", damaged},
        {"NeXT of an unknown coding", replaced(snd, "00000003", "00000017") + "01020304", "", otherFormat},
        {"RF64", rf64 + "'ds64' 1c000000 4800000000000000 0400000000000000" + max64 + "00000000" + fmt + data64},
        {"RF64 with absurd sizes", rf64 + "'ds64' 1c000000" + max64 + max64 + max64 + "ffffffff" + fmt + data64},
        {"RF64 without its sizes", rf64 + fmt + data64, "", damaged},
        {"RF64 with its sizes behind", rf64 + fmt + data64 + "'ds64' 1c000000" + max64 + max64 + max64 + "00000000", "",
         damaged},
    };
    for (const auto& row : files) {
        SCOPED_TRACE(row.name);
        MemoryDisk disk;
        disk.setContents("/d/file", bytes(row.file));
        const auto opened = openFile("/d/file");
        ASSERT_EQ(opened.status, row.status);
        const auto writing = openFile("/d/file", fsRdWrPerm);
        ASSERT_EQ(writing.status, row.status);
        if (row.status != noErr)
            continue;
        EXPECT_EQ(audioOf(opened.file), bytes(row.audio));
        EXPECT_EQ(AudioFileClose(opened.file), noErr);
        // writing continues after the existing audio
        ByteBlock audio = audioOf(writing.file);
        EXPECT_GE(audio.size(), bytes(row.audio).size());
        const ByteBlock added = pattern(5000);
        EXPECT_EQ(writeAudio(writing.file, static_cast<SInt64>(audio.size()), added), noErr);
        audio.insert(audio.end(), added.begin(), added.end());
        EXPECT_EQ(AudioFileClose(writing.file), noErr);
        EXPECT_EQ(audioAt("/d/file"), audio);
    }
}

TEST(Containers, OpeningForWritingBringsLaggingSizesInLine)
{
    const std::string rate = "400eac44000000000000", none = "00000000 00000000";
    const std::string fmt = "'WAVE' 'fmt ' 10000000 0100 0100 44ac0000 88580100 0200 1000";
    const std::string comm0 = "'AIFF' 'COMM' 00000012 0001 00000000 0010" + rate,
                      whole = replaced(comm0, "000000 ", "000002 ");
    const std::string oddEnd = "'AIFF' 'COMM' 00000012 0001 00000003 0008" + rate + "'SSND' 0000000b" + none + "010203";
    const std::string oddWhole = "'FORM' 00000031" + oddEnd,
                      streamed = "'FORM' ffffffff" + oddEnd + "00 'APPL' 00000001 ff 00";
    const std::pair<std::string, std::string> files[] = {
        {oddWhole, oddWhole},
        {streamed, streamed},
        {"'FORM' 0000002e" + comm0 + "'SSND' 00000008" + none + "01020304 05",
         "'FORM' 00000032" + whole + "'SSND' 0000000c" + none + "01020304"},
        {"'FORM' 00000032" + whole + "'SSND' 0000000c" + none + "01020304 'APPL' 00000002 ffff",
         "'FORM' 0000003c" + whole + "'SSND' 0000000c" + none + "01020304 'APPL' 00000002 ffff"},
        {"'.snd' 00000018 00000002 00000003 0000ac44 00000001 01020304 05",
         "'.snd' 00000018 00000004 00000003 0000ac44 00000001 01020304"},
        {"'dns.' 1c000000 00000000 03000000 44ac0000 01000000 'text' 01020304",
         "'dns.' 1c000000 04000000 03000000 44ac0000 01000000 'text' 01020304"},
        {"'.snd' 00000018 ffffffff 00000003 0000ac44 00000001 01020304",
         "'.snd' 00000018 ffffffff 00000003 0000ac44 00000001 01020304"},
        {"'RIFF' 26000000" + fmt + "'data' 02000000 01020304", "'RIFF' 28000000" + fmt + "'data' 04000000 01020304"},
    };
    for (const auto& [lagging, expected] : files) {
        MemoryDisk disk;
        disk.setContents("/d/file", bytes(lagging));
        EXPECT_EQ(AudioFileClose(openFile("/d/file", fsRdWrPerm).file), noErr);
        EXPECT_EQ(disk.contents("/d/file"), bytes(expected)) << lagging;
        EXPECT_EQ(disk.changesMade() == 0, lagging == expected) << lagging;
    }
}

TEST(Containers, FileOfTinyChunksIsWalkedInBoundedTime)
{
    MemoryDisk disk;
    ByteBlock file = bytes("'FORM' 00000000 'AIFF' 'COMM' 00000012 0001 00000000 0010 400eac44000000000000");
    const ByteBlock chunk = bytes("'tiny' 00000000");
    for (int i = 0; i < 1 << 20; ++i)
        file.insert(file.end(), chunk.begin(), chunk.end());
    disk.setContents("/d/file", file);
    const Opened opened(openFile("/d/file"));
    UInt32 size = 0;
    EXPECT_EQ(AudioFileGetPropertyInfo(opened.file, kAudioFilePropertyChunkIDs, &size, nullptr), noErr);
    EXPECT_LE(size, 65536U * 4);
}
