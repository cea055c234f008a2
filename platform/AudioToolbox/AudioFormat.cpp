// SPDX-License-Identifier: MIT
#include "AudioToolbox/AudioFormat.h"

#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Codings/PacketCoding.h"
#include "AudioToolbox/Conversion/PcmLayout.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/CFString.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <vector>

namespace
{

/// What is the same for every stream of a coding. Zero means unknown or variable.
struct CodingFacts {
    AudioFormatID id;
    const char* name;
    UInt32 framesPerPacket;
    UInt32 packetBytesPerChannel;
    bool isVariable;         ///< packets differ in size
    bool isExternallyFramed; ///< packets do not show where they end
};

constexpr CodingFacts codings[] = {
    {kAudioFormatLinearPCM, "Linear PCM", 1, 0, false, false},
    {kAudioFormatULaw, "\xC2\xB5-Law 2:1", 1, 1, false, false},
    {kAudioFormatALaw, "A-Law 2:1", 1, 1, false, false},
    {kAudioFormatAppleIMA4, "IMA 4:1", 64, 34, false, false},
    {kAudioFormatMACE3, "MACE 3:1", 6, 2, false, false},
    {kAudioFormatMACE6, "MACE 6:1", 6, 1, false, false},
    {kAudioFormatMicrosoftGSM, "GSM 6.10", 320, 65, false, false},
    {kAudioFormatMPEG4AAC, "MPEG-4 AAC", 1024, 0, true, true},
    {kAudioFormatMPEG4AAC_HE, "MPEG-4 High Efficiency AAC", 2048, 0, true, true},
    {kAudioFormatMPEG4AAC_HE_V2, "MPEG-4 High Efficiency AAC Version 2", 2048, 0, true, true},
    {kAudioFormatMPEG4AAC_LD, "MPEG-4 Low Delay AAC", 512, 0, true, true},
    {kAudioFormatMPEG4AAC_ELD, "MPEG-4 Enhanced Low Delay AAC", 512, 0, true, true},
    {kAudioFormatMPEG4CELP, "MPEG-4 CELP", 0, 0, true, true},
    {kAudioFormatMPEG4HVXC, "MPEG-4 HVXC", 0, 0, true, true},
    {kAudioFormatMPEG4TwinVQ, "MPEG-4 TwinVQ", 0, 0, true, true},
    {kAudioFormatAppleLossless, "Lossless (ALAC)", 4096, 0, true, true},
    {kAudioFormatFLAC, "FLAC", 0, 0, true, true},
    {kAudioFormatOpus, "Opus", 0, 0, true, true},
    {kAudioFormatMPEGLayer1, "MPEG Layer 1", 384, 0, true, false},
    {kAudioFormatMPEGLayer2, "MPEG Layer 2", 1152, 0, true, false},
    {kAudioFormatMPEGLayer3, "MPEG Layer 3", 1152, 0, true, false},
    {kAudioFormatAC3, "AC-3", 1536, 0, true, false},
    {kAudioFormat60958AC3, "AC-3 IEC 60958", 1536, 0, false, false},
    {kAudioFormatEnhancedAC3, "Enhanced AC-3", 0, 0, true, false},
    {kAudioFormatAMR, "AMR Narrow Band", 160, 0, true, false},
    {kAudioFormatAMR_WB, "AMR Wide Band", 320, 0, true, false},
};

/// The codings that the converter turns into linear PCM, or back.
std::vector<AudioFormatID> withSampleCodings(const std::vector<AudioFormatID>& compressed)
{
    std::vector<AudioFormatID> ids{kAudioFormatLinearPCM, kAudioFormatULaw, kAudioFormatALaw};
    ids.insert(ids.end(), compressed.begin(), compressed.end());
    return ids;
}

const CodingFacts* factsOf(AudioFormatID id)
{
    const auto found = std::ranges::find(codings, id, &CodingFacts::id);
    return found == std::end(codings) ? nullptr : found;
}

void completeLinear(AudioStreamBasicDescription& record)
{
    record.mFramesPerPacket = 1;
    // if the packing is not stated, the bytes per frame determine it
    AudioStreamBasicDescription packed = record;
    if (record.mBytesPerFrame == 0)
        packed.mFormatFlags |= kAudioFormatFlagIsPacked;
    packed.mBytesPerPacket = packed.mBytesPerFrame;
    if (const auto layout = qmx::PcmLayout::of(packed))
        record = qmx::withByteCounts(record, *layout);
}

void complete(AudioStreamBasicDescription& record, const CodingFacts& facts)
{
    if (facts.id == kAudioFormatLinearPCM)
        return completeLinear(record);
    // low rates of MP3 have packets of half the length; what a coding leaves open stays as the caller stated it
    const bool isHalved = facts.id == kAudioFormatMPEGLayer3 && record.mSampleRate > 0 && record.mSampleRate < 32000;
    if (facts.framesPerPacket > 0)
        record.mFramesPerPacket = facts.framesPerPacket / (isHalved ? 2 : 1);
    record.mBytesPerPacket = facts.packetBytesPerChannel * record.mChannelsPerFrame;
    record.mBytesPerFrame = facts.framesPerPacket == 1 ? record.mBytesPerPacket : 0;
    record.mBitsPerChannel = facts.framesPerPacket == 1 ? 8 : 0;
}

/// Whether the property is a question about one format, whose record is its specifier.
bool asksAboutFormat(AudioFormatPropertyID property)
{
    return property == kAudioFormatProperty_FormatIsVBR || property == kAudioFormatProperty_FormatIsExternallyFramed ||
           property == kAudioFormatProperty_FormatName;
}

/// Questions whose specifier is a coding's code.
bool asksAboutCoding(AudioFormatPropertyID property)
{
    return property == kAudioFormatProperty_AvailableEncodeBitRates;
}

template <class T> qmx::Bytes bytesOf(const std::vector<T>& values)
{
    const auto* const first = reinterpret_cast<const UInt8*>(values.data());
    return {first, first + values.size() * sizeof(T)};
}

/// The properties that are lists.
qmx::Bytes listOf(AudioFormatPropertyID property, const void* specifier)
{
    if (property == kAudioFormatProperty_EncodeFormatIDs)
        return bytesOf(withSampleCodings(qmx::encodableCodings()));
    if (property == kAudioFormatProperty_DecodeFormatIDs)
        return bytesOf(withSampleCodings(qmx::decodableCodings()));
    AudioFormatID coding = 0;
    std::memcpy(&coding, specifier, sizeof coding);
    const auto encodable = qmx::hasPackets(coding) ? qmx::encodableCodings() : std::vector<AudioFormatID>();
    const bool isThere = std::ranges::find(encodable, coding) != encodable.end();
    return isThere ? bytesOf(qmx::encodeBitRateRanges(coding, 0, 0)) : qmx::Bytes();
}

std::optional<UInt32> sizeOf(AudioFormatPropertyID property, const void* specifier)
{
    switch (property) {
    case kAudioFormatProperty_FormatInfo:
        return sizeof(AudioStreamBasicDescription);
    case kAudioFormatProperty_FormatIsVBR:
    case kAudioFormatProperty_FormatIsExternallyFramed:
        return sizeof(UInt32);
    case kAudioFormatProperty_FormatName:
        return sizeof(CFStringRef);
    case kAudioFormatProperty_EncodeFormatIDs:
    case kAudioFormatProperty_DecodeFormatIDs:
    case kAudioFormatProperty_AvailableEncodeBitRates:
        return static_cast<UInt32>(listOf(property, specifier).size());
    default:
        return std::nullopt;
    }
}

template <class T> OSStatus answer(void* value, const T& result)
{
    std::memcpy(value, &result, sizeof result);
    return noErr;
}

OSStatus answerAboutFormat(AudioFormatPropertyID property, const void* specifier, void* value)
{
    AudioStreamBasicDescription record;
    std::memcpy(&record, specifier, sizeof record);
    const CodingFacts* const facts = factsOf(record.mFormatID);
    if (!facts)
        return kAudioFormatUnknownFormatError;
    if (property == kAudioFormatProperty_FormatName)
        return answer(value, CFStringCreate(facts->name));
    const bool isTrue = property == kAudioFormatProperty_FormatIsVBR ? facts->isVariable : facts->isExternallyFramed;
    return answer(value, UInt32{isTrue});
}

OSStatus answerFormatInfo(void* value)
{
    AudioStreamBasicDescription record;
    std::memcpy(&record, value, sizeof record);
    const CodingFacts* const facts = factsOf(record.mFormatID);
    if (!facts)
        return kAudioFormatUnknownFormatError;
    complete(record, *facts);
    return answer(value, record);
}

} // namespace

