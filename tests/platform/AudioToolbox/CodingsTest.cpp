// SPDX-License-Identifier: MIT
// Compressed files from samples to samples: exact lengths, exact samples if the coding keeps them, and seeks to any
// place.
#include "Foundation/ByteFields.h"
#include "platform/AudioToolbox/CodedFiles.h"
#include "platform/AudioToolbox/Conversion/Conversions.h"
#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/TemporaryFolder.h"

#include <tuple>

using namespace qmx::test;

namespace
{

struct Case {
    const char* name;
    AudioFileTypeID type;
    AudioFormatID coding;
    bool isLossless;
};

const Case cases[] = {
    {"a.m4a", kAudioFileM4AType, kAudioFormatMPEG4AAC, false},
    {"a.mp4", kAudioFileMPEG4Type, kAudioFormatMPEG4AAC, false},
    {"alac.m4a", kAudioFileM4AType, kAudioFormatAppleLossless, true},
    {"aac.caf", kAudioFileCAFType, kAudioFormatMPEG4AAC, false},
    {"alac.caf", kAudioFileCAFType, kAudioFormatAppleLossless, true},
    {"a.flac", kAudioFileFLACType, kAudioFormatFLAC, true},
    {"a.mp3", kAudioFileMP3Type, kAudioFormatMPEGLayer3, false},
};

/// The loudest difference of 16-bit samples over the loudest sample.
double worstDifference(const ByteBlock& a, const ByteBlock& b)
{
    double worst = 0;
    for (std::size_t i = 0; i + 1 < std::min(a.size(), b.size()); i += 2) {
        SInt16 left = 0, right = 0;
        std::memcpy(&left, &a[i], 2);
        std::memcpy(&right, &b[i], 2);
        worst = std::max(worst, std::abs(left - right) / 32768.0);
    }
    return worst;
}

/// The packets of a file one after the other, as they are read and written again.
struct Packets {
    ByteBlock data;
    std::vector<AudioStreamPacketDescription> descriptions;

    explicit Packets(const std::string& path)
    {
        const Opened opened(openFile(path));
        auto count = static_cast<UInt32>(property<UInt64>(opened.file, kAudioFilePropertyAudioDataPacketCount));
        descriptions.resize(count);
        data.resize(property<UInt64>(opened.file, kAudioFilePropertyAudioDataByteCount));
        UInt32 bytes = 0;
        EXPECT_EQ(AudioFileReadPackets(opened.file, false, &bytes, descriptions.data(), 0, &count, data.data()), noErr);
        EXPECT_EQ(bytes, data.size());
    }
};

/// The position of four characters in a file.
std::size_t placeOf(const ByteBlock& file, const std::string& code)
{
    const auto found = std::search(file.begin(), file.end(), code.begin(), code.end());
    EXPECT_NE(found, file.end()) << code;
    return static_cast<std::size_t>(found - file.begin());
}

void setField(ByteBlock& file, std::size_t place, UInt32 value)
{
    qmx::store32(&file[place], value, qmx::ByteOrder::big);
}

/// Extended files have the same 44100 frames, from any of them on.
void expectExtended(const std::string& path, UInt32 channels, const ByteBlock& decoded)
{
    const ExtendedFile file(path);
    EXPECT_EQ(lengthOf(file), 44100);
    setClient(file, floats(channels));
    const auto whole = readFloats(file, channels, 50000, 777);
    EXPECT_LE(largestDifference(converted<float>(linear(12, 16, channels), floats(channels), decoded), whole), 2e-5);
    EXPECT_EQ(positionOf(file), 44100);
    for (const SInt64 place : {1, 1023, 20000, 44099, 44100, 0}) {
        EXPECT_EQ(ExtAudioFileSeek(file, place), noErr);
        const auto part = readFloats(file, channels, 3000);
        const auto first = static_cast<std::size_t>(place) * channels;
        ASSERT_EQ(part.size(), std::min<std::size_t>(3000 * channels, whole.size() - first)) << place;
        EXPECT_EQ(largestDifference(std::span(whole).subspan(first, part.size()), part), 0) << place;
    }
    setClient(file, floats(channels, 48000));
    EXPECT_EQ(ExtAudioFileSeek(file, 14700), noErr);
    EXPECT_EQ(readFloats(file, channels, 50000).size(), channels * 32000U);
}

} // namespace

