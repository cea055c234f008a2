// SPDX-License-Identifier: MIT
#include "support/AudioTypes.h"

#include "support/Failure.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>

namespace example
{
namespace
{

constexpr int usageError = 2;

struct TypeFacts {
    AudioFileTypeID type;
    std::string_view extension; ///< the first one of a type is used for new files
    AudioFormatID coding;
};

constexpr std::array types{
    TypeFacts{kAudioFileAIFFType, ".aif", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileAIFFType, ".aiff", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileAIFCType, ".aifc", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileWAVEType, ".wav", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileWAVEType, ".wave", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileRF64Type, ".rf64", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileCAFType, ".caf", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileSoundDesigner2Type, ".sd2", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileNextType, ".au", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileNextType, ".snd", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileM4AType, ".m4a", kAudioFormatMPEG4AAC},
    TypeFacts{kAudioFileMPEG4Type, ".mp4", kAudioFormatMPEG4AAC},
    TypeFacts{kAudioFileAAC_ADTSType, ".aac", kAudioFormatMPEG4AAC},
    TypeFacts{kAudioFileMP3Type, ".mp3", kAudioFormatMPEGLayer3},
    TypeFacts{kAudioFileFLACType, ".flac", kAudioFormatFLAC},
};

const TypeFacts& factsOf(AudioFileTypeID type)
{
    return *std::ranges::find(types, type, &TypeFacts::type);
}

std::string lowered(std::string text)
{
    for (char& letter : text)
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    return text;
}

/// The bits of the source's integer samples. If it is not compressed, whole bytes: bits below the significant ones are
/// kept. 0 for floats and lossy codings.
UInt32 integerBitsOf(const AudioStreamBasicDescription& source)
{
    constexpr std::array<UInt32, 5> losslessBits{0, 16, 20, 24, 32};
    if (source.mFormatID == kAudioFormatAppleLossless || source.mFormatID == kAudioFormatFLAC)
        return source.mFormatFlags < losslessBits.size() ? losslessBits[source.mFormatFlags] : 16;
    const bool isFloat = (source.mFormatFlags & kAudioFormatFlagIsFloat) != 0;
    return source.mFormatID == kAudioFormatLinearPCM && !isFloat ? (source.mBitsPerChannel + 7) / 8 * 8 : 0;
}

AudioFormatFlags losslessFlagOf(UInt32 bits)
{
    if (bits <= 16)
        return kAppleLosslessFormatFlag_16BitSourceData;
    return bits <= 20 ? kAppleLosslessFormatFlag_20BitSourceData : kAppleLosslessFormatFlag_24BitSourceData;
}

void makeLossless(AudioStreamBasicDescription& format, UInt32 bits)
{
    constexpr UInt32 mostBits = 24;
    if (bits > mostBits)
        throw Failure{"lossless codings keep at most 24 bits of a sample (--bits 24 rounds to them)"};
    format.mFormatFlags = losslessFlagOf(bits);
}

AudioFormatFlags linearFlags(AudioFileTypeID type, UInt32 bits, bool isFloat)
{
    const bool isLittle = type == kAudioFileWAVEType || type == kAudioFileRF64Type;
    AudioFormatFlags flags = kAudioFormatFlagIsPacked;
    if (isFloat)
        flags |= kAudioFormatFlagIsFloat;
    else if (!isLittle || bits > 8) // 8-bit samples are unsigned there
        flags |= kAudioFormatFlagIsSignedInteger;
    return isLittle ? flags : flags | kAudioFormatFlagIsBigEndian;
}

void makeLinear(AudioStreamBasicDescription& format, AudioFileTypeID& type, UInt32 bits, bool isFloat)
{
    if (isFloat && type == kAudioFileAIFFType)
        type = kAudioFileAIFCType;
    if (isFloat && type == kAudioFileSoundDesigner2Type)
        throw Failure{"files of this type hold no floats (--bits asks for integers)"};
    format.mBitsPerChannel = bits;
    format.mFormatFlags = linearFlags(type, bits, isFloat);
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = format.mBytesPerPacket = (bits + 7) / 8 * format.mChannelsPerFrame;
}

} // namespace

AudioFileTypeID typeFromCode(const std::string& code)
{
    std::string padded = code;
    padded.resize(4, ' ');
    for (const TypeFacts& facts : types)
        if (lowered(qmx::fourCharString(facts.type)) == lowered(padded))
            return facts.type;
    std::string known;
    for (const TypeFacts& facts : types)
        if (known.find(qmx::fourCharString(facts.type)) == std::string::npos)
            known.append(" ").append(qmx::fourCharString(facts.type));
    throw Failure{"unknown type " + code + "; there are" + known, usageError};
}

AudioFileTypeID typeFromExtension(const std::string& path)
{
    const auto* const found =
        std::ranges::find(types, lowered(std::filesystem::path(path).extension()), &TypeFacts::extension);
    if (found == types.end())
        throw Failure{path + ": its extension names no type", usageError};
    return found->type;
}

std::string extensionOf(AudioFileTypeID type)
{
    return std::string(factsOf(type).extension);
}

AudioStreamBasicDescription formatFor(AudioFileTypeID& type, const AudioStreamBasicDescription& source,
                                      const RequestedFormat& request)
{
    const UInt32 sourceBits = integerBitsOf(source);
    const bool sourceIsFloat =
        source.mFormatID == kAudioFormatLinearPCM && (source.mFormatFlags & kAudioFormatFlagIsFloat) != 0;
    const UInt32 bits = request.bits.value_or(sourceBits > 0 ? sourceBits : 16);
    AudioStreamBasicDescription format;
    format.mSampleRate = request.sampleRate.value_or(source.mSampleRate);
    format.mChannelsPerFrame = request.channels.value_or(source.mChannelsPerFrame);
    format.mFormatID = factsOf(type).coding;
    const bool isMPEG4 = type == kAudioFileM4AType || type == kAudioFileMPEG4Type;
    if (isMPEG4 && request.bits)
        format.mFormatID = kAudioFormatAppleLossless;
    if (format.mFormatID == kAudioFormatLinearPCM) {
        const bool isFloat =
            request.isFloat || (sourceIsFloat && !request.bits && type != kAudioFileSoundDesigner2Type);
        makeLinear(format, type, isFloat ? 32 : bits, isFloat);
    } else if (request.isFloat) {
        throw Failure{"files of this type hold no floats"};
    } else if (format.mFormatID == kAudioFormatAppleLossless || format.mFormatID == kAudioFormatFLAC) {
        makeLossless(format, sourceIsFloat ? request.bits.value_or(24) : bits);
    }
    return format;
}

} // namespace example
