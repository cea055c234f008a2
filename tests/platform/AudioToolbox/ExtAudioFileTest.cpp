// SPDX-License-Identifier: MIT
#include "AudioToolbox/ExtAudioFile.h"

#include "ExtAudioFileHelpers.h"
#include "Foundation/RealTime.h"
#include "support/MemoryDisk.h"
#include "support/ShortMemory.h"
#include "support/Slices.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <array>

namespace
{

using namespace qmx::test;

class ExtAudioFile : public testing::Test
{
protected:
    TemporaryFolder folder;
    std::string path = folder.path("a.aif");
};

TEST_F(ExtAudioFile, ConvertsBetweenAnyLayoutsAndKeepsSamples)
{
    // 16 bits survive the round trip through floats of another layout
    const auto samples = music(5001, 2);
    writeMusic(path, kAudioFileAIFFType, bigSixteen, samples);
    const ExtendedFile file(path);
    EXPECT_EQ(lengthOf(file), 5001);
    EXPECT_EQ(extendedValue<AudioStreamBasicDescription>(file, kExtAudioFileProperty_ClientDataFormat).mBitsPerChannel,
              16U);
    setClient(file, linear(kAudioFormatFlagsNativeFloatPacked | kAudioFormatFlagIsNonInterleaved, 32, 2));
    std::vector<float> channels(2 * 6000);
    BufferList list(channels, 2);
    float *const left = channels.data(), *const right = left + 6000;
    UInt32 count = 6000;
    EXPECT_EQ(ExtAudioFileRead(file, &count, list.list()), noErr);
    EXPECT_EQ(count, 5001U);
    EXPECT_EQ(positionOf(file), 5001);
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_NEAR(left[i], samples[2 * i], 0.5001 / 32768) << i;
        ASSERT_NEAR(right[i], samples[2 * i + 1], 0.5001 / 32768) << i;
    }
    // the end: nothing, without an error; and nothing is written past a smaller buffer
    list.buffer(0).mDataByteSize = list.buffer(1).mDataByteSize = 24000;
    EXPECT_EQ(ExtAudioFileRead(file, &count, list.list()), noErr);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(ExtAudioFileSeek(file, 0), noErr);
    count = 100;
    list.buffer(0).mDataByteSize = 24000;
    list.buffer(1).mDataByteSize = 43;
    right[10] = 7;
    EXPECT_EQ(ExtAudioFileRead(file, &count, list.list()), noErr);
    EXPECT_EQ(count, 10U);
    EXPECT_EQ(right[10], 7);
}

void setQuality(ExtAudioFileRef file, UInt32 quality)
{
    const auto converter = extendedValue<AudioConverterRef>(file, kExtAudioFileProperty_AudioConverter);
    EXPECT_EQ(AudioConverterSetProperty(converter, kAudioConverterSampleRateConverterQuality, sizeof quality, &quality),
              noErr);
    const void* const config = nullptr;
    EXPECT_EQ(ExtAudioFileSetProperty(file, kExtAudioFileProperty_ConverterConfig, sizeof config, &config), noErr);
}