TEST(Codings, EveryLengthAndChannelCountComesBackExactly)
{
    const TemporaryFolder folder;
    for (const Case& c : cases)
        for (const UInt32 channels : {1U, 2U, 3U, 6U, 8U})
            for (const std::size_t frames : {std::size_t{1}, std::size_t{4097}, std::size_t{44100}}) {
                if (c.coding == kAudioFormatMPEGLayer3 && channels > 2)
                    continue;
                SCOPED_TRACE(testing::Message() << c.name << " of " << frames << " frames, channels: " << channels);
                const auto pcm = linear(12, 16, channels);
                const ByteBlock original = tones(frames, channels);
                const std::string path = folder.path(c.name);
                std::filesystem::remove(path);
                ASSERT_TRUE(encodeFile(path, c.type, coded(c.coding, channels), pcm, original));
                FrameReader reader(path, pcm);
                EXPECT_EQ(reader.info().mNumberValidFrames, static_cast<SInt64>(frames));
                const ByteBlock decoded = reader.from(0);
                ASSERT_EQ(decoded.size(), original.size());
                const double allowed = c.isLossless   ? 0
                                       : channels < 3 ? 0.1
                                                      : 1; // a channel for low tones keeps no others
                EXPECT_LE(worstDifference(decoded, original), allowed);
                if (frames < 44100)
                    continue;
                for (const SInt64 start : {1, 1023, 5000, 44099}) {
                    const auto whole = ByteBlock(decoded.begin() + start * pcm.mBytesPerFrame, decoded.end());
                    const ByteBlock part = reader.from(start);
                    ASSERT_EQ(part.size(), whole.size());
                    EXPECT_LT(worstDifference(part, whole), 0.0001) << "from frame " << start;
                }
                expectExtended(path, channels, decoded);
            }
}

TEST(Codings, ToolsReadOurFilesAndWeReadTheirsWithTheExactLength)
{
    const TemporaryFolder folder;
    const auto pcm = linear(12, 16, 2);
    const ByteBlock original = tones(44100, 2);
    writeFile(folder.path("in.raw"), original);
    const std::string raw = "-f s16le -ar 44100 -ac 2 ";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove(folder.path(c.name));
        ASSERT_TRUE(encodeFile(folder.path(c.name), c.type, coded(c.coding, 2), pcm, original));
        // the tool trims the end if the format's own rules do: not in MPEG-4, whose length it still reports
        run(std::string("ffmpeg -v error -y -i ") + c.name + " " + raw + "out.raw", folder);
        const ByteBlock decoded = contentsOf(folder.path("out.raw"));
        const bool skipsPriming = c.type != kAudioFileCAFType || c.isLossless;
        EXPECT_LE(worstDifference(decoded, original), c.isLossless ? 0 : skipsPriming ? 0.1 : 2);
        EXPECT_GE(decoded.size(), original.size());
        if (c.type == kAudioFileM4AType || c.type == kAudioFileMPEG4Type) {
            EXPECT_EQ(
                run(std::string("ffprobe -v error -show_entries stream=duration_ts -of csv=p=0 ") + c.name, folder),
                "44100\n");
        }
    }
    const struct {
        const char* arguments;
        bool isLossless;
        SInt64 frames; // 0: the container has no place for the length, or the tool leaves it out
    } theirs[] = {{"-c:a aac t.m4a", false, 44100},
                  {"-c:a alac t.m4a", true, 44100},
                  {"-c:a alac -frag_duration 200000 -movflags frag_keyframe+empty_moov t.m4a", true, 44100},
                  {"-c:a alac -frag_duration 200000 -movflags frag_keyframe t.m4a", true, 44100},
                  {"-c:a aac -frag_duration 200000 -movflags frag_keyframe+delay_moov t.m4a", false, 44100},
                  {"-c:a flac t.flac", true, 44100},
                  {"-c:a libmp3lame t.mp3", false, 44100},
                  {"-c:a alac t.caf", true, 0},
                  {"-c:a aac -f adts t.aac", false, 0}};
    for (const auto& row : theirs) {
        SCOPED_TRACE(row.arguments);
        run("ffmpeg -v error -y " + raw + "-i in.raw " + row.arguments, folder);
        const std::string arguments = row.arguments;
        FrameReader reader(folder.path(arguments.substr(arguments.rfind(' ') + 1)), pcm);
        const ByteBlock decoded = reader.from(0);
        if (row.frames > 0) {
            EXPECT_EQ(reader.info().mNumberValidFrames, row.frames);
            EXPECT_EQ(decoded.size(), original.size());
            EXPECT_LE(worstDifference(decoded, original), row.isLossless ? 0 : 0.4);
        } else {
            EXPECT_GE(decoded.size(), original.size());
        }
    }
}

