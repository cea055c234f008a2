// SPDX-License-Identifier: MIT
#include "Front/Format.h"

#include "CoreAudioTypes/FourCharCode.h"
#include "Foundation/Text/Format.h"
#include "Front/FrameFiles.h"
#include "Front/StatusText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace qmx
{
namespace
{

struct TypeFacts {
    AudioFileTypeID type;
    std::string_view name;
    std::string_view extension; ///< the first one of a type is the usual one
    AudioFormatID coding;
};

constexpr std::array types{
    TypeFacts{kAudioFileAIFFType, "AIFF", ".aif", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileAIFFType, "AIFF", ".aiff", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileAIFCType, "AIFF-C", ".aifc", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileWAVEType, "WAVE", ".wav", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileWAVEType, "WAVE", ".wave", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileRF64Type, "RF64", ".rf64", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileCAFType, "CAF", ".caf", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileSoundDesigner2Type, "Sound Designer II", ".sd2", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileNextType, "NeXT/Sun", ".au", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileNextType, "NeXT/Sun", ".snd", kAudioFormatLinearPCM},
    TypeFacts{kAudioFileM4AType, "MPEG-4 audio", ".m4a", kAudioFormatMPEG4AAC},
    TypeFacts{kAudioFileMPEG4Type, "MPEG-4", ".mp4", kAudioFormatMPEG4AAC},
    TypeFacts{kAudioFileAAC_ADTSType, "ADTS", ".aac", kAudioFormatMPEG4AAC},
    TypeFacts{kAudioFileMP3Type, "MP3", ".mp3", kAudioFormatMPEGLayer3},
    TypeFacts{kAudioFileFLACType, "FLAC", ".flac", kAudioFormatFLAC},
};

const TypeFacts* factsOf(AudioFileTypeID type)
{
    const auto* const found = std::ranges::find(types, type, &TypeFacts::type);
    return found == types.end() ? nullptr : found;
}

Format wishFor(AudioFileTypeID type, AudioFormatID coding, Float64 sampleRate, UInt32 bits, UInt32 bitRate)
{
    Format format{.fileType = type, .bitRate = bitRate};
    format.stream.mFormatID = coding;
    format.stream.mSampleRate = sampleRate;
    format.stream.mBitsPerChannel = bits;
    return format;
}

Format linear(AudioFileTypeID type, Float64 sampleRate, UInt32 bits)
{
    return wishFor(type, kAudioFormatLinearPCM, sampleRate, bits, 0);
}

bool isLittleEndian(AudioFileTypeID type)
{
    return type == kAudioFileWAVEType || type == kAudioFileRF64Type;
}

AudioFormatFlags linearFlags(AudioFileTypeID type, UInt32 bits, bool isFloat)
{
    AudioFormatFlags flags = kAudioFormatFlagIsPacked;
    if (isFloat)
        flags |= kAudioFormatFlagIsFloat;
    else if (!isLittleEndian(type) || bits > 8) // 8-bit samples are unsigned there
        flags |= kAudioFormatFlagIsSignedInteger;
    return isLittleEndian(type) ? flags : flags | kAudioFormatFlagIsBigEndian;
}

Result<Format> completedLinear(Format format, const Format& source)
{
    AudioStreamBasicDescription& stream = format.stream;
    if (stream.mBytesPerFrame != 0)
        return format;
    const bool isFloat = format.isFloat() || (source.isFloat() && stream.mBitsPerChannel == 0);
    if (isFloat && format.fileType == kAudioFileSoundDesigner2Type)
        return Error(kAudioFileUnsupportedDataFormatError, "Sound Designer files hold no floats");
    if (isFloat && format.fileType == kAudioFileAIFFType)
        format.fileType = kAudioFileAIFCType;
    if (isFloat)
        stream.mBitsPerChannel = source.isFloat() && stream.mBitsPerChannel == 0 ? source.stream.mBitsPerChannel : 32;
    else if (stream.mBitsPerChannel == 0)
        stream.mBitsPerChannel = source.integerBits() > 0 ? source.integerBits() : 16;
    stream.mFormatFlags = linearFlags(format.fileType, stream.mBitsPerChannel, isFloat);
    stream.mFramesPerPacket = 1;
    stream.mBytesPerFrame = stream.mBytesPerPacket = (stream.mBitsPerChannel + 7) / 8 * stream.mChannelsPerFrame;
    return format;
}

Result<Format> completedLossless(Format format, const Format& source)
{
    constexpr UInt32 mostBits = 24;
    AudioStreamBasicDescription& stream = format.stream;
    UInt32 bits = stream.mBitsPerChannel;
    if (bits == 0 && stream.mFormatFlags != 0)
        return format;
    if (bits == 0)
        bits = source.isFloat() ? mostBits : source.integerBits();
    if (bits > mostBits)
        return Error(kAudioFileUnsupportedDataFormatError,
                     codingName(stream.mFormatID) + " keeps at most 24 bits of a sample");
    stream.mBitsPerChannel = 0;
    stream.mFormatFlags = bits <= 16   ? kAppleLosslessFormatFlag_16BitSourceData
                          : bits <= 20 ? kAppleLosslessFormatFlag_20BitSourceData
                                       : kAppleLosslessFormatFlag_24BitSourceData;
    return format;
}

Result<Format> completed(Format format, const Format& source)
{
    AudioStreamBasicDescription& stream = format.stream;
    if (stream.mSampleRate == 0)
        stream.mSampleRate = source.stream.mSampleRate;
    if (stream.mChannelsPerFrame == 0)
        stream.mChannelsPerFrame = source.stream.mChannelsPerFrame;
    if (stream.mSampleRate <= 0 || stream.mChannelsPerFrame == 0)
        return Error(paramErr, "A format needs a sample rate and a number of channels");
    const TypeFacts* const facts = factsOf(format.fileType);
    if (stream.mFormatID == 0 && facts)
        stream.mFormatID = facts->coding;
    if (format.isLinear())
        return completedLinear(format, source);
    return format.isLossless() ? completedLossless(format, source) : format;
}

std::string samplesText(const Format& format, std::string_view typeName)
{
    const AudioStreamBasicDescription& stream = format.stream;
    const UInt32 bits = stream.mBitsPerChannel != 0 ? stream.mBitsPerChannel : format.integerBits();
    std::string text = bits == 0 ? "" : std::to_string(bits) + "-bit";
    std::string coding = format.isLinear() ? "linear PCM" : codingName(stream.mFormatID);
    if (format.isFloat())
        coding = "float " + coding;
    if (coding == typeName)
        return text;
    return text.empty() ? coding : text + " " + coding;
}

std::string rateText(Float64 rate)
{
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), rate, std::chars_format::fixed);
    return end.ec == std::errc() ? std::string(digits.data(), end.ptr) + " Hz" : std::string();
}

