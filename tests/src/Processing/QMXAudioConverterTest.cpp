// SPDX-License-Identifier: MIT
#include "Processing/QMXAudioConverter.h"

#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/RealTime.h"
#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/CapturedLog.h"
#include "support/Slices.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <numbers>

using Format = QMXAudioStreamBasicDescription;
using qmx::test::BufferList;
using qmx::test::linearFormat;

namespace
{

auto converterFromFileToDevice()
{
    return QMXAudioConverter::initWithSourceFormat_destinationFormat(Format::defaultStandardFileFormat(),
                                                                     Format::defaultStandardDeviceFormat());
}

using Bytes = std::vector<std::byte>;

constexpr AudioFormatFlags floating = kAudioFormatFlagIsFloat, integer = kAudioFormatFlagIsSignedInteger,
                           bigEndian = kAudioFormatFlagIsBigEndian, split = kAudioFormatFlagIsNonInterleaved;

std::size_t frameBytes(const AudioStreamBasicDescription& format)
{
    return std::size_t{format.mChannelsPerFrame} * format.mBitsPerChannel / 8;
}

/// Gives source data front to back, then nothing more.
class Source : public QMXAudioConverterDelegate
{
public:
    Source(const AudioStreamBasicDescription& format, Bytes bytes)
        : format_(format), bytes_(std::move(bytes)), total_(bytes_.size() / frameBytes(format))
    {
    }

    OSStatus audioConverterCallback_data_packetDescription(UInt32* packetCount, AudioBufferList* data,
                                                           AudioStreamPacketDescription**) override
    {
        mostAsked = std::max(mostAsked, *packetCount);
        isAskedForNothing = isAskedForNothing || *packetCount == 0;
        const auto frames = std::min<std::size_t>(*packetCount, total_ - position_);
        AudioBuffer* const buffers = data->mBuffers;
        for (UInt32 i = 0; i < data->mNumberBuffers; ++i) {
            buffers[i].mDataByteSize = static_cast<UInt32>(frames * format_.mBytesPerFrame);
            buffers[i].mData = bytes_.data() + (i * total_ + position_) * format_.mBytesPerFrame;
        }
        position_ += frames;
        *packetCount = static_cast<UInt32>(frames);
        return noErr;
    }

    UInt32 mostAsked = 0;
    bool isAskedForNothing = false;

private:
    AudioStreamBasicDescription format_;
    Bytes bytes_;
    std::size_t total_, position_ = 0;
};

auto formatObject(const AudioStreamBasicDescription& record)
{
    return Format::initWithAudioStreamBasicDescription(&record);
}

Bytes viaBuffers(const AudioStreamBasicDescription& from, const AudioStreamBasicDescription& to, const Bytes& bytes)
{
    const auto converter =
        QMXAudioConverter::initWithSourceFormat_destinationFormat(formatObject(from), formatObject(to));
    UInt32 size = converter->calculateOutputBufferSize(static_cast<UInt32>(bytes.size()));
    Bytes result(size);
    EXPECT_EQ(noErr, converter->convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(
                         bytes.data(), static_cast<UInt32>(bytes.size()), result.data(), &size));
    result.resize(size);
    return result;
}

/// Pulls `frames` frames in real time, in pieces of the given sizes in turn.
Bytes viaChain(const AudioStreamBasicDescription& from, const AudioStreamBasicDescription& to, const Bytes& bytes,
               std::size_t frames, const std::vector<UInt32>& pieces)
{
    const auto source = std::make_shared<Source>(from, bytes);
    const auto converter = QMXAudioConverter::initWithDelegate_sourceFormat_destinationFormat(
        source, formatObject(from), formatObject(to));
    Bytes result(frames * frameBytes(to));
    for (std::size_t done = 0, turn = 0; done < frames; ++turn) {
        const auto length = static_cast<UInt32>(std::min<std::size_t>(pieces[turn % pieces.size()], frames - done));
        BufferList list(to, result.data(), frames, done, length);
        OSStatus status = noErr;
        {
            const qmx::RealTimeScope scope;
            status = converter->fillComplexBuffer_buffer_packetDescription(&length, list.list(), nullptr);
        }
        EXPECT_EQ(noErr, status);
        done += length;
    }
    EXPECT_FALSE(source->isAskedForNothing);
    EXPECT_LE(source->mostAsked, MAX_FRAMES_PER_SLICE);
    return result;
}

std::vector<AudioStreamBasicDescription> allLayouts()
{
    std::vector<AudioStreamBasicDescription> formats;
    for (const UInt32 channels : {1U, 2U, 8U})
        for (const AudioFormatFlags order : {AudioFormatFlags{0}, bigEndian})
            for (const AudioFormatFlags arrangement : {AudioFormatFlags{0}, split}) {
                for (const UInt32 bits : {16U, 24U, 32U})
                    formats.push_back(linearFormat(bits, channels, integer | order | arrangement));
                formats.push_back(linearFormat(32, channels, floating | order | arrangement));
            }
    return formats;
}

/// Sines that come gently and end loud, 24-bit exact in every layout, and silence after them.
Bytes sound(const AudioStreamBasicDescription& format, std::size_t frames, std::size_t silentFrames = 0)
{
    std::vector<Float32> samples(frames + silentFrames);
    for (std::size_t i = 0; i < frames; ++i) {
        const Float64 time = static_cast<Float64>(i) / format.mSampleRate;
        Float64 value = 0;
        for (const Float64 frequency : {110.0, 997.0, 5000.0, 12000.0})
            value += 0.2 * std::sin(2 * std::numbers::pi * frequency * time);
        samples[i] =
            static_cast<Float32>(value * std::min(1.0, 10 * static_cast<Float64>(i) / static_cast<Float64>(frames)));
    }
    const auto bytes = std::as_bytes(std::span(samples));
    return viaBuffers(linearFormat(32, 1, floating, format.mSampleRate), format, {bytes.begin(), bytes.end()});
}

/// The largest difference of two runs of floats, over as many as both have, in dB of full scale.
Float64 difference(const Bytes& one, const Bytes& other)
{
    const auto floats = [count = std::min(one.size(), other.size()) / sizeof(Float32)](const Bytes& bytes) {
        return std::span(reinterpret_cast<const Float32*>(bytes.data()), count);
    };
    return 20 * std::log10(qmx::test::largestDifference(floats(one), floats(other)));
}

class Packets : public QMXAudioConverterDelegate
{
public:
    MOCK_METHOD(OSStatus, audioConverterCallback_data_packetDescription,
                (UInt32*, AudioBufferList*, AudioStreamPacketDescription**), (override));
};

} // namespace