/// Reading from any place returns what a read from the start returns there, even when the rate changes.
TEST_F(ExtAudioFile, SeeksToTheFrame)
{
    struct Case {
        Float64 fileRate, clientRate;
        std::array<SInt64, 5> places;
        std::size_t frames = 150100;
        UInt32 quality = kAudioConverterQuality_High;
    };
    const std::array cases{
        Case{44100, 44100, {0, 1, 4095, 4096, 149999}},
        Case{44100, 48000, {1, 147, 14701, 29988, 147001}},
        Case{48000, 44100, {160, 1600, 16001, 148800, 0}},
        Case{22050, 44100, {1, 2, 1023, 110001, 149999}},
        Case{96000, 8000, {13, 4801, 12000, 24000, 150096}},
        Case{8000, 48000, {1, 2, 4097, 69999, 120000}},
        Case{96000, 48000, {1, 3, 4097, 141234, 149999}},
        Case{44100.5, 48000, {1, 2, 4097, 69999, 120000}},
        // the blocks of these filters never align again
        Case{8000, 48000, {135167, 135168, 200000, 266240, 270000}, 270001, kAudioConverterQuality_Max},
        Case{8000, 44100, {131072, 135168, 135169, 200000, 269999}, 270001},
        Case{44100, 44099, {135167, 135168, 135169, 266241, 270000}, 270001},
        Case{48000, 44100, {135167, 135168, 150000, 266240, 269999}, 270001, kAudioConverterQuality_Min},
        Case{48000, 44100.5, {135167, 135168, 150000, 266240, 269999}, 270001, kAudioConverterQuality_Min},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.fileRate << " to " << c.clientRate);
        std::filesystem::remove(path);
        writeMusic(path, kAudioFileAIFCType, linear(11, 32, 1, c.fileRate), music(c.frames, 1, c.fileRate));
        const ExtendedFile file(path);
        setClient(file, floats(1, c.clientRate));
        if (c.fileRate != c.clientRate)
            setQuality(file, c.quality);
        const auto whole = readFloats(file, 1, 2'000'000, 1000);
        EXPECT_EQ(positionOf(file), c.frames);
        EXPECT_EQ(whole.size(),
                  static_cast<std::size_t>(std::lround(static_cast<Float64>(c.frames) * c.clientRate / c.fileRate)));
        for (const SInt64 place : c.places) {
            EXPECT_EQ(ExtAudioFileSeek(file, place), noErr);
            EXPECT_EQ(positionOf(file), place);
            const auto first =
                static_cast<std::size_t>(std::ceil(static_cast<Float64>(place) * c.clientRate / c.fileRate));
            const auto part = readFloats(file, 1, 5000, 333);
            ASSERT_EQ(part.size(), std::min<std::size_t>(5000, whole.size() - first)) << place;
            EXPECT_EQ(largestDifference(std::span(whole).subspan(first, part.size()), part), 0) << place;
        }
        EXPECT_EQ(ExtAudioFileSeek(file, -1), kExtAudioFileError_InvalidSeek);
        EXPECT_EQ(ExtAudioFileSeek(file, static_cast<SInt64>(c.frames) + 1), kExtAudioFileError_InvalidSeek);
    }
}

TEST_F(ExtAudioFile, ChangesRatesWithoutLosingAnything)
{
    // one stream in pieces of any size, and the filter's tail is in the file when it is closed
    const auto samples = music(44100, 2);
    ExtendedFile file(path, kAudioFileAIFCType, linear(11, 32, 2, 48000));
    setClient(file, floats(2));
    for (std::size_t at = 0, piece = 1; at < 44100; at += piece, piece = std::min<std::size_t>(piece * 3, 44100 - at)) {
        ASSERT_EQ(writeFloats(file, std::span(samples).subspan(2 * at, 2 * piece), 2), noErr);
    }
    EXPECT_EQ(positionOf(file), 48000);
    EXPECT_EQ(file.close(), noErr);
    const ExtendedFile back(path);
    EXPECT_EQ(lengthOf(back), 48000);
    setClient(back, floats(2));
    setQuality(back, kAudioConverterQuality_Max);
    const auto result = readFloats(back, 2, 50000);
    ASSERT_EQ(result.size(), samples.size());
    // the signal starts and ends abruptly: its steep edges cannot come back
    const std::size_t edge = 2 * 8000;
    EXPECT_LT(largestDifference(std::span(samples).subspan(edge, 88200 - 2 * edge),
                                std::span(result).subspan(edge, 88200 - 2 * edge)),
              1e-5);
}

TEST_F(ExtAudioFile, EachChangeOfTheClientFormatEndsAStreamAtItsLastFrame)
{
    const auto samples = music(100, 1);
    const ExtendedFile file(path, kAudioFileAIFCType, linear(11, 32, 1, 48000));
    for (int i = 0; i < 200; ++i) {
        setClient(file, floats(1, i % 2 == 0 ? 44100 : 22050));
        EXPECT_EQ(writeFloats(file, samples, 1), noErr);
    }
    setClient(file, floats(1, 48000));
    EXPECT_EQ(lengthOf(file), 100 * 109 + 100 * 218);
    EXPECT_EQ(positionOf(file), lengthOf(file));
}

