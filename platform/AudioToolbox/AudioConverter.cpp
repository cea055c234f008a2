// SPDX-License-Identifier: MIT
#include "AudioToolbox/AudioConverter.h"

#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Conversion/CodedConverter.h"
#include "CoreAudioTypes/AudioChannelLayout.h"
#include "Foundation/Memory.h"
#include "Foundation/ModuleLoader.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

struct OpaqueAudioConverter {
    std::unique_ptr<qmx::Converter> plain;            // one of the two
    std::unique_ptr<qmx::CodedConverter> coded;       // if a side is compressed
    std::vector<std::byte> inputLayout, outputLayout; // as the caller set them

    /// The conversion of linear samples, which both kinds have.
    qmx::Converter& linear() { return plain ? *plain : coded->linear(); }
    qmx::PacketEncoder* encoder() { return coded ? coded->encoder() : nullptr; }
    const AudioStreamBasicDescription& source() { return coded ? coded->source() : plain->source(); }
    const AudioStreamBasicDescription& target() { return coded ? coded->target() : plain->target(); }
    /// Whether the record describes the compressed side.
    bool isCompressed(const AudioStreamBasicDescription& side) const
    {
        return coded && side.mFormatID != kAudioFormatLinearPCM && side.mBytesPerFrame == 0;
    }
};