OSStatus AudioFormatGetPropertyInfo(AudioFormatPropertyID property, UInt32 specifierSize, const void* specifier,
                                    UInt32* size)
{
    return qmx::withinMemory(kAudio_MemFullError, [&]() -> OSStatus {
        if (asksAboutCoding(property) && (!specifier || specifierSize != sizeof(AudioFormatID)))
            return kAudioFormatBadSpecifierSizeError;
        const auto needed = sizeOf(property, specifier);
        if (!needed)
            return kAudioFormatUnsupportedPropertyError;
        if (!size)
            return kAudio_ParamError;
        if (asksAboutFormat(property) && (!specifier || specifierSize != sizeof(AudioStreamBasicDescription)))
            return kAudioFormatBadSpecifierSizeError;
        *size = *needed;
        return noErr;
    });
}

OSStatus AudioFormatGetProperty(AudioFormatPropertyID property, UInt32 specifierSize, const void* specifier,
                                UInt32* size, void* value)
{
    return qmx::withinMemory(kAudio_MemFullError, [&]() -> OSStatus {
        if (!size || !value)
            return kAudio_ParamError;
        UInt32 needed = 0;
        const OSStatus status = AudioFormatGetPropertyInfo(property, specifierSize, specifier, &needed);
        if (status != noErr)
            return status;
        if (*size < needed)
            return kAudioFormatBadPropertySizeError;
        *size = needed;
        if (property == kAudioFormatProperty_FormatInfo)
            return answerFormatInfo(value);
        if (asksAboutFormat(property))
            return answerAboutFormat(property, specifier, value);
        const qmx::Bytes list = listOf(property, specifier);
        if (!list.empty())
            std::memcpy(value, list.data(), list.size());
        return noErr;
    });
}