std::string lowercase(std::string text)
{
    for (char& letter : text)
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    return text;
}

std::string lowercaseExtension(const std::string& path)
{
    const std::size_t dot = path.find_last_of("./");
    return dot == std::string::npos || path[dot] == '/' ? std::string() : lowercase(path.substr(dot));
}

Result<Format> wishForCode(const std::string& code)
{
    std::string known;
    for (const TypeFacts& facts : types) {
        const std::string own = fourCharString(facts.type);
        if (lowercase(own) == lowercase(code))
            return wishFor(facts.type, facts.coding, 0, 0, 0);
        if (factsOf(facts.type) == &facts)
            known += " " + own;
    }
    return Error(paramErr, "Unknown type " + code + "; there are" + known);
}

} // namespace

Format Format::wave(Float64 sampleRate, UInt32 bits)
{
    return linear(kAudioFileWAVEType, sampleRate, bits);
}

Format Format::rf64(Float64 sampleRate, UInt32 bits)
{
    return linear(kAudioFileRF64Type, sampleRate, bits);
}

Format Format::aiff(Float64 sampleRate, UInt32 bits)
{
    return linear(kAudioFileAIFFType, sampleRate, bits);
}

Format Format::caf(Float64 sampleRate, UInt32 bits)
{
    return linear(kAudioFileCAFType, sampleRate, bits);
}

