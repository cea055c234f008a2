// SPDX-License-Identifier: MIT
// Whole files through an encoder and back, by the calls and in the order that the services' headers describe.
#pragma once

#include "AudioToolbox/AudioConverter.h"
#include "platform/AudioToolbox/AudioFileHelpers.h"

#include <cmath>
#include <optional>

namespace qmx::test
{

inline AudioStreamBasicDescription coded(AudioFormatID coding, UInt32 channels, Float64 rate = 44100,
                                         AudioFormatFlags flags = 0)
{
    return {rate, coding, flags, 0, 0, 0, channels, 0, 0};
}

template <class Value> Value converterProperty(AudioConverterRef converter, AudioConverterPropertyID id)
{
    Value value{};
    UInt32 size = sizeof value;
    EXPECT_EQ(AudioConverterGetProperty(converter, id, &size, &value), noErr);
    return value;
}

/// Hands the cookie and the encoder's frames of priming and remainder to the file.
inline void passOn(AudioConverterRef converter, AudioFileID file)
{
    UInt32 size = 0;
    if (AudioConverterGetPropertyInfo(converter, kAudioConverterCompressionMagicCookie, &size, nullptr) == noErr) {
        ByteBlock cookie(size);
        EXPECT_EQ(AudioConverterGetProperty(converter, kAudioConverterCompressionMagicCookie, &size, cookie.data()),
                  noErr);
        EXPECT_EQ(AudioFileSetProperty(file, kAudioFilePropertyMagicCookieData, size, cookie.data()), noErr);
    }
    const auto prime = converterProperty<AudioConverterPrimeInfo>(converter, kAudioConverterPrimeInfo);
    const AudioFilePacketTableInfo info{0, static_cast<SInt32>(prime.leadingFrames),
                                        static_cast<SInt32>(prime.trailingFrames)};
    EXPECT_EQ(AudioFileSetProperty(file, kAudioFilePropertyPacketTableInfo, sizeof info, &info), noErr);
}

struct LinearSource {
    const ByteBlock& data;
    UInt32 frameBytes;
    UInt32 piece; ///< frames at a time at most
    std::size_t given = 0;

    static OSStatus give(AudioConverterRef, UInt32* packets, AudioBufferList* list, AudioStreamPacketDescription**,
                         void* self)
    {
        auto& source = *static_cast<LinearSource*>(self);
        const std::size_t left = (source.data.size() - source.given) / source.frameBytes;
        *packets = static_cast<UInt32>(std::min<std::size_t>({*packets, left, source.piece}));
        list->mBuffers[0].mData = const_cast<std::uint8_t*>(source.data.data()) + source.given;
        list->mBuffers[0].mDataByteSize = *packets * source.frameBytes;
        source.given += list->mBuffers[0].mDataByteSize;
        return noErr;
    }
};

/// Encodes `pcm` into a new file; false where the formats are refused.
inline bool encodeFile(const std::string& path, AudioFileTypeID type, const AudioStreamBasicDescription& target,
                       const AudioStreamBasicDescription& pcmFormat, const ByteBlock& pcm, UInt32 bitRate = 0)
{
    AudioConverterRef converter = nullptr;
    if (AudioConverterNew(&pcmFormat, &target, &converter) != noErr)
        return false;
    if (bitRate > 0) {
        EXPECT_EQ(AudioConverterSetProperty(converter, kAudioConverterEncodeBitRate, sizeof bitRate, &bitRate), noErr);
    }
    const Opened made(createFile(
        path, type,
        converterProperty<AudioStreamBasicDescription>(converter, kAudioConverterCurrentOutputStreamDescription)));
    EXPECT_EQ(made.status, noErr);
    if (made.status == noErr) {
        passOn(converter, made.file);
        const auto largest = converterProperty<UInt32>(converter, kAudioConverterPropertyMaximumOutputPacketSize);
        LinearSource source{pcm, pcmFormat.mBytesPerFrame, 777};
        std::vector<AudioStreamPacketDescription> descriptions(5);
        ByteBlock buffer(2 * largest);
        SInt64 at = 0;
        for (UInt32 count = 1; count > 0; at += count) {
            count = 5;
            AudioBufferList list{1, {{1, static_cast<UInt32>(buffer.size()), buffer.data()}}};
            EXPECT_EQ(AudioConverterFillComplexBuffer(converter, LinearSource::give, &source, &count, &list,
                                                      descriptions.data()),
                      noErr);
            UInt32 written = count;
            EXPECT_EQ(AudioFileWritePackets(made.file, false, list.mBuffers[0].mDataByteSize, descriptions.data(), at,
                                            &written, buffer.data()),
                      noErr);
        }
        passOn(converter, made.file);
    }
    EXPECT_EQ(AudioConverterDispose(converter), noErr);
    return made.status == noErr;
}

/// Reads frames of a compressed file, from any valid one on.
class FrameReader
{
public:
    FrameReader(const std::string& path, const AudioStreamBasicDescription& client)
        : file_(openFile(path).file), client_(client), format_(formatOf(file_)),
          info_(property<AudioFilePacketTableInfo>(file_, kAudioFilePropertyPacketTableInfo)),
          buffer_(property<UInt32>(file_, kAudioFilePropertyMaximumPacketSize))
    {
        EXPECT_EQ(AudioConverterNew(&format_, &client_, &converter_), noErr);
        UInt32 size = 0;
        if (AudioFileGetPropertyInfo(file_, kAudioFilePropertyMagicCookieData, &size, nullptr) == noErr) {
            ByteBlock cookie(size);
            EXPECT_EQ(AudioFileGetProperty(file_, kAudioFilePropertyMagicCookieData, &size, cookie.data()), noErr);
            EXPECT_EQ(
                AudioConverterSetProperty(converter_, kAudioConverterDecompressionMagicCookie, size, cookie.data()),
                noErr);
        }
    }
    ~FrameReader()
    {
        EXPECT_EQ(AudioConverterDispose(converter_), noErr);
        EXPECT_EQ(AudioFileClose(file_), noErr);
    }