namespace
{

struct PropertyShape {
    UInt32 size;
    bool isWritable;
};

std::vector<AudioValueRange> bitRatesOf(const qmx::PacketEncoder& encoder, bool anyRate)
{
    const auto& target = encoder.target();
    return qmx::encodeBitRateRanges(target.mFormatID, anyRate ? 0 : target.mSampleRate,
                                    anyRate ? 0 : target.mChannelsPerFrame);
}

// Properties that only converters of compressed formats have.
std::optional<PropertyShape> codedShapeOf(OpaqueAudioConverter& converter, AudioConverterPropertyID property)
{
    const qmx::PacketEncoder* const encoder = converter.encoder();
    switch (property) {
    case kAudioConverterDecompressionMagicCookie:
        return encoder ? std::nullopt : std::optional(PropertyShape{0, true});
    case kAudioConverterCompressionMagicCookie:
        if (!encoder || encoder->cookie().empty())
            return std::nullopt;
        return PropertyShape{static_cast<UInt32>(encoder->cookie().size()), false};
    case kAudioConverterEncodeBitRate:
        return encoder && encoder->bitRate() > 0 ? std::optional(PropertyShape{sizeof(UInt32), true}) : std::nullopt;
    case kAudioConverterApplicableEncodeBitRates:
    case kAudioConverterAvailableEncodeBitRates: {
        if (!encoder || encoder->bitRate() == 0)
            return std::nullopt;
        const auto ranges = bitRatesOf(*encoder, property == kAudioConverterAvailableEncodeBitRates);
        return PropertyShape{static_cast<UInt32>(ranges.size() * sizeof(AudioValueRange)), false};
    }
    default:
        return std::nullopt;
    }
}

std::optional<PropertyShape> shapeOf(OpaqueAudioConverter& converter, AudioConverterPropertyID property)
{
    switch (property) {
    case kAudioConverterPropertyCalculateInputBufferSize:
    case kAudioConverterPropertyCalculateOutputBufferSize:
        if (converter.coded) // the size of packets does not follow from their number
            return std::nullopt;
        [[fallthrough]];
    case kAudioConverterPropertyMinimumInputBufferSize:
    case kAudioConverterPropertyMinimumOutputBufferSize:
    case kAudioConverterPropertyMaximumInputPacketSize:
    case kAudioConverterPropertyMaximumOutputPacketSize:
        return PropertyShape{sizeof(UInt32), false};
    case kAudioConverterSampleRateConverterQuality:
        return PropertyShape{sizeof(UInt32), true};
    case kAudioConverterPrimeInfo:
        return PropertyShape{sizeof(AudioConverterPrimeInfo), converter.coded && !converter.encoder()};
    case kAudioConverterChannelMap:
        return PropertyShape{static_cast<UInt32>(converter.target().mChannelsPerFrame * sizeof(SInt32)), true};
    case kAudioConverterCurrentInputStreamDescription:
    case kAudioConverterCurrentOutputStreamDescription:
        return PropertyShape{sizeof(AudioStreamBasicDescription), false};
    default:
        return converter.coded ? codedShapeOf(converter, property) : std::nullopt;
    }
}

template <class T> OSStatus answer(void* value, const T& result)
{
    std::memcpy(value, &result, sizeof result);
    return noErr;
}

OSStatus answerOutputSize(const qmx::Converter& converter, void* value)
{
    UInt32 inputBytes = 0;
    std::memcpy(&inputBytes, value, sizeof inputBytes);
    const auto outputBytes = converter.outputBytesFor(inputBytes);
    return outputBytes ? answer(value, *outputBytes) : kAudioConverterErr_InvalidOutputSize;
}

OSStatus answerInputSize(const qmx::Converter& converter, void* value)
{
    UInt32 outputBytes = 0;
    std::memcpy(&outputBytes, value, sizeof outputBytes);
    return answer(value, converter.inputBytesFor(outputBytes));
}

OSStatus answerChannelMap(const qmx::Converter& converter, void* value)
{
    const auto map = converter.channelMap();
    if (map.empty()) // a mean has no map
        return kAudioConverterErr_OperationNotSupported;
    std::memcpy(value, map.data(), map.size_bytes());
    return noErr;
}

template <class T> OSStatus answerAll(void* value, const std::vector<T>& result)
{
    if (!result.empty())
        std::memcpy(value, result.data(), result.size() * sizeof(T));
    return noErr;
}

// The largest packet that a converter takes or makes: one frame for PCM; for compressed input, a bound for all codings.
UInt32 inputPacketSize(OpaqueAudioConverter& converter)
{
    constexpr UInt32 largestPacket = 1 << 20;
    return converter.isCompressed(converter.source()) ? largestPacket : converter.linear().sourceFrameBytes();
}

UInt32 outputPacketSize(OpaqueAudioConverter& converter)
{
    return converter.coded ? converter.coded->maximumPacketSize() : converter.plain->targetFrameBytes();
}

OSStatus setQuality(qmx::Converter& converter, const void* value)
{
    UInt32 quality = 0;
    std::memcpy(&quality, value, sizeof quality);
    if (quality > qmx::RateConverter::bestQuality)
        return kAudio_ParamError;
    converter.setQuality(quality);
    return noErr;
}

OSStatus setChannelMap(qmx::Converter& converter, const void* value)
{
    std::vector<SInt32> map(converter.target().mChannelsPerFrame);
    std::memcpy(map.data(), value, map.size() * sizeof(SInt32));
    return converter.setChannelMap(map) ? noErr : kAudio_ParamError;
}

OSStatus setPrimeInfo(qmx::CodedConverter& converter, const void* value)
{
    AudioConverterPrimeInfo info;
    std::memcpy(&info, value, sizeof info);
    return converter.setPrimeInfo(info);
}

OSStatus setBitRate(qmx::PacketEncoder& encoder, const void* value)
{
    UInt32 rate = 0;
    std::memcpy(&rate, value, sizeof rate);
    return encoder.setBitRate(rate) ? noErr : kAudio_ParamError;
}

bool isLayout(AudioConverterPropertyID property)
{
    return property == kAudioConverterInputChannelLayout || property == kAudioConverterOutputChannelLayout;
}

std::vector<std::byte>& layoutOf(OpaqueAudioConverter& converter, AudioConverterPropertyID property)
{
    return property == kAudioConverterInputChannelLayout ? converter.inputLayout : converter.outputLayout;
}

OSStatus answerLayout(const std::vector<std::byte>& layout, UInt32& size, void* value)
{
    if (layout.empty())
        return kAudioConverterErr_PropertyNotSupported;
    if (size < layout.size())
        return kAudioConverterErr_BadPropertySizeError;
    size = static_cast<UInt32>(layout.size());
    std::memcpy(value, layout.data(), layout.size());
    return noErr;
}

OSStatus setLayout(OpaqueAudioConverter& converter, AudioConverterPropertyID property, UInt32 size, const void* value)
{
    if (size < offsetof(AudioChannelLayout, mChannelDescriptions))
        return kAudioConverterErr_BadPropertySizeError;
    const auto* const bytes = static_cast<const std::byte*>(value);
    std::vector<std::byte>& layout = layoutOf(converter, property);
    const auto before = std::exchange(layout, std::vector(bytes, bytes + size));
    const bool isSet =
        qmx::withinMemory([&] { converter.linear().setLayouts(converter.inputLayout, converter.outputLayout); });
    if (!isSet)
        layout = before;
    return isSet ? noErr : kAudio_MemFullError;
}

} // namespace