TEST_F(ExtAudioFile, FoldsKnownSurroundDownToStereo)
{
    std::vector<float> frames(6 * 6);
    for (std::size_t channel = 0; channel < 6; ++channel) // one channel at a time
        frames[7 * channel] = 0.5F;
    writeMusic(path, kAudioFileAIFCType, linear(11, 32, 6), frames);
    const ExtendedFile file(path);
    setClient(file, floats(2));
    // without a known layout, channel i goes to i
    EXPECT_EQ(readFloats(file, 2, 10), (std::vector<float>{0.5F, 0, 0, 0.5F, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(ExtAudioFileSeek(file, 0), noErr);
    std::array<AudioChannelLayoutTag, 3> layout{kAudioChannelLayoutTag_MPEG_5_1_A, 0, 0};
    EXPECT_EQ(ExtAudioFileSetProperty(file, kExtAudioFileProperty_FileChannelLayout, sizeof layout, &layout), noErr);
    const float half = 0.5F / (1 + std::numbers::sqrt2_v<float>), third = half / std::numbers::sqrt2_v<float>;
    const std::vector<float> expected{half, 0, 0, half, third, third, 0, 0, third, 0, 0, third};
    EXPECT_LT(largestDifference(readFloats(file, 2, 10), expected), 1e-7);
    // a map overrides it
    const auto converter = extendedValue<AudioConverterRef>(file, kExtAudioFileProperty_AudioConverter);
    const std::array<SInt32, 2> map{5, 0};
    EXPECT_EQ(AudioConverterSetProperty(converter, kAudioConverterChannelMap, sizeof map, map.data()), noErr);
    EXPECT_EQ(ExtAudioFileSeek(file, 0), noErr);
    EXPECT_EQ(readFloats(file, 2, 1), (std::vector<float>{0, 0.5F}));
    // so does a layout without surround
    setClient(file, floats(2));
    layout[0] = kAudioChannelLayoutTag_DiscreteInOrder | 6;
    EXPECT_EQ(ExtAudioFileSetProperty(file, kExtAudioFileProperty_FileChannelLayout, sizeof layout, &layout), noErr);
    setClient(file, floats(2));
    EXPECT_EQ(ExtAudioFileSeek(file, 0), noErr);
    EXPECT_EQ(readFloats(file, 2, 1), (std::vector<float>{0.5F, 0}));
}

TEST_F(ExtAudioFile, RefusesWhatCannotBeDone)
{
    EXPECT_EQ(ExtAudioFileWriteAsync(nullptr, 0, nullptr), kAudio_ParamError);
    EXPECT_EQ(ExtAudioFileDispose(nullptr), kAudio_ParamError);
    ExtAudioFileRef file = nullptr;
    const FSRef missing{path};
    EXPECT_EQ(ExtAudioFileOpen(&missing, &file), fnfErr);
    file = createExtended(path, kAudioFileAIFFType, bigSixteen);
    std::vector<float> room(20);
    auto list = listOf(room, 2);
    UInt32 count = 10;
    EXPECT_EQ(ExtAudioFileRead(file, &count, &list), kExtAudioFileError_InvalidOperationOrder);
    EXPECT_EQ(count, 0U);
    auto compressed = bigSixteen;
    compressed.mFormatID = kAudioFormatULaw;
    EXPECT_EQ(ExtAudioFileSetProperty(file, kExtAudioFileProperty_ClientDataFormat, sizeof compressed, &compressed),
              kExtAudioFileError_NonPCMClientFormat);
    EXPECT_EQ(ExtAudioFileSetProperty(file, kExtAudioFileProperty_ClientDataFormat, 4, &compressed),
              kExtAudioFileError_InvalidPropertySize);
    EXPECT_EQ(ExtAudioFileSetProperty(file, kExtAudioFileProperty_AudioFile, 8, &compressed),
              kAudioFileOperationNotSupportedError);
    EXPECT_EQ(ExtAudioFileGetPropertyInfo(file, qmx::fourCharCode("none"), nullptr, nullptr),
              kExtAudioFileError_InvalidProperty);
    list = listOf(room, 2);
    EXPECT_EQ(ExtAudioFileWrite(file, 21, &list), kAudio_ParamError); // the buffer holds 20 frames of 16 bits
    EXPECT_EQ(ExtAudioFileDispose(file), noErr);
}

TEST_F(ExtAudioFile, OverwritesInPlaceBehindASeek)
{
    writeMusic(path, kAudioFileAIFFType, bigSixteen, music(3000, 2));
    const Opened opened(openFile(path, fsRdWrPerm));
    ByteBlock expected = audioOf(opened.file);
    ExtAudioFileRef file = nullptr;
    ASSERT_EQ(ExtAudioFileWrapAudioFileID(opened.file, true, &file), noErr);
    setClient(file, floats(2));
    EXPECT_EQ(ExtAudioFileSeek(file, 1000), noErr);
    EXPECT_EQ(writeFloats(file, std::vector<float>(200), 2), noErr);
    EXPECT_EQ(positionOf(file), 1100);
    EXPECT_EQ(lengthOf(file), 3000);
    EXPECT_EQ(ExtAudioFileDispose(file), noErr);
    std::fill_n(expected.begin() + 4000, 400, std::uint8_t{0});
    EXPECT_EQ(audioOf(opened.file), expected);
}

// The next step does what a failed one left undone; only a writing file has lost frames, which its close reports.
TEST_F(ExtAudioFile, MemoryThatRunsOutIsAStatus)
{
    const auto samples = music(3000, 2);
    const AudioBufferList list = listOf(samples, 2);
    const AudioStreamBasicDescription client = floats(2), resampled = floats(2, 48000);
    const FSRef parent{folder.path("")}, reference{path};
    const CFStringRef name = CFStringCreate("a.aif");
    withEveryAllocationFailing([&](ShortMemory& memory) {
        std::filesystem::remove(path);
        ExtAudioFileRef file = nullptr;
        const auto succeed = [&](const auto& call) { EXPECT_EQ(memory.atLast(call), noErr); };
        const auto setClientTo = [&](const AudioStreamBasicDescription& format) {
            return ExtAudioFileSetProperty(file, kExtAudioFileProperty_ClientDataFormat, sizeof format, &format);
        };
        succeed([&] { return ExtAudioFileCreateNew(&parent, name, kAudioFileAIFFType, &bigSixteen, nullptr, &file); });
        succeed([&] { return setClientTo(client); });
        succeed([&] { return ExtAudioFileWriteAsync(file, 0, nullptr); });
        const OSStatus written = memory.during([&] { return ExtAudioFileWriteAsync(file, 1000, &list); });
        const OSStatus closed = memory.during([&] { return ExtAudioFileDispose(file); });
        const auto reopened = openFile(path, fsRdWrPerm);
        if (written == noErr && closed == noErr) {
            EXPECT_EQ(bytesIn(reopened.file), 4000U);
        }
        EXPECT_EQ(AudioFileClose(reopened.file), noErr);
        std::filesystem::remove(path);
        writeMusic(path, kAudioFileAIFFType, bigSixteen, samples);

        succeed([&] { return ExtAudioFileOpen(&reference, &file); });
        succeed([&] { return setClientTo(client); });
        std::vector<float> read(samples.size());
        succeed([&] {
            AudioBufferList target = listOf(read, 2);
            UInt32 count = 3000;
            return ExtAudioFileRead(file, &count, &target);
        });
        EXPECT_LT(largestDifference(read, samples), 1.0 / 32768);
        succeed([&] { return setClientTo(resampled); });
        succeed([&] { return ExtAudioFileSeek(file, 1000); });
        succeed([&] {
            AudioBufferList target = listOf(read, 2);
            UInt32 count = 1000;
            return ExtAudioFileRead(file, &count, &target);
        });
        memory.during([&] { return ExtAudioFileDispose(file); });
    });
    CFRelease(name);
}

// The filter's blocks are examined some seconds into a change of the rate.
TEST_F(ExtAudioFile, MemoryThatRunsOutInMidStreamLosesNoFrame)
{
    writeMusic(path, kAudioFileAIFCType, linear(11, 32, 1), music(140000, 1));
    const ExtendedFile file(path);
    setClient(file, floats(1, 48000));
    const auto whole = readFloats(file, 1, 200000);
    setClient(file, floats(1, 48000));
    EXPECT_EQ(ExtAudioFileSeek(file, 134000), noErr);
    auto read = readFloats(file, 1, 100);
    std::vector<float> part(4000);
    const AudioBufferList list = listOf(part, 1);
    UInt32 count = 4000;
    ShortMemory memory(1, ShortMemory::Lasts::once);
    const OSStatus status = memory.during([&] {
        AudioBufferList target = list;
        return ExtAudioFileRead(file, &count, &target);
    });
    EXPECT_EQ(status, memory.hasFailed() ? memFullErr : noErr);
    EXPECT_EQ(count < 4000, memory.hasFailed());
    EXPECT_GT(count, 0U);
    EXPECT_EQ(positionOf(file), (145851 + 100 + SInt64{count}) * 44100 / 48000);
    read.insert(read.end(), part.begin(), part.begin() + count);
    const auto rest = readFloats(file, 1, 20000);
    read.insert(read.end(), rest.begin(), rest.end());
    EXPECT_EQ(read, std::vector<float>(whole.begin() + 145851, whole.end()));
}

} // namespace