    const AudioFilePacketTableInfo& info() const { return info_; }
    const AudioStreamBasicDescription& format() const { return format_; }

    /// All frames from the valid frame `start` on, in the client's format.
    ByteBlock from(SInt64 start)
    {
        const SInt64 target = info_.mPrimingFrames + start;
        AudioFramePacketTranslation place{target, 0, 0};
        UInt32 size = sizeof place;
        EXPECT_EQ(AudioFileGetProperty(file_, kAudioFilePropertyFrameToPacket, &size, &place), noErr);
        AudioPacketRollDistanceTranslation roll{place.mPacket, 0};
        size = sizeof roll;
        EXPECT_EQ(AudioFileGetProperty(file_, kAudioFilePropertyPacketToRollDistance, &size, &roll), noErr);
        next_ = place.mPacket - roll.mRollDistance;
        AudioFramePacketTranslation first{0, next_, 0};
        size = sizeof first;
        EXPECT_EQ(AudioFileGetProperty(file_, kAudioFilePropertyPacketToFrame, &size, &first), noErr);
        const AudioConverterPrimeInfo prime{static_cast<UInt32>(target - first.mFrame),
                                            static_cast<UInt32>(info_.mRemainderFrames)};
        EXPECT_EQ(AudioConverterSetProperty(converter_, kAudioConverterPrimeInfo, sizeof prime, &prime), noErr);
        EXPECT_EQ(AudioConverterReset(converter_), noErr);
        ByteBlock all, block(999 * client_.mBytesPerFrame);
        for (UInt32 count = 1; count > 0;) {
            count = 999;
            AudioBufferList list{1, {{client_.mChannelsPerFrame, static_cast<UInt32>(block.size()), block.data()}}};
            EXPECT_EQ(AudioConverterFillComplexBuffer(converter_, give, this, &count, &list, nullptr), noErr);
            all.insert(all.end(), block.begin(), block.begin() + list.mBuffers[0].mDataByteSize);
        }
        return all;
    }

private:
    static OSStatus give(AudioConverterRef, UInt32* packets, AudioBufferList* list,
                         AudioStreamPacketDescription** descriptions, void* self)
    {
        auto& reader = *static_cast<FrameReader*>(self);
        reader.buffer_.resize(std::size_t{*packets} *
                              property<UInt32>(reader.file_, kAudioFilePropertyMaximumPacketSize));
        reader.descriptions_.resize(*packets);
        UInt32 bytes = 0;
        const OSStatus status = AudioFileReadPackets(reader.file_, false, &bytes, reader.descriptions_.data(),
                                                     reader.next_, packets, reader.buffer_.data());
        reader.next_ += *packets;
        list->mBuffers[0].mData = reader.buffer_.data();
        list->mBuffers[0].mDataByteSize = bytes;
        *descriptions = reader.descriptions_.data();
        return status == kAudioFileEndOfFileError ? noErr : status;
    }

    AudioFileID file_;
    AudioStreamBasicDescription client_, format_;
    AudioFilePacketTableInfo info_;
    AudioConverterRef converter_ = nullptr;
    ByteBlock buffer_;
    std::vector<AudioStreamPacketDescription> descriptions_;
    SInt64 next_ = 0;
};

/// `frames` frames of two tones, as samples of 16 or 24 bits.
inline ByteBlock tones(std::size_t frames, UInt32 channels, UInt32 bits = 16)
{
    ByteBlock data;
    for (std::size_t i = 0; i < frames; ++i)
        for (UInt32 channel = 0; channel < channels; ++channel) {
            const double time = static_cast<double>(i);
            const double value = 0.4 * std::sin(time * 0.05 * (channel + 1)) + 0.2 * std::sin(time * 0.31);
            const auto sample = static_cast<SInt32>(std::lround(value * (bits == 16 ? 32767 : 8388607)));
            for (UInt32 byte = 0; byte < bits / 8; ++byte)
                data.push_back(static_cast<std::uint8_t>(sample >> 8 * byte));
        }
    return data;
}

} // namespace qmx::test