OSStatus AudioConverterNew(const AudioStreamBasicDescription* source, const AudioStreamBasicDescription* destination,
                           AudioConverterRef* converter)
{
    return qmx::withinMemory(kAudio_MemFullError, [&]() -> OSStatus {
        if (!converter)
            return kAudio_ParamError;
        *converter = nullptr;
        qmx::forgetMissingModule();
        if (!source || !destination)
            return kAudio_ParamError;
        auto plain = qmx::Converter::between(*source, *destination);
        auto coded = plain ? nullptr : qmx::CodedConverter::between(*source, *destination);
        if (!plain && !coded)
            return kAudioConverterErr_FormatNotSupported;
        *converter = new OpaqueAudioConverter{std::move(plain), std::move(coded), {}, {}};
        return noErr;
    });
}

OSStatus AudioConverterDispose(AudioConverterRef converter)
{
    if (!converter)
        return kAudio_ParamError;
    delete converter;
    return noErr;
}

OSStatus AudioConverterReset(AudioConverterRef converter)
{
    if (!converter)
        return kAudio_ParamError;
    const bool isReset = qmx::withinMemory([&] {
        if (converter->coded)
            converter->coded->reset();
        else
            converter->plain->reset();
    });
    return isReset ? noErr : kAudio_MemFullError;
}

OSStatus AudioConverterGetPropertyInfo(AudioConverterRef converter, AudioConverterPropertyID property, UInt32* size,
                                       Boolean* isWritable)
{
    return qmx::withinMemory(kAudio_MemFullError, [&]() -> OSStatus {
        if (!converter)
            return kAudio_ParamError;
        auto shape = shapeOf(*converter, property);
        if (isLayout(property))
            shape = {static_cast<UInt32>(layoutOf(*converter, property).size()), true};
        if (!shape)
            return kAudioConverterErr_PropertyNotSupported;
        if (size)
            *size = shape->size;
        if (isWritable)
            *isWritable = shape->isWritable;
        return noErr;
    });
}