TEST(Codings, LosslessCodingsKeepAllBitsAskedForOrRefuse)
{
    const TemporaryFolder folder;
    const auto twentyBits = [] {
        ByteBlock data = tones(5000, 2, 24);
        for (std::size_t i = 0; i < data.size(); i += 3)
            data[i] &= 0xF0;
        return data;
    };
    const AudioFormatFlags from16 = 1, from20 = 2, from24 = 3, from32 = 4;
    const struct {
        AudioStreamBasicDescription source;
        AudioFormatFlags asked, made; // 0 asked: left to the encoder; 0 made: refused
    } rows[] = {
        {linear(12, 16, 2), from20, from24}, {linear(4 | 16, 20, 2), from20, from24},
        {linear(4 | 16, 20, 2), 0, from24},  {linear(12, 24, 2), from16, from16},
        {linear(12, 24, 2), 0, from24},      {linear(12, 32, 2), 0, from24},
        {linear(12, 32, 2), from32, 0},      {linear(9, 32, 2), 0, from24},
        {linear(9, 32, 2), from32, 0},       {linear(12, 16, 2), 5, 0},
    };
    for (const AudioFormatID coding : {kAudioFormatAppleLossless, kAudioFormatFLAC})
        for (const auto& [source, asked, made] : rows) {
            SCOPED_TRACE(testing::Message() << qmx::fourCharString(coding) << " row bits " << source.mBitsPerChannel
                                            << " asked " << asked);
            const auto target = coded(coding, 2, 44100, asked);
            AudioConverterRef converter = nullptr;
            EXPECT_EQ(AudioConverterNew(&source, &target, &converter),
                      made != 0 ? noErr : kAudioConverterErr_FormatNotSupported);
            if (!converter)
                continue;
            const auto given = converterProperty<AudioStreamBasicDescription>(
                converter, kAudioConverterCurrentOutputStreamDescription);
            EXPECT_EQ(given.mFormatFlags, made);
            EXPECT_EQ(AudioConverterDispose(converter), noErr);
        }
    for (const auto& [type, coding] :
         {std::pair{kAudioFileM4AType, kAudioFormatAppleLossless}, std::pair{kAudioFileFLACType, kAudioFormatFLAC}}) {
        const auto pcm = linear(4 | 16, 20, 2);
        const ByteBlock original = twentyBits();
        const std::string path = folder.path(qmx::fourCharString(type));
        ASSERT_TRUE(encodeFile(path, type, coded(coding, 2, 44100, from20), pcm, original));
        EXPECT_TRUE(FrameReader(path, pcm).from(0) == original);
    }
}

