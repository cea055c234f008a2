// SPDX-License-Identifier: MIT
#include "AudioToolbox/Codings/CodingFacts.h"

#include <algorithm>
#include <iterator>

namespace qmx
{
namespace
{

constexpr UInt32 aacRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};
constexpr UInt32 aacChannels[] = {0, 1, 2, 3, 4, 5, 6, 8};
constexpr UInt32 spectralReplication = 5, parametricStereo = 29;

constexpr std::size_t alacConfigBytes = 24;
constexpr std::size_t flacInfoBytes = 34;

// descriptors of MPEG-4 systems
constexpr UInt8 streamTag = 3, decoderTag = 4, configTag = 5, syncTag = 6;

/// Bits from the most significant down; 0 past the end.
class BitReader
{
public:
    explicit BitReader(std::span<const UInt8> bytes) : bytes_(bytes) {}

    UInt32 take(int bits)
    {
        UInt32 value = 0;
        for (; bits > 0; --bits, ++at_)
            value = value << 1 | (at_ / 8 < bytes_.size() ? bytes_[at_ / 8] >> (7 - at_ % 8) & 1U : 0U);
        return value;
    }

private:
    std::span<const UInt8> bytes_;
    std::size_t at_ = 0;
};

UInt32 takeObjectType(BitReader& bits)
{
    const UInt32 type = bits.take(5);
    return type == 31 ? 32 + bits.take(6) : type;
}

UInt32 takeRate(BitReader& bits)
{
    const UInt32 index = bits.take(4);
    if (index == 15)
        return bits.take(24);
    return index < std::size(aacRates) ? aacRates[index] : 0;
}

/// One descriptor: its tag and contents; `bytes` moves past it. Empty at the end and for one that is longer than what
/// encloses it.
struct Descriptor {
    UInt8 tag;
    std::span<const UInt8> contents;
};

std::optional<Descriptor> takeDescriptor(std::span<const UInt8>& bytes)
{
    if (bytes.size() < 2)
        return std::nullopt;
    const UInt8 tag = bytes[0];
    std::size_t length = 0, at = 1;
    for (bool more = true; more && at < bytes.size() && at <= 4; ++at) {
        more = (bytes[at] & 0x80) != 0;
        length = length << 7 | (bytes[at] & 0x7FU);
    }
    if (length > bytes.size() - at)
        return std::nullopt;
    const auto contents = bytes.subspan(at, length);
    bytes = bytes.subspan(at + length);
    return Descriptor{tag, contents};
}

Bytes descriptor(UInt8 tag, std::span<const UInt8> contents)
{
    const std::size_t size = contents.size();
    ByteWriter writer(ByteOrder::big);
    writer.integer(tag, 1, ByteOrder::big);
    for (const int shift : {21, 14, 7})
        writer.integer((size >> shift & 0x7F) | 0x80, 1, ByteOrder::big);
    return writer.integer(size & 0x7F, 1, ByteOrder::big).append(contents).bytes();
}

Bytes streamDescriptor(std::span<const UInt8> config)
{
    ByteWriter decoder(ByteOrder::big);
    // MPEG-4 audio; an audio stream; buffer size and bit rates are not stated
    decoder.integer(0x40, 1, ByteOrder::big).integer(0x15, 1, ByteOrder::big).integer(0, 3, ByteOrder::big);
    decoder.u32(0).u32(0).append(descriptor(configTag, config));
    const UInt8 sync[] = {2};
    return descriptor(streamTag, ByteWriter(ByteOrder::big)
                                     .u16(0)
                                     .zeros(1)
                                     .append(descriptor(decoderTag, decoder.bytes()))
                                     .append(descriptor(syncTag, sync))
                                     .bytes());
}

std::span<const UInt8> configOfStream(std::span<const UInt8> bytes)
{
    const auto stream = takeDescriptor(bytes);
    if (!stream || stream->tag != streamTag || stream->contents.size() < 3)
        return {};
    const UInt8 flags = stream->contents[2];
    std::size_t skip = 3 + (flags & 0x80 ? 2 : 0) + (flags & 0x20 ? 2 : 0);
    if (flags & 0x40 && stream->contents.size() > skip)
        skip += 1U + stream->contents[skip];
    if (skip > stream->contents.size())
        return {};
    auto rest = stream->contents.subspan(skip);
    const auto decoder = takeDescriptor(rest);
    if (!decoder || decoder->tag != decoderTag || decoder->contents.size() < 13)
        return {};
    rest = decoder->contents.subspan(13);
    const auto config = takeDescriptor(rest);
    return config && config->tag == configTag ? config->contents : std::span<const UInt8>();
}

/// The contents of the atom `code` in the run of atoms at the start of the bytes; empty if it is missing.
std::span<const UInt8> insideAtoms(std::span<const UInt8> bytes, FourCharCode code)
{
    while (bytes.size() >= 8) {
        const UInt32 size = load32(bytes.data(), ByteOrder::big);
        if (size < 8 || size > bytes.size())
            break;
        if (load32(bytes.data() + 4, ByteOrder::big) == code)
            return bytes.subspan(8, size - 8);
        bytes = bytes.subspan(size);
    }
    return {};
}

std::span<const UInt8> lastBytes(std::span<const UInt8> bytes, std::size_t offset, std::size_t count)
{
    return bytes.size() >= offset + count ? bytes.subspan(offset, count) : std::span<const UInt8>();
}

std::span<const UInt8> bareAAC(std::span<const UInt8> cookie)
{
    if (const auto atom = insideAtoms(cookie, fourCharCode("esds")); !atom.empty())
        cookie = atom;
    if (cookie.size() > 4 && load32(cookie.data(), ByteOrder::big) == 0) // version and flags
        cookie = cookie.subspan(4);
    const auto config = configOfStream(cookie);
    return config.empty() && !cookie.empty() && cookie[0] != streamTag ? cookie : config;
}

std::span<const UInt8> bareALAC(std::span<const UInt8> cookie)
{
    const auto atom = insideAtoms(cookie, fourCharCode("alac"));
    return atom.empty() ? lastBytes(cookie, 0, alacConfigBytes) : lastBytes(atom, 4, alacConfigBytes);
}

std::span<const UInt8> bareFLAC(std::span<const UInt8> cookie)
{
    if (const auto atom = insideAtoms(cookie, fourCharCode("dfLa")); !atom.empty())
        return lastBytes(atom, 8, flacInfoBytes);
    const bool hasMark = cookie.size() >= 4 && load32(cookie.data(), ByteOrder::big) == fourCharCode("fLaC");
    return lastBytes(cookie, hasMark ? 8 : 0, flacInfoBytes);
}

} // namespace