TEST(QMXAudioConverter, EqualRatesGiveWhatTheBufferRouteGives)
{
    const auto formats = allLayouts();
    const auto canonical = linearFormat(32, 2, floating | split);
    constexpr std::size_t frames = 3000, silent = 500;
    for (std::size_t i = 0; i < formats.size(); ++i)
        for (std::size_t j = i % 5; j < formats.size(); j += 5) {
            const auto &from = formats[i], &to = formats[j];
            SCOPED_TRACE(formatObject(from)->debugDescription() + formatObject(to)->debugDescription());
            const Bytes source = sound(from, frames), padded = sound(from, frames, silent);
            const Bytes pulled = viaChain(from, to, source, frames + silent, {1, 7, 512, 8192});
            ASSERT_EQ(viaBuffers(canonical, to, viaBuffers(from, canonical, padded)), pulled);
            // at most two channels and 24 bits pass the stereo floats in the middle without loss
            const bool isLossless =
                from.mChannelsPerFrame <= 2 && to.mChannelsPerFrame <= 2 && from.mBitsPerChannel <= 24;
            if (isLossless) {
                ASSERT_EQ(viaBuffers(from, to, padded), pulled);
            }
        }
}

TEST(QMXAudioConverter, OtherRatesMatchTheBufferRoute)
{
    constexpr std::pair<Float64, Float64> rates[] = {{44100, 48000}, {48000, 44100}, {96000, 44100}};
    for (const auto& [from, to] : rates) {
        SCOPED_TRACE(from);
        const auto source = linearFormat(24, 2, integer | bigEndian, from), target = linearFormat(32, 2, floating, to);
        const Bytes bytes = sound(source, 60000);
        const Bytes converted = viaBuffers(source, target, sound(source, 60000, 5000));
        const std::size_t frames = converted.size() / frameBytes(target);
        const auto loudFrames = static_cast<std::size_t>(60000 * to / from);
        const Bytes beforeTheEnd(&converted[0], &converted[(loudFrames - 300) * frameBytes(target)]);
        for (const auto& pieces : {std::vector<UInt32>{8192}, {1, 480, 333}}) {
            const Bytes pulled = viaChain(source, target, bytes, frames, pieces);
            EXPECT_LT(difference(beforeTheEnd, pulled), -100);
            EXPECT_LT(difference(converted, pulled), -55); // two filters ring differently at an abrupt end
        }
    }
}

TEST(QMXAudioConverter, TheDelegateSeesPacketsOfTheSourceFormat)
{
    auto packed = linearFormat(16, 2, integer);
    packed.mFramesPerPacket = 1024;
    packed.mBytesPerPacket = 4096;
    const auto delegate = std::make_shared<testing::StrictMock<Packets>>();
    const auto converter = QMXAudioConverter::initWithDelegate_sourceFormat_destinationFormat(
        delegate, formatObject(packed), Format::defaultStandardDeviceFormat());
    std::vector<Float32> samples(2 * 4096);
    BufferList list(linearFormat(32, 2, floating), reinterpret_cast<std::byte*>(samples.data()), 4096, 0, 4096);
    const UInt32 frames = 4096;
    EXPECT_CALL(*delegate, audioConverterCallback_data_packetDescription(testing::Pointee(4U), testing::_, nullptr));
    EXPECT_EQ(noErr, converter->fillComplexBuffer_buffer_packetDescription(&frames, list.list(), nullptr));
}

