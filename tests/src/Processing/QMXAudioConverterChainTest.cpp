// SPDX-License-Identifier: MIT
#include "Processing/QMXAudioConverter.h"

#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/RealTime.h"
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

using Bytes = std::vector<std::byte>;

constexpr AudioFormatFlags floating = kAudioFormatFlagIsFloat, integer = kAudioFormatFlagIsSignedInteger,
                           bigEndian = kAudioFormatFlagIsBigEndian, split = kAudioFormatFlagIsNonInterleaved;

std::size_t frameBytes(const AudioStreamBasicDescription& format)
{
    return std::size_t{format.mChannelsPerFrame} * format.mBitsPerChannel / 8;
}

/// Supplies source data front to back, then nothing more.
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

/// Sines that start softly and end loud, 24-bit exact in every layout, and silence after them.
Bytes sound(const AudioStreamBasicDescription& format, std::size_t frames, std::size_t silentFrames = 0)
{
    const auto plain = linearFormat(32, 1, floating, format.mSampleRate);
    Bytes bytes((frames + silentFrames) * sizeof(Float32));
    for (std::size_t i = 0; i < frames; ++i) {
        const Float64 time = static_cast<Float64>(i) / format.mSampleRate;
        const Float64 place = static_cast<Float64>(i) / static_cast<Float64>(frames);
        Float64 value = 0;
        for (const Float64 frequency : {110.0, 997.0, 5000.0, 12000.0})
            value += 0.2 * std::sin(2 * std::numbers::pi * frequency * time);
        const auto sample = static_cast<Float32>(value * std::min(1.0, 10 * place));
        std::memcpy(bytes.data() + i * sizeof sample, &sample, sizeof sample);
    }
    return viaBuffers(plain, format, bytes);
}

/// The maximum difference of two runs of floats, over their common length, in dB of full scale.
Float64 difference(const Bytes& one, const Bytes& other)
{
    Float64 most = 0;
    for (std::size_t at = 0; at + sizeof(Float32) <= std::min(one.size(), other.size()); at += sizeof(Float32)) {
        Float32 a = 0, b = 0;
        std::memcpy(&a, one.data() + at, sizeof a);
        std::memcpy(&b, other.data() + at, sizeof b);
        most = std::max(most, std::abs(Float64{a} - b));
    }
    return 20 * std::log10(most);
}

class Packets : public QMXAudioConverterDelegate
{
public:
    MOCK_METHOD(OSStatus, audioConverterCallback_data_packetDescription,
                (UInt32*, AudioBufferList*, AudioStreamPacketDescription**), (override));
};

} // namespace

TEST(QMXAudioConverterChain, EqualRatesGiveWhatTheBufferRouteGives)
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

TEST(QMXAudioConverterChain, OtherRatesMatchTheBufferRoute)
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

TEST(QMXAudioConverterChain, TheDelegateSeesPacketsOfTheSourceFormat)
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

TEST(QMXAudioConverterChain, WhatTheDelegateDoesNotGiveIsSilence)
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

TEST(QMXAudioConverterChain, OnlyAChainThatCouldNotBeBuiltPrintsLines)
{
    testing::internal::CaptureStderr();
    QMXAudioConverter::initWithSourceFormat_destinationFormat(Format::defaultStandardFileFormat(),
                                                              Format::defaultStandardDeviceFormat());
    EXPECT_EQ("", testing::internal::GetCapturedStderr());

    testing::internal::CaptureStderr();
    const auto compressed = Format::standardFormatWithId_sampleRate(kAudioFormatMPEG4AAC, 44100);
    const auto converter =
        QMXAudioConverter::initWithSourceFormat_destinationFormat(compressed, Format::defaultStandardFileFormat());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::MatchesRegex("Halcyra Error: -10868 ->  coreaudio_aac/src/QMXAudioConverter:  [0-9]+\n"));
    EXPECT_TRUE(!converter || converter->lastStatus() == kAudioUnitErr_FormatNotSupported); // none without the coding
}