std::optional<AACConfig> parseAACConfig(std::span<const UInt8> config)
{
    BitReader bits(config);
    AACConfig result;
    const UInt32 objectType = takeObjectType(bits);
    result.sampleRate = takeRate(bits);
    const UInt32 channelCode = bits.take(4);
    result.channels = channelCode < std::size(aacChannels) ? aacChannels[channelCode] : 0;
    result.hasSpectralReplication = objectType == spectralReplication || objectType == parametricStereo;
    return config.size() < 2 || result.sampleRate == 0 ? std::nullopt : std::optional(result);
}

Bytes makeAACConfig(const AudioStreamBasicDescription& format)
{
    const auto rate = std::ranges::find(aacRates, format.mSampleRate);
    const auto channels = std::ranges::find(aacChannels, format.mChannelsPerFrame);
    if (rate == std::end(aacRates) || format.mChannelsPerFrame == 0 || channels == std::end(aacChannels))
        return {};
    const auto bits = kMPEG4Object_AAC_LC << 11 | (rate - aacRates) << 7 | (channels - aacChannels) << 3;
    return ByteWriter(ByteOrder::big).u16(static_cast<UInt16>(bits)).bytes();
}

Bytes cookieFromBare(AudioFormatID coding, std::span<const UInt8> bare)
{
    return isAAC(coding) && !bare.empty() ? streamDescriptor(bare) : Bytes(bare.begin(), bare.end());
}

Bytes bareFromCookie(AudioFormatID coding, std::span<const UInt8> cookie)
{
    std::span<const UInt8> bare;
    if (isAAC(coding))
        bare = bareAAC(cookie);
    else if (coding == kAudioFormatAppleLossless)
        bare = bareALAC(cookie);
    else if (coding == kAudioFormatFLAC)
        bare = bareFLAC(cookie);
    return {bare.begin(), bare.end()};
}

bool isAAC(AudioFormatID coding)
{
    return coding == kAudioFormatMPEG4AAC || coding == kAudioFormatMPEG4AAC_HE || coding == kAudioFormatMPEG4AAC_HE_V2;
}

bool isLossless(AudioFormatID coding)
{
    return coding == kAudioFormatAppleLossless || coding == kAudioFormatFLAC;
}

bool hasPackets(AudioFormatID coding)
{
    return isAAC(coding) || isLossless(coding) || coding == kAudioFormatMPEGLayer3;
}

UInt32 sourceBitsOf(const AudioStreamBasicDescription& format)
{
    constexpr UInt32 bits[] = {0, 16, 20, 24, 32};
    return format.mFormatFlags < std::size(bits) ? bits[format.mFormatFlags] : 0;
}

