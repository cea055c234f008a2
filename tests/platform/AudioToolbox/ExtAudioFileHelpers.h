// SPDX-License-Identifier: MIT
// Short forms of the calls that tests of extended audio files make.
#pragma once

#include "AudioFileHelpers.h"
#include "AudioToolbox/ExtAudioFile.h"

#include <array>
#include <cmath>
#include <numbers>
#include <span>
#include <utility>

namespace qmx::test
{

/// An interleaved signal in which neither frames nor channels look alike: two tones and a slow drift, below full scale.
inline std::vector<float> music(std::size_t frames, UInt32 channels, Float64 rate = 44100)
{
    std::vector<float> samples;
    samples.reserve(frames * channels);
    for (std::size_t i = 0; i < frames; ++i)
        for (UInt32 channel = 0; channel < channels; ++channel) {
            const Float64 time = 2 * std::numbers::pi * static_cast<Float64>(i) / rate;
            samples.push_back(static_cast<float>(0.4 * std::sin(time * (997 + 100 * channel)) +
                                                 0.3 * std::sin(time * 7919 + channel) + 0.1 * std::sin(time * 0.7)));
        }
    return samples;
}

inline AudioStreamBasicDescription floats(UInt32 channels, Float64 rate = 44100)
{
    return linear(kAudioFormatFlagsNativeFloatPacked, 32, channels, rate);
}

inline const AudioStreamBasicDescription bigSixteen = linear(14, 16, 2);

inline AudioBufferList listOf(const void* data, std::size_t bytes, UInt32 channels)
{
    AudioBufferList list;
    list.mNumberBuffers = 1;
    list.mBuffers[0] = {channels, static_cast<UInt32>(bytes), const_cast<void*>(data)};
    return list;
}

inline AudioBufferList listOf(std::span<const float> samples, UInt32 channels)
{
    return listOf(samples.data(), samples.size_bytes(), channels);
}

inline OSStatus writeFloats(ExtAudioFileRef file, std::span<const float> samples, UInt32 channels)
{
    const auto list = listOf(samples, channels);
    return ExtAudioFileWrite(file, static_cast<UInt32>(samples.size() / channels), &list);
}

inline ExtAudioFileRef openExtended(const std::string& path)
{
    ExtAudioFileRef file = nullptr;
    const FSRef reference{path};
    EXPECT_EQ(ExtAudioFileOpen(&reference, &file), noErr);
    return file;
}

inline ExtAudioFileRef createExtended(const std::string& path, AudioFileTypeID type,
                                      const AudioStreamBasicDescription& format)
{
    const std::filesystem::path whole(path);
    const FSRef parent{whole.parent_path().string()};
    const CFStringRef name = CFStringCreate(whole.filename().string());
    ExtAudioFileRef file = nullptr;
    EXPECT_EQ(ExtAudioFileCreateNew(&parent, name, type, &format, nullptr, &file), noErr);
    CFRelease(name);
    return file;
}

/// An open file that closes itself, without an error.
class ExtendedFile
{
public:
    explicit ExtendedFile(const std::string& path) : file_(openExtended(path)) {}
    ExtendedFile(const std::string& path, AudioFileTypeID type, const AudioStreamBasicDescription& format)
        : file_(createExtended(path, type, format))
    {
    }
    ~ExtendedFile() { EXPECT_TRUE(!file_ || close() == noErr); }
    ExtendedFile(const ExtendedFile&) = delete;
    ExtendedFile& operator=(const ExtendedFile&) = delete;

    operator ExtAudioFileRef() const { return file_; }
    OSStatus close() { return ExtAudioFileDispose(std::exchange(file_, nullptr)); }

private:
    ExtAudioFileRef file_;
};

inline void setClient(ExtAudioFileRef file, const AudioStreamBasicDescription& format)
{
    EXPECT_EQ(ExtAudioFileSetProperty(file, kExtAudioFileProperty_ClientDataFormat, sizeof format, &format), noErr);
}

template <class Value> Value extendedValue(ExtAudioFileRef file, ExtAudioFilePropertyID property)
{
    Value value{};
    UInt32 size = sizeof value;
    EXPECT_EQ(ExtAudioFileGetProperty(file, property, &size, &value), noErr);
    return value;
}

inline SInt64 lengthOf(ExtAudioFileRef file)
{
    return extendedValue<SInt64>(file, kExtAudioFileProperty_FileLengthFrames);
}

inline SInt64 positionOf(ExtAudioFileRef file)
{
    SInt64 frame = -1;
    EXPECT_EQ(ExtAudioFileTell(file, &frame), noErr);
    return frame;
}

/// Reads up to `frames` frames of interleaved floats, in calls of `atOnce`.
inline std::vector<float> readFloats(ExtAudioFileRef file, UInt32 channels, std::size_t frames, UInt32 atOnce = 4096)
{
    std::vector<float> samples(frames * channels);
    std::size_t done = 0;
    while (done < frames) {
        const auto wanted = static_cast<UInt32>(std::min<std::size_t>(atOnce, frames - done));
        UInt32 count = wanted;
        auto list = listOf(std::span<const float>(samples).subspan(done * channels, wanted * channels), channels);
        EXPECT_EQ(ExtAudioFileRead(file, &count, &list), noErr);
        EXPECT_EQ(list.mBuffers[0].mDataByteSize, count * channels * sizeof(float));
        done += count;
        if (count < wanted)
            break;
    }
    samples.resize(done * channels);
    return samples;
}

/// Prepares reads on real-time threads.
inline void prime(ExtAudioFileRef file)
{
    UInt32 none = 0;
    EXPECT_EQ(ExtAudioFileRead(file, &none, nullptr), noErr);
}

/// Up to `frames` frames of the file at `path`, as interleaved floats.
inline std::vector<float> floatsAt(const std::string& path, UInt32 channels, std::size_t frames)
{
    const ExtendedFile file(path);
    setClient(file, floats(channels));
    return readFloats(file, channels, frames);
}

/// The largest difference between two signals of the same length.
inline double largestDifference(std::span<const float> one, std::span<const float> other)
{
    EXPECT_EQ(one.size(), other.size());
    double largest = 0;
    for (std::size_t i = 0; i < std::min(one.size(), other.size()); ++i)
        largest = std::max(largest, std::abs(static_cast<double>(one[i]) - other[i]));
    return largest;
}

/// Writes a file of interleaved floats in one go.
inline void writeMusic(const std::string& path, AudioFileTypeID type, const AudioStreamBasicDescription& format,
                       std::span<const float> samples)
{
    const ExtendedFile file(path, type, format);
    setClient(file, floats(format.mChannelsPerFrame, format.mSampleRate));
    EXPECT_EQ(writeFloats(file, samples, format.mChannelsPerFrame), noErr);
}

/// What files of packets, and of samples, are made of.
inline const AudioStreamBasicDescription losslessStereo{44100, kAudioFormatAppleLossless, 0, 0, 0, 0, 2, 0, 0};
inline const std::array bothKinds{std::pair{kAudioFileAIFCType, linear(11, 32, 2)},
                                  std::pair{kAudioFileM4AType, losslessStereo}};

} // namespace qmx::test