TEST(QMXAudioConverter, WhatTheDelegateDoesNotGiveIsSilence)
{
    const auto companded = linearFormat(8, 1, 0); // unsigned: silence is not zero
    const auto target = linearFormat(32, 1, floating);
    const auto delegate = std::make_shared<testing::NiceMock<Packets>>();
    const auto converter = QMXAudioConverter::initWithDelegate_sourceFormat_destinationFormat(
        delegate, formatObject(companded), formatObject(target));
    std::vector<Float32> samples(8);
    const UInt32 frames = 8;
    OSStatus result = noErr;
    const auto pull = [&] {
        std::ranges::fill(samples, 9.0F);
        BufferList list(samples, 1);
        EXPECT_EQ(result, converter->fillComplexBuffer_buffer_packetDescription(&frames, list.list(), nullptr));
        return samples;
    };
    constexpr UInt32 all = 8;
    UInt32 packetsGiven = all, bytesGiven = all;
    EXPECT_CALL(*delegate, audioConverterCallback_data_packetDescription)
        .WillRepeatedly([&](UInt32* packets, AudioBufferList* data, AudioStreamPacketDescription**) {
            std::memset(data->mBuffers[0].mData, 0xC0, all);
            data->mBuffers[0].mDataByteSize = bytesGiven;
            *packets = packetsGiven;
            return result;
        });
    for (const auto& [packets, bytes] : {std::pair{3U, all}, {all, 3U}, {3U, 3U}, {5U, 3U}, {3U, 5U}}) {
        packetsGiven = packets;
        bytesGiven = bytes;
        EXPECT_THAT(pull(), testing::ElementsAre(0.5F, 0.5F, 0.5F, 0, 0, 0, 0, 0)) << packets << ", " << bytes;
    }
    result = -1;
    EXPECT_THAT(pull(), testing::Each(0.0F));
}

TEST(QMXAudioConverter, OnlyAChainThatCouldNotBeBuiltPrintsLines)
{
    testing::internal::CaptureStderr();
    converterFromFileToDevice();
    EXPECT_EQ("", testing::internal::GetCapturedStderr());

    testing::internal::CaptureStderr();
    const auto compressed = Format::standardFormatWithId_sampleRate(kAudioFormatMPEG4AAC, 44100);
    const auto converter =
        QMXAudioConverter::initWithSourceFormat_destinationFormat(compressed, Format::defaultStandardFileFormat());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::MatchesRegex("Halcyra Error: -10868 ->  coreaudio_aac/src/QMXAudioConverter:  [0-9]+\n"));
    EXPECT_TRUE(!converter || converter->lastStatus() == kAudioUnitErr_FormatNotSupported); // none without the coding
}

TEST(QMXAudioConverter, TellsTheSizesThatItConverts)
{
    const auto converter = converterFromFileToDevice();
    EXPECT_EQ(16u, converter->calculateOutputBufferSize(8));
    EXPECT_EQ(8u, converter->calculateInputBufferSize(16));
    EXPECT_EQ("QMXAudioConverter:[ minimumInputBufferSize: 4; ]minimumOutputBufferSize: 8; ]",
              converter->description());
}

TEST(QMXAudioConverter, MissingBuffersAndFailuresAreLogged)
{
    const qmx::test::CapturedLog log;
    const auto converter = converterFromFileToDevice();
    Byte bytes[8] = {};
    UInt32 size = 1;
    EXPECT_EQ(noErr,
              converter->convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(nullptr, 4, nullptr, &size));
    EXPECT_EQ(converter->lastError(), "The converter could not convert: a wrong argument");
    EXPECT_EQ(kAudioConverterErr_InvalidOutputSize,
              converter->convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(bytes, 4, bytes, &size));
    EXPECT_EQ(converter->lastStatus(), kAudioConverterErr_InvalidOutputSize);
    converter->setSampleRateConverterQuality(128);
    EXPECT_NE(converter->lastStatus(), noErr);
    converter->setSampleRateConverterQuality(127);
    EXPECT_EQ(converter->lastStatus(), noErr);
    QMXAudioConverter::printOSStatusCode(qmx::statusCode("abcd"));
    EXPECT_THAT(log.lines(),
                testing::ElementsAre("*** WARNING *** QMXAudioConverter:convertBuffer  input is NULL",
                                     "*** WARNING *** QMXAudioConverter:convertBuffer  output buffer is NULL",
                                     "*** ERROR *** QMXAudioConverter:convertBuffer",
                                     "OS Status: kAudioConverterErr_InvalidOutputSize",
                                     "QMXAudioConverter: OS Status: abcd"));
}

TEST(QMXAudioConverter, AMagicCookieSetsTheLowestQualityAndDecodesNothing)
{
    const auto converter = converterFromFileToDevice();
    EXPECT_EQ(96u, converter->sampleRateConverterQuality());
    converter->setMagicCookie_length("cookie", 6);
    EXPECT_EQ(0u, converter->sampleRateConverterQuality());

    const auto compressed = Format::standardFormatWithId_sampleRate(kAudioFormatAMR, 44100);
    EXPECT_FALSE(
        QMXAudioConverter::initWithSourceFormat_destinationFormat(compressed, Format::defaultStandardFileFormat()));
}