AudioFormatFlags flagsForSourceBits(UInt32 bits)
{
    if (bits <= 16)
        return kAppleLosslessFormatFlag_16BitSourceData;
    if (bits <= 20)
        return kAppleLosslessFormatFlag_20BitSourceData;
    return bits <= 24 ? kAppleLosslessFormatFlag_24BitSourceData : kAppleLosslessFormatFlag_32BitSourceData;
}

AudioStreamBasicDescription compressedFormat(AudioFormatID coding, AudioFormatFlags flags, Float64 rate,
                                             UInt32 channels, UInt32 framesPerPacket)
{
    AudioStreamBasicDescription format;
    format.mSampleRate = rate;
    format.mFormatID = coding;
    format.mFormatFlags = flags;
    format.mFramesPerPacket = framesPerPacket;
    format.mChannelsPerFrame = channels;
    return format;
}

std::optional<AudioStreamBasicDescription> formatFromALAC(std::span<const UInt8> config)
{
    if (config.size() < alacConfigBytes)
        return std::nullopt;
    const UInt32 frames = load32(config.data(), ByteOrder::big), rate = load32(config.data() + 20, ByteOrder::big);
    const UInt32 bits = config[5], channels = config[9];
    if (frames == 0 || frames > (1 << 16) || rate == 0 || bits == 0 || bits > 32 || channels == 0 || channels > 8)
        return std::nullopt;
    return compressedFormat(kAudioFormatAppleLossless, flagsForSourceBits(bits), rate, channels, frames);
}

std::optional<AudioStreamBasicDescription> formatFromFLAC(std::span<const UInt8> info, UInt64& totalFrames)
{
    if (info.size() < flacInfoBytes)
        return std::nullopt;
    const UInt32 smallest = load16(info.data(), ByteOrder::big), largest = load16(info.data() + 2, ByteOrder::big);
    BitReader bits(info.subspan(10));
    const UInt32 rate = bits.take(20), channels = bits.take(3) + 1, sampleBits = bits.take(5) + 1;
    totalFrames = UInt64{bits.take(4)} << 32;
    totalFrames |= bits.take(32);
    if (rate == 0 || smallest > largest || largest < 16)
        return std::nullopt;
    return compressedFormat(kAudioFormatFLAC, flagsForSourceBits(sampleBits), rate, channels,
                            smallest == largest ? largest : 0);
}

UInt32 rollDistanceOf(AudioFormatID coding)
{
    // AAC overlaps its neighbour, and replication its bands over some more; an MP3 frame uses bits of up to 9 small
    // ones before it
    if (coding == kAudioFormatMPEG4AAC)
        return 2;
    if (isAAC(coding))
        return 8;
    return coding == kAudioFormatMPEGLayer3 ? 12 : 0;
}

std::vector<UInt32> encodeBitRates(AudioFormatID coding, Float64 sampleRate, UInt32 channels)
{
    std::vector<UInt32> kilobits;
    UInt32 largest = 0;
    if (coding == kAudioFormatMPEG4AAC) {
        kilobits = {8,  12,  16,  20,  24,  28,  32,  40,  48,  56,  64,  80,
                    96, 112, 128, 144, 160, 192, 224, 256, 320, 448, 512, 640};
        // a packet holds 6144 bits a channel
        largest = sampleRate > 0 && channels > 0 ? static_cast<UInt32>(sampleRate * 6 * channels / 1000) : 640;
    } else if (coding == kAudioFormatMPEGLayer3) {
        kilobits = {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 192, 224, 256, 320};
        const bool isFull = sampleRate >= 32000, isKnown = sampleRate > 0;
        std::erase_if(kilobits,
                      [&](UInt32 rate) { return isKnown && (isFull ? rate < 32 || rate == 144 : rate > 160); });
        largest = 320;
    }
    std::erase_if(kilobits, [&](UInt32 rate) { return rate > largest || (channels > 0 && rate < 8 * channels); });
    for (UInt32& rate : kilobits)
        rate *= 1000;
    return kilobits;
}

std::vector<AudioValueRange> encodeBitRateRanges(AudioFormatID coding, Float64 sampleRate, UInt32 channels)
{
    const std::vector<UInt32> rates = encodeBitRates(coding, sampleRate, channels);
    std::vector<AudioValueRange> ranges(rates.size());
    std::ranges::transform(rates, ranges.begin(), [](UInt32 rate) {
        return AudioValueRange{static_cast<Float64>(rate), static_cast<Float64>(rate)};
    });
    return ranges;
}

} // namespace qmx