Format Format::aac(UInt32 bitRate)
{
    return wishFor(kAudioFileM4AType, kAudioFormatMPEG4AAC, 0, 0, bitRate);
}

Format Format::adts(UInt32 bitRate)
{
    return wishFor(kAudioFileAAC_ADTSType, kAudioFormatMPEG4AAC, 0, 0, bitRate);
}

Format Format::mp3(UInt32 bitRate)
{
    return wishFor(kAudioFileMP3Type, kAudioFormatMPEGLayer3, 0, 0, bitRate);
}

Format Format::alac(UInt32 bits)
{
    return wishFor(kAudioFileM4AType, kAudioFormatAppleLossless, 0, bits, 0);
}

Format Format::flac(UInt32 bits)
{
    return wishFor(kAudioFileFLACType, kAudioFormatFLAC, 0, bits, 0);
}

Format Format::withSampleRate(Float64 sampleRate) const
{
    Format format = *this;
    format.stream.mSampleRate = sampleRate;
    return format;
}

Format Format::withChannels(UInt32 channels) const
{
    Format format = *this;
    format.stream.mChannelsPerFrame = channels;
    return format;
}

Format Format::withFloats() const
{
    Format format = *this;
    format.stream.mBitsPerChannel = 32;
    format.stream.mFormatFlags |= kAudioFormatFlagIsFloat;
    return format;
}

Result<Format> Format::forPath(const std::string& path)
{
    return orNoMemory([&]() -> Result<Format> {
        const auto* const found = std::ranges::find(types, lowercaseExtension(path), &TypeFacts::extension);
        if (found == types.end())
            return Error(kAudioFileUnsupportedFileTypeError, path + ": Its extension names no type of audio file",
                         path);
        return wishFor(found->type, found->coding, 0, 0, 0);
    });
}

Result<Format> Format::forTypeCode(const std::string& code)
{
    return orNoMemory([&] { return wishForCode(code); });
}

Result<Format> Format::of(const std::string& path)
{
    return orNoMemory([&]() -> Result<Format> {
        const auto file = openFile(path);
        return file ? Result<Format>(formatOf(**file)) : file.error();
    });
}

Result<Format> Format::completedFrom(const Format& source) const
{
    return orNoMemory([&] { return completed(*this, source); });
}

bool Format::isFloat() const
{
    return isLinear() && (stream.mFormatFlags & kAudioFormatFlagIsFloat) != 0;
}

bool Format::isLossless() const
{
    return isLinear() || stream.mFormatID == kAudioFormatAppleLossless || stream.mFormatID == kAudioFormatFLAC;
}

bool Format::keepsTracks() const
{
    return fileType == kAudioFileAIFFType || fileType == kAudioFileAIFCType;
}

UInt32 Format::integerBits() const
{
    if (isFloat() || !isLossless())
        return 0;
    if (isLinear()) // bits below the significant ones are kept, too
        return (stream.mBitsPerChannel + 7) / 8 * 8;
    constexpr std::array<UInt32, 5> bitsByFlags{0, 16, 20, 24, 32};
    return stream.mFormatFlags < bitsByFlags.size() ? bitsByFlags[stream.mFormatFlags] : 0;
}

std::string Format::text() const
{
    const TypeFacts* const facts = factsOf(fileType);
    std::string text = facts ? std::string(facts->name) : qmx::format("'%@'", fourCharString(fileType));
    const auto add = [&](const std::string& part) {
        if (!part.empty())
            text += ", " + part;
    };
    if (stream.mFormatID != 0)
        add(samplesText(*this, text));
    if (stream.mChannelsPerFrame != 0)
        add(std::to_string(stream.mChannelsPerFrame) + (stream.mChannelsPerFrame == 1 ? " channel" : " channels"));
    if (stream.mSampleRate > 0)
        add(rateText(stream.mSampleRate));
    return text;
}

std::string Format::extension() const
{
    const TypeFacts* const facts = factsOf(fileType);
    return facts ? std::string(facts->extension) : std::string();
}

} // namespace qmx
