// SPDX-License-Identifier: MIT
#include "AudioToolbox/ExtAudioFile.h"

#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <array>

namespace
{

using namespace qmx::test;

class ExtendedProperties : public testing::Test
{
protected:
    template <class Value> static OSStatus set(ExtAudioFileRef file, ExtAudioFilePropertyID property, Value value)
    {
        return ExtAudioFileSetProperty(file, property, sizeof value, &value);
    }

    /// The size of a property, with a minus when it cannot be set; 0 when the file lacks it.
    static int shape(ExtAudioFileRef file, ExtAudioFilePropertyID property)
    {
        UInt32 size = 0;
        Boolean isWritable = false;
        if (ExtAudioFileGetPropertyInfo(file, property, &size, &isWritable) != noErr)
            return 0;
        return isWritable ? static_cast<int>(size) : -static_cast<int>(size);
    }

    TemporaryFolder folder;
    std::string path = folder.path("a.aif");
    const AudioStreamBasicDescription lossless{44100, kAudioFormatAppleLossless, 1, 0, 0, 0, 2, 0, 0};
};

TEST_F(ExtendedProperties, TellTheirSizesAndWhetherTheyCanBeSet)
{
    writeMusic(path, kAudioFileAIFFType, bigSixteen, music(100, 2));
    const ExtendedFile read(path);
    const ExtendedFile written(folder.path("b.aif"), kAudioFileAIFFType, bigSixteen);
    struct Row {
        ExtAudioFilePropertyID property;
        int whenRead, whenWritten;
    };
    for (const Row& row :
         {Row{kExtAudioFileProperty_FileDataFormat, -40, -40}, Row{kExtAudioFileProperty_ClientDataFormat, 40, 40},
          Row{kExtAudioFileProperty_AudioConverter, 8, 8}, Row{kExtAudioFileProperty_ConverterConfig, 8, 8},
          Row{kExtAudioFileProperty_FileMaxPacketSize, -4, -4}, Row{kExtAudioFileProperty_ClientMaxPacketSize, -4, -4},
          Row{kExtAudioFileProperty_FileLengthFrames, -8, 8}, Row{kExtAudioFileProperty_IOBufferSizeBytes, 4, 4},
          Row{kExtAudioFileProperty_IOBuffer, 8, 8}, Row{kExtAudioFileProperty_AudioFile, -8, -8},
          Row{kExtAudioFileProperty_KeepsFileReadable, -4, 4}, Row{kExtAudioFileProperty_CodecManufacturer, 0, 0},
          Row{kExtAudioFileProperty_PacketTable, 0, 0}}) {
        EXPECT_EQ(shape(read, row.property), row.whenRead) << qmx::fourCharString(row.property);
        EXPECT_EQ(shape(written, row.property), row.whenWritten) << qmx::fourCharString(row.property);
    }
    EXPECT_EQ(extendedValue<UInt32>(read, kExtAudioFileProperty_FileMaxPacketSize), 4U);
    EXPECT_EQ(extendedValue<UInt32>(written, kExtAudioFileProperty_ClientMaxPacketSize), 4U);
    EXPECT_EQ(extendedValue<void*>(read, kExtAudioFileProperty_ConverterConfig), nullptr);
    EXPECT_EQ(set(read, kExtAudioFileProperty_ConverterConfig, &folder), kAudio_ParamError);
    EXPECT_EQ(set(read, kExtAudioFileProperty_AudioConverter, &folder), kAudio_ParamError);
    EXPECT_EQ(set(read, kExtAudioFileProperty_IOBuffer, UInt32{0}), kExtAudioFileError_InvalidPropertySize);
    // a layout must have as many channels as the format
    std::array<UInt32, 3> layout{kAudioChannelLayoutTag_MPEG_5_1_A, 0, 0};
    EXPECT_EQ(set(read, kExtAudioFileProperty_ClientChannelLayout, layout), kExtAudioFileError_InvalidChannelMap);
    layout[0] = kAudioChannelLayoutTag_DiscreteInOrder | 3;
    EXPECT_EQ(set(read, kExtAudioFileProperty_FileChannelLayout, layout), kExtAudioFileError_InvalidChannelMap);
    layout[0] = kAudioChannelLayoutTag_Stereo;
    EXPECT_EQ(set(read, kExtAudioFileProperty_ClientChannelLayout, layout), noErr);
    EXPECT_EQ((extendedValue<std::array<UInt32, 3>>(read, kExtAudioFileProperty_ClientChannelLayout)), layout);
}

/// A caller's memory carries the data, whatever its alignment, and nothing is written beside it.
TEST_F(ExtendedProperties, ABufferOfTheCallersIsUsedAndNothingBesideIt)
{
    constexpr std::size_t size = 4096;
    constexpr std::byte guard{0x5A};
    std::vector<std::byte> memory(size + 3, guard);
    const auto lend = [&](ExtAudioFileRef file) {
        EXPECT_EQ(set(file, kExtAudioFileProperty_IOBufferSizeBytes, UInt32{1}), noErr);
        ASSERT_EQ(extendedValue<UInt32>(file, kExtAudioFileProperty_IOBufferSizeBytes), size);
        EXPECT_EQ(set(file, kExtAudioFileProperty_IOBuffer, &memory[1]), noErr);
        EXPECT_EQ(extendedValue<void*>(file, kExtAudioFileProperty_IOBuffer), &memory[1]);
    };
    const auto wasUsed = [&] {
        const bool isAll = std::count(memory.begin(), memory.end(), guard) < 200;
        EXPECT_TRUE(memory.front() == guard && memory[size + 1] == guard && memory.back() == guard);
        std::fill(memory.begin(), memory.end(), guard);
        return isAll;
    };
    const auto samples = music(20000, 2);
    ExtendedFile written(path, kAudioFileAIFCType, linear(11, 32, 2));
    setClient(written, floats(2));
    lend(written);
    EXPECT_EQ(writeFloats(written, samples, 2), noErr);
    EXPECT_EQ(written.close(), noErr);
    EXPECT_TRUE(wasUsed());

    const ExtendedFile read(path);
    setClient(read, floats(2));
    auto part = readFloats(read, 2, 7000);
    lend(read); // in the middle
    const auto more = readFloats(read, 2, 7000);
    EXPECT_TRUE(wasUsed());
    part.insert(part.end(), more.begin(), more.end());
    EXPECT_EQ(set(read, kExtAudioFileProperty_IOBufferSizeBytes, UInt32{1} << 30), noErr); // own memory again
    EXPECT_EQ(extendedValue<UInt32>(read, kExtAudioFileProperty_IOBufferSizeBytes), 1U << 24);
    const auto rest = readFloats(read, 2, 7000);
    EXPECT_FALSE(wasUsed());
    part.insert(part.end(), rest.begin(), rest.end());
    EXPECT_EQ(part, samples);
}

TEST_F(ExtendedProperties, AFileThatIsWrittenGrowsBySilence)
{
    // zero is not silence in unsigned samples
    ExtendedFile wave(folder.path("a.wav"), kAudioFileWAVEType, linear(8, 8, 1));
    const std::vector<std::uint8_t> loud(10, 255);
    const auto list = listOf(loud.data(), loud.size(), 1);
    EXPECT_EQ(ExtAudioFileWrite(wave, 10, &list), noErr);
    EXPECT_EQ(set(wave, kExtAudioFileProperty_FileLengthFrames, SInt64{10000}), noErr);
    EXPECT_EQ(lengthOf(wave), 10000);
    EXPECT_EQ(positionOf(wave), 10);
    EXPECT_EQ(ExtAudioFileWrite(wave, 10, &list), noErr);
    EXPECT_EQ(lengthOf(wave), 10000);
    EXPECT_EQ(set(wave, kExtAudioFileProperty_FileLengthFrames, SInt64{9999}), kAudioFileOperationNotSupportedError);
    EXPECT_EQ(wave.close(), noErr);
    auto expected = std::vector<std::uint8_t>(10000, 128);
    std::fill_n(expected.begin(), 20, std::uint8_t{255});
    EXPECT_EQ(audioAt(folder.path("a.wav")), expected);

    ExtendedFile aiff(path, kAudioFileAIFFType, bigSixteen);
    EXPECT_EQ(set(aiff, kExtAudioFileProperty_FileLengthFrames, SInt64{1} << 40),
              kAudioFileDoesNotAllow64BitDataSizeError);
    EXPECT_EQ(lengthOf(aiff), 0);
    EXPECT_EQ(set(aiff, kExtAudioFileProperty_FileLengthFrames, SInt64{500}), noErr);
    EXPECT_EQ(aiff.close(), noErr);
    const ExtendedFile back(path);
    EXPECT_EQ(set(back, kExtAudioFileProperty_FileLengthFrames, SInt64{600}), kAudioFileOperationNotSupportedError);
    setClient(back, floats(2));
    EXPECT_EQ(readFloats(back, 2, 600), std::vector<float>(1000));
}

TEST_F(ExtendedProperties, CodedFilesTakeTheirCodecAndAChannelMapBeforeTheyBegin)
{
    path = folder.path("a.m4a");
    ExtendedFile file(path, kAudioFileM4AType, lossless);
    UInt32 size = sizeof size, value = 0;
    EXPECT_EQ(ExtAudioFileGetProperty(file, kExtAudioFileProperty_FileMaxPacketSize, &size, &value),
              kExtAudioFileError_MaxPacketSizeUnknown);
    EXPECT_EQ(shape(file, kExtAudioFileProperty_FileMaxPacketSize), -4);
    EXPECT_EQ(shape(file, kExtAudioFileProperty_CodecManufacturer), 4);
    EXPECT_EQ(shape(file, kExtAudioFileProperty_FileLengthFrames), -8);
    EXPECT_EQ(set(file, kExtAudioFileProperty_CodecManufacturer, qmx::fourCharCode("else")),
              kAudioConverterErr_FormatNotSupported);
    EXPECT_EQ(set(file, kExtAudioFileProperty_CodecManufacturer, qmx::fourCharCode("appl")), noErr);
    setClient(file, floats(2));
    EXPECT_EQ(shape(file, kExtAudioFileProperty_CodecManufacturer), -4);
    EXPECT_EQ(set(file, kExtAudioFileProperty_CodecManufacturer, qmx::fourCharCode("appl")),
              kExtAudioFileError_InvalidOperationOrder);
    EXPECT_GT(extendedValue<UInt32>(file, kExtAudioFileProperty_FileMaxPacketSize), 4096U);
    // at least one packet, whatever is requested
    EXPECT_EQ(set(file, kExtAudioFileProperty_IOBufferSizeBytes, UInt32{4096}), noErr);
    EXPECT_EQ(extendedValue<UInt32>(file, kExtAudioFileProperty_IOBufferSizeBytes),
              extendedValue<UInt32>(file, kExtAudioFileProperty_FileMaxPacketSize));
    const auto converter = extendedValue<AudioConverterRef>(file, kExtAudioFileProperty_AudioConverter);
    const std::array<SInt32, 2> map{1, -1};
    EXPECT_EQ(AudioConverterSetProperty(converter, kAudioConverterChannelMap, sizeof map, map.data()), noErr);
    const auto samples = music(10000, 2);
    EXPECT_EQ(writeFloats(file, samples, 2), noErr);
    EXPECT_EQ(file.close(), noErr);

    const ExtendedFile read(path);
    EXPECT_EQ(extendedValue<AudioFilePacketTableInfo>(read, kExtAudioFileProperty_PacketTable).mNumberValidFrames,
              10000);
    setClient(read, floats(2));
    EXPECT_EQ(set(read, kExtAudioFileProperty_IOBufferSizeBytes, UInt32{4096}), noErr);
    const auto back = readFloats(read, 2, 10001);
    ASSERT_EQ(back.size(), samples.size());
    for (std::size_t i = 0; i < back.size(); i += 2)
        ASSERT_TRUE(std::abs(back[i] - samples[i + 1]) < 0.51F / 32768 && back[i + 1] == 0) << i;
}

/// However large the buffer, and however small a packet may be.
TEST_F(ExtendedProperties, ABufferCostsNoMoreThanItsBytesAndWhatTheFileHolds)
{
    const auto costOf = [](ExtAudioFileRef file) {
        const auto used = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
        const std::size_t before = used();
        EXPECT_EQ(set(file, kExtAudioFileProperty_IOBufferSizeBytes, UInt32{1} << 24), noErr);
        return used() - std::min(used(), before);
    };
    path = folder.path("a.caf");
    const auto made = createFile(path, kAudioFileCAFType, {44100, kAudioFormatMPEG4AAC, 0, 0, 1024, 0, 1, 0, 0});
    const UInt8 packet = 0;
    const AudioStreamPacketDescription description{0, 0, 1};
    UInt32 count = 1;
    EXPECT_EQ(AudioFileWritePackets(made.file, false, 1, &description, 0, &count, &packet), noErr);
    EXPECT_EQ(AudioFileClose(made.file), noErr);
    EXPECT_LT(costOf(ExtendedFile(path)), 40'000'000U);
    EXPECT_LT(costOf(ExtendedFile(folder.path("a.m4a"), kAudioFileM4AType, lossless)), 40'000'000U);
}

} // namespace