TEST(Codings, RatesChangeBehindTheTrimmedFrames)
{
    const TemporaryFolder folder;
    const ByteBlock original = tones(44100, 2);
    const std::string path = folder.path("a.m4a");
    ASSERT_TRUE(encodeFile(path, kAudioFileM4AType, coded(kAudioFormatMPEG4AAC, 2), linear(12, 16, 2), original));
    FrameReader doubled(path, linear(9, 32, 1, 88200));
    EXPECT_EQ(doubled.from(0).size(), 88200U * 4);
    EXPECT_EQ(doubled.from(22050).size(), 44100U * 4);
    const std::string halved = folder.path("half.m4a");
    ASSERT_TRUE(encodeFile(halved, kAudioFileM4AType, coded(kAudioFormatMPEG4AAC, 1, 22050), linear(12, 16, 2),
                           original, 48000));
    FrameReader reader(halved, linear(12, 16, 1, 22050));
    EXPECT_EQ(reader.format().mSampleRate, 22050);
    EXPECT_EQ(reader.info().mNumberValidFrames, 22050);
    EXPECT_NEAR(propertyAt<UInt32>(halved, kAudioFilePropertyBitRate), 48000, 12000);
}

TEST(Codings, EncodersSayWhatTheyNeedAndKeepAPacketThatFoundNoRoom)
{
    const auto pcm = linear(12, 16, 2), aac = coded(kAudioFormatMPEG4AAC, 2);
    AudioConverterRef converter = nullptr;
    ASSERT_EQ(AudioConverterNew(&pcm, &aac, &converter), noErr);
    for (const auto& [asked, given] : {std::pair{1U, 16000U}, {100000U, 96000U}, {4000000000U, 512000U}}) {
        EXPECT_EQ(AudioConverterSetProperty(converter, kAudioConverterEncodeBitRate, 4, &asked), noErr);
        EXPECT_EQ(converterProperty<UInt32>(converter, kAudioConverterEncodeBitRate), given);
    }
    const ByteBlock data = tones(10000, 2);
    LinearSource source{data, 4, 500};
    AudioStreamPacketDescription description;
    ByteBlock room(6144);
    const auto fill = [&](UInt32 bytes, AudioStreamPacketDescription* descriptions) {
        UInt32 count = 1;
        AudioBufferList list{1, {{2, bytes, room.data()}}};
        return AudioConverterFillComplexBuffer(converter, LinearSource::give, &source, &count, &list, descriptions);
    };
    EXPECT_EQ(fill(6144, nullptr), kAudioConverterErr_RequiresPacketDescriptionsError);
    EXPECT_EQ(fill(3, &description), kAudioConverterErr_InvalidOutputSize);
    EXPECT_EQ(fill(6144, &description), noErr);
    EXPECT_GT(description.mDataByteSize, 3U);
    EXPECT_EQ(converterProperty<AudioConverterPrimeInfo>(converter, kAudioConverterPrimeInfo).leadingFrames, 1024U);
    UInt32 size = 6144;
    EXPECT_EQ(AudioConverterConvertBuffer(converter, 400, data.data(), &size, room.data()),
              kAudioConverterErr_OperationNotSupported);
    EXPECT_EQ(AudioConverterDispose(converter), noErr);
    const auto lossless = coded(kAudioFormatAppleLossless, 2);
    ASSERT_EQ(AudioConverterNew(&pcm, &lossless, &converter), noErr);
    EXPECT_EQ(AudioConverterGetPropertyInfo(converter, kAudioConverterEncodeBitRate, &size, nullptr),
              kAudioConverterErr_PropertyNotSupported);
    EXPECT_EQ(AudioConverterDispose(converter), noErr);
}

TEST(Codings, DamagedPacketsAreSilenceAndWhatFollowsKeepsItsPlace)
{
    const TemporaryFolder folder;
    const auto pcm = linear(12, 16, 2);
    const ByteBlock original = tones(44100, 2);
    const std::string path = folder.path("a.m4a");
    ASSERT_TRUE(encodeFile(path, kAudioFileM4AType, coded(kAudioFormatAppleLossless, 2), pcm, original));
    ByteBlock file = contentsOf(path);
    const auto start = static_cast<std::size_t>(propertyAt<SInt64>(path, kAudioFilePropertyDataOffset));
    std::fill_n(file.begin() + static_cast<long>(start), 20, std::uint8_t{0xFF});
    writeFile(path, file);
    FrameReader reader(path, pcm);
    const ByteBlock decoded = reader.from(0);
    ASSERT_EQ(decoded.size(), original.size());
    EXPECT_TRUE(std::equal(decoded.begin() + 4096 * 4, decoded.end(), original.begin() + 4096 * 4));
}

