// SPDX-License-Identifier: MIT
// Values of the properties of audio files and converters, typed.
#pragma once

#include "AudioToolbox/AudioConverter.h"
#include "AudioToolbox/AudioFile.h"

#include <new>
#include <vector>

namespace qmx
{

/// Callers can do without a value that a file or converter lacks, but not without one that it could not return for lack
/// of memory.
inline OSStatus unlessMemoryIsShort(OSStatus status)
{
    if (status == kAudio_MemFullError)
        throw std::bad_alloc();
    return status;
}

template <class Value> OSStatus fileValue(AudioFileID file, AudioFilePropertyID property, Value& value)
{
    UInt32 size = sizeof value;
    return unlessMemoryIsShort(AudioFileGetProperty(file, property, &size, &value));
}

template <class Value>
OSStatus converterValue(AudioConverterRef converter, AudioConverterPropertyID property, Value& value)
{
    UInt32 size = sizeof value;
    return unlessMemoryIsShort(AudioConverterGetProperty(converter, property, &size, &value));
}

/// Native interleaved 32-bit floats of the rate and channels of another format.
inline AudioStreamBasicDescription floatsLike(const AudioStreamBasicDescription& other)
{
    const UInt32 frameBytes = other.mChannelsPerFrame * UInt32{sizeof(Float32)};
    return {.mSampleRate = other.mSampleRate,
            .mFormatID = kAudioFormatLinearPCM,
            .mFormatFlags = kAudioFormatFlagsNativeFloatPacked,
            .mBytesPerPacket = frameBytes,
            .mFramesPerPacket = 1,
            .mBytesPerFrame = frameBytes,
            .mChannelsPerFrame = other.mChannelsPerFrame,
            .mBitsPerChannel = 32};
}

/// Reads packets into memory that holds them all. No packets with status 0 mean the end. If reading fails, the packets
/// before that come with status 0, and then none with the failure.
inline OSStatus readPackets(AudioFileID file, SInt64 first, UInt32& count, UInt32& bytes,
                            AudioStreamPacketDescription* descriptions, void* to)
{
    const OSStatus status = AudioFileReadPackets(file, false, &bytes, descriptions, first, &count, to);
    return status == eofErr || count > 0 ? noErr : status;
}

/// A value of any size; empty if the file lacks it.
inline std::vector<std::byte> fileBlock(AudioFileID file, AudioFilePropertyID property)
{
    UInt32 size = 0;
    if (unlessMemoryIsShort(AudioFileGetPropertyInfo(file, property, &size, nullptr)) != noErr)
        return {};
    std::vector<std::byte> block(size);
    if (unlessMemoryIsShort(AudioFileGetProperty(file, property, &size, block.data())) != noErr)
        size = 0;
    block.resize(size);
    return block;
}

inline std::vector<std::byte> converterBlock(AudioConverterRef converter, AudioConverterPropertyID property)
{
    UInt32 size = 0;
    if (unlessMemoryIsShort(AudioConverterGetPropertyInfo(converter, property, &size, nullptr)) != noErr)
        return {};
    std::vector<std::byte> block(size);
    if (unlessMemoryIsShort(AudioConverterGetProperty(converter, property, &size, block.data())) != noErr)
        size = 0;
    block.resize(size);
    return block;
}

} // namespace qmx