OSStatus AudioConverterGetProperty(AudioConverterRef converter, AudioConverterPropertyID property, UInt32* size,
                                   void* value)
{
    return qmx::withinMemory(kAudio_MemFullError, [&]() -> OSStatus {
        if (!converter || !size || !value)
            return kAudio_ParamError;
        if (isLayout(property))
            return answerLayout(layoutOf(*converter, property), *size, value);
        const auto shape = shapeOf(*converter, property);
        if (!shape || (property == kAudioConverterDecompressionMagicCookie))
            return kAudioConverterErr_PropertyNotSupported;
        if (*size < shape->size)
            return kAudioConverterErr_BadPropertySizeError;
        *size = shape->size;
        switch (property) {
        case kAudioConverterPropertyMinimumInputBufferSize:
        case kAudioConverterPropertyMaximumInputPacketSize:
            return answer(value, inputPacketSize(*converter));
        case kAudioConverterPropertyMinimumOutputBufferSize:
        case kAudioConverterPropertyMaximumOutputPacketSize:
            return answer(value, outputPacketSize(*converter));
        case kAudioConverterPropertyCalculateInputBufferSize:
            return answerInputSize(*converter->plain, value);
        case kAudioConverterPropertyCalculateOutputBufferSize:
            return answerOutputSize(*converter->plain, value);
        case kAudioConverterSampleRateConverterQuality:
            return answer(value, converter->linear().quality());
        case kAudioConverterPrimeInfo:
            return answer(value, converter->coded ? converter->coded->primeInfo() : AudioConverterPrimeInfo{});
        case kAudioConverterCompressionMagicCookie:
            return answerAll(value, converter->encoder()->cookie());
        case kAudioConverterEncodeBitRate:
            return answer(value, converter->encoder()->bitRate());
        case kAudioConverterApplicableEncodeBitRates:
        case kAudioConverterAvailableEncodeBitRates:
            return answerAll(value,
                             bitRatesOf(*converter->encoder(), property == kAudioConverterAvailableEncodeBitRates));
        case kAudioConverterChannelMap:
            return answerChannelMap(converter->linear(), value);
        case kAudioConverterCurrentInputStreamDescription:
            return answer(value, converter->source());
        default:
            return answer(value, converter->target());
        }
    });
}

OSStatus AudioConverterSetProperty(AudioConverterRef converter, AudioConverterPropertyID property, UInt32 size,
                                   const void* value)
{
    return qmx::withinMemory(kAudio_MemFullError, [&]() -> OSStatus {
        if (!converter || !value)
            return kAudio_ParamError;
        if (isLayout(property))
            return setLayout(*converter, property, size, value);
        const auto shape = shapeOf(*converter, property);
        if (!shape)
            return kAudioConverterErr_PropertyNotSupported;
        if (!shape->isWritable)
            return kAudioConverterErr_OperationNotSupported;
        if (property == kAudioConverterDecompressionMagicCookie)
            return converter->coded->setCookie({static_cast<const UInt8*>(value), size}) ? noErr : kAudio_ParamError;
        if (size != shape->size)
            return kAudioConverterErr_BadPropertySizeError;
        switch (property) {
        case kAudioConverterChannelMap:
            return setChannelMap(converter->linear(), value);
        case kAudioConverterPrimeInfo:
            return setPrimeInfo(*converter->coded, value);
        case kAudioConverterEncodeBitRate:
            return setBitRate(*converter->encoder(), value);
        default:
            return setQuality(converter->linear(), value);
        }
    });
}

OSStatus AudioConverterConvertBuffer(AudioConverterRef converter, UInt32 inputSize, const void* input,
                                     UInt32* outputSize, void* output)
{
    return qmx::withinMemory(kAudio_MemFullError, [&]() -> OSStatus {
        if (!converter || (!input && inputSize > 0) || !outputSize || !output)
            return kAudio_ParamError;
        if (!converter->plain)
            return kAudioConverterErr_OperationNotSupported;
        return converter->plain->convertBuffer({static_cast<const std::byte*>(input), inputSize},
                                               static_cast<std::byte*>(output), *outputSize);
    });
}

OSStatus AudioConverterFillComplexBuffer(AudioConverterRef converter, AudioConverterComplexInputDataProc inputProc,
                                         void* userData, UInt32* packetCount, AudioBufferList* output,
                                         AudioStreamPacketDescription* packetDescriptions)
{
    return qmx::withinMemory(kAudio_MemFullError, [&]() -> OSStatus {
        if (!converter || !inputProc || !packetCount || !output)
            return kAudio_ParamError;
        const qmx::Converter::InputSource input{inputProc, converter, userData};
        return converter->coded ? converter->coded->fill(input, *packetCount, *output, packetDescriptions)
                                : converter->plain->fill(input, *packetCount, *output);
    });
}