TEST(Codings, WhatAnMPEG4FileTellsOfItsLengthIsHeeded)
{
    const TemporaryFolder folder;
    const std::string path = folder.path("a.m4a");
    ASSERT_TRUE(
        encodeFile(path, kAudioFileM4AType, coded(kAudioFormatMPEG4AAC, 1), linear(12, 16, 1), tones(44100, 1)));
    const ByteBlock file = contentsOf(path);
    const auto expect = [&](const ByteBlock& changed, SInt32 priming, SInt64 valid) {
        writeFile(path, changed);
        const auto info = propertyAt<AudioFilePacketTableInfo>(path, kAudioFilePropertyPacketTableInfo);
        EXPECT_EQ(info.mPrimingFrames, priming);
        EXPECT_EQ(info.mNumberValidFrames, valid);
    };
    expect(file, 1024, 44100);

    ByteBlock edited = file; // version 0: one edit, its duration and its start
    setField(edited, placeOf(file, "elst") + 12, 20000);
    setField(edited, placeOf(file, "elst") + 16, 2000);
    expect(edited, 2000, 20000);

    const auto atom = [](const std::string& code, const std::string& contents) {
        ByteBlock size(4);
        setField(size, 0, static_cast<UInt32>(contents.size() + 8));
        return std::string(size.begin(), size.end()) + code + contents;
    };
    const std::string zeros(4, '\0'), one = std::string(3, '\0') + '\1';
    const std::string text = " 00000000 00000840 00000BC0 000000000000A000";
    const std::string comment =
        atom("udta", atom("meta", zeros + atom("hdlr", zeros + zeros + "mdirappl" + std::string(9, '\0')) +
                                      atom("ilst", atom("----", atom("mean", zeros + "com.apple.iTunes") +
                                                                    atom("name", zeros + "iTunSMPB") +
                                                                    atom("data", one + zeros + text)))));
    ByteBlock told = edited;
    const std::size_t movie = placeOf(file, "moov") - 4;
    setField(told, movie, static_cast<UInt32>(file.size() - movie + comment.size()));
    told.insert(told.end(), comment.begin(), comment.end());
    expect(told, 0x840, 0xA000);

    ByteBlock endless = file; // packets of a byte each
    setField(endless, placeOf(file, "stsz") + 8, 1);
    setField(endless, placeOf(file, "stsz") + 12, 60000000);
    writeFile(path, endless);
    EXPECT_EQ(openFile(path).status, kAudioFileInvalidFileError);
}

TEST(Codings, AHighEfficiencyStreamHasTwiceTheRateAndFrames)
{
    const TemporaryFolder folder;
    const std::string path = folder.path("plain.m4a"), high = folder.path("high.m4a");
    const auto plain = coded(kAudioFormatMPEG4AAC, 1, 22050);
    ASSERT_TRUE(encodeFile(path, kAudioFileM4AType, plain, linear(12, 16, 1, 22050), tones(22050, 1)));
    const Packets packets(path);
    const auto made = createFile(high, kAudioFileM4AType, plain);
    const UInt8 config[] = {0x2B, 0x8A, 0x10}; // replication of bands at 44100 on low complexity at 22050
    EXPECT_EQ(AudioFileSetProperty(made.file, kAudioFilePropertyMagicCookieData, sizeof config, config), noErr);
    const auto table = propertyAt<AudioFilePacketTableInfo>(path, kAudioFilePropertyPacketTableInfo);
    EXPECT_EQ(AudioFileSetProperty(made.file, kAudioFilePropertyPacketTableInfo, sizeof table, &table), noErr);
    auto count = static_cast<UInt32>(packets.descriptions.size());
    EXPECT_EQ(AudioFileWritePackets(made.file, false, static_cast<UInt32>(packets.data.size()),
                                    packets.descriptions.data(), 0, &count, packets.data.data()),
              noErr);
    EXPECT_EQ(AudioFileClose(made.file), noErr);
    FrameReader reader(high, linear(12, 16, 1));
    EXPECT_EQ(reader.format().mFormatID, kAudioFormatMPEG4AAC_HE);
    EXPECT_EQ(reader.format().mSampleRate, 44100);
    EXPECT_EQ(reader.format().mFramesPerPacket, 2048U);
    EXPECT_EQ(reader.info().mNumberValidFrames, 44100);
    EXPECT_EQ(reader.from(0).size(), 44100U * 2);
    EXPECT_EQ(reader.from(30000).size(), 14100U * 2);
}

TEST(Codings, OtherBytesBetweenTheFramesOfAStreamAreNoSound)
{
    const TemporaryFolder folder;
    for (const auto& [type, coding, headerBytes] : {std::tuple{kAudioFileAAC_ADTSType, kAudioFormatMPEG4AAC, 7U},
                                                    {kAudioFileMP3Type, kAudioFormatMPEGLayer3, 0U}}) {
        const std::string path = folder.path(qmx::fourCharString(type));
        ASSERT_TRUE(encodeFile(path, type, coded(coding, 2), linear(12, 16, 2), tones(44100, 2)));
        const Packets before(path);
        ByteBlock file = contentsOf(path);
        const AudioStreamPacketDescription& sixth = before.descriptions[5];
        const SInt64 place =
            propertyAt<SInt64>(path, kAudioFilePropertyDataOffset) + sixth.mStartOffset + 4 * headerBytes;
        file.insert(file.begin() + place, 160, 'J');
        writeFile(path, file);
        EXPECT_EQ(Packets(path).data, before.data) << qmx::fourCharString(type);
    }
}

TEST(Codings, FilesWithoutFramesOpenOrAreRefusedAtTheClose)
{
    const TemporaryFolder folder; // a lossless coding needs its cookie
    const auto bare = createFile(folder.path("b.m4a"), kAudioFileM4AType, coded(kAudioFormatAppleLossless, 2));
    EXPECT_EQ(AudioFileClose(bare.file), kAudioFileInvalidFileError);
    const std::string path = folder.path("a");
    std::vector<Case> all(std::begin(cases), std::end(cases));
    all.push_back({"a.aac", kAudioFileAAC_ADTSType, kAudioFormatMPEG4AAC, false});
    for (const auto& [name, type, coding, isLossless] : all)
        for (const bool hasClient : {true, false}) {
            SCOPED_TRACE(testing::Message() << qmx::fourCharString(type) << qmx::fourCharString(coding) << hasClient);
            std::filesystem::remove(path);
            ExtendedFile made(path, type, coded(coding, 2));
            if (hasClient)
                setClient(made, floats(2));
            const OSStatus closed = made.close();
            EXPECT_EQ(closed, type == kAudioFileAAC_ADTSType ? kAudioFileInvalidFileError : noErr);
            if (closed != noErr)
                continue;
            const ExtendedFile file(path);
            EXPECT_EQ(lengthOf(file), 0);
            const auto format = extendedValue<AudioStreamBasicDescription>(file, kExtAudioFileProperty_FileDataFormat);
            EXPECT_EQ(format.mFormatID, coding);
            EXPECT_EQ(format.mSampleRate, 44100);
            setClient(file, floats(2));
            EXPECT_TRUE(readFloats(file, 2, 10).empty());
        }
}

/// Nothing of what the decoder read before is heard at a stream's start.
TEST(Codings, AStreamBeginsAgainAsItDidAtFirst)
{
    const TemporaryFolder folder;
    const std::string path = folder.path("a");
    writeMusic(path, kAudioFileAAC_ADTSType, coded(kAudioFormatMPEG4AAC, 2), music(20000, 2));
    const ExtendedFile file(path);
    setClient(file, floats(2));
    const auto whole = readFloats(file, 2, 50000);
    for (const SInt64 place : {0, 5000, 0}) {
        EXPECT_EQ(ExtAudioFileSeek(file, place), noErr);
        EXPECT_EQ(readFloats(file, 2, 50000), std::vector<float>(whole.begin() + 2 * place, whole.end())) << place;
    }
}
