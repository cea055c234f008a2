// SPDX-License-Identifier: MIT
#include "AudioToolbox/AudioConverter.h"

#include "AudioToolbox/Conversion/Converter.h"
#include "CoreAudioTypes/AudioChannelLayout.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

struct OpaqueAudioConverter {
    std::unique_ptr<qmx::Converter> engine;
    std::vector<std::byte> inputLayout, outputLayout; // as they were set
};

namespace
{

struct PropertyShape {
    UInt32 size;
    bool isWritable;
};

std::optional<PropertyShape> shapeOf(const qmx::Converter& converter, AudioConverterPropertyID property)
{
    switch (property) {
    case kAudioConverterPropertyMinimumInputBufferSize:
    case kAudioConverterPropertyMinimumOutputBufferSize:
    case kAudioConverterPropertyMaximumInputPacketSize:
    case kAudioConverterPropertyMaximumOutputPacketSize:
    case kAudioConverterPropertyCalculateInputBufferSize:
    case kAudioConverterPropertyCalculateOutputBufferSize:
        return PropertyShape{sizeof(UInt32), false};
    case kAudioConverterSampleRateConverterQuality:
        return PropertyShape{sizeof(UInt32), true};
    case kAudioConverterChannelMap:
        return PropertyShape{static_cast<UInt32>(converter.target().mChannelsPerFrame * sizeof(SInt32)), true};
    case kAudioConverterCurrentInputStreamDescription:
    case kAudioConverterCurrentOutputStreamDescription:
        return PropertyShape{sizeof(AudioStreamBasicDescription), false};
    default:
        return std::nullopt;
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
    layoutOf(converter, property).assign(bytes, bytes + size);
    converter.engine->setLayouts(converter.inputLayout, converter.outputLayout);
    return noErr;
}

} // namespace

OSStatus AudioConverterNew(const AudioStreamBasicDescription* source, const AudioStreamBasicDescription* destination,
                           AudioConverterRef* converter)
{
    if (!converter)
        return kAudio_ParamError;
    *converter = nullptr;
    if (!source || !destination)
        return kAudio_ParamError;
    auto engine = qmx::Converter::between(*source, *destination);
    if (!engine)
        return kAudioConverterErr_FormatNotSupported;
    *converter = new OpaqueAudioConverter{std::move(engine), {}, {}};
    return noErr;
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
    converter->engine->reset();
    return noErr;
}

OSStatus AudioConverterGetPropertyInfo(AudioConverterRef converter, AudioConverterPropertyID property, UInt32* size,
                                       Boolean* isWritable)
{
    if (!converter)
        return kAudio_ParamError;
    auto shape = shapeOf(*converter->engine, property);
    if (isLayout(property))
        shape = {static_cast<UInt32>(layoutOf(*converter, property).size()), true};
    if (!shape)
        return kAudioConverterErr_PropertyNotSupported;
    if (size)
        *size = shape->size;
    if (isWritable)
        *isWritable = shape->isWritable;
    return noErr;
}

OSStatus AudioConverterGetProperty(AudioConverterRef converter, AudioConverterPropertyID property, UInt32* size,
                                   void* value)
{
    if (!converter || !size || !value)
        return kAudio_ParamError;
    if (isLayout(property))
        return answerLayout(layoutOf(*converter, property), *size, value);
    const qmx::Converter& engine = *converter->engine;
    const auto shape = shapeOf(engine, property);
    if (!shape)
        return kAudioConverterErr_PropertyNotSupported;
    if (*size < shape->size)
        return kAudioConverterErr_BadPropertySizeError;
    *size = shape->size;
    switch (property) {
    case kAudioConverterPropertyMinimumInputBufferSize:
    case kAudioConverterPropertyMaximumInputPacketSize:
        return answer(value, engine.sourceFrameBytes());
    case kAudioConverterPropertyMinimumOutputBufferSize:
    case kAudioConverterPropertyMaximumOutputPacketSize:
        return answer(value, engine.targetFrameBytes());
    case kAudioConverterPropertyCalculateInputBufferSize:
        return answerInputSize(engine, value);
    case kAudioConverterPropertyCalculateOutputBufferSize:
        return answerOutputSize(engine, value);
    case kAudioConverterSampleRateConverterQuality:
        return answer(value, engine.quality());
    case kAudioConverterChannelMap:
        return answerChannelMap(engine, value);
    case kAudioConverterCurrentInputStreamDescription:
        return answer(value, engine.source());
    default:
        return answer(value, engine.target());
    }
}

OSStatus AudioConverterSetProperty(AudioConverterRef converter, AudioConverterPropertyID property, UInt32 size,
                                   const void* value)
{
    if (!converter || !value)
        return kAudio_ParamError;
    if (isLayout(property))
        return setLayout(*converter, property, size, value);
    const auto shape = shapeOf(*converter->engine, property);
    if (!shape)
        return kAudioConverterErr_PropertyNotSupported;
    if (!shape->isWritable)
        return kAudioConverterErr_OperationNotSupported;
    if (size != shape->size)
        return kAudioConverterErr_BadPropertySizeError;
    return property == kAudioConverterChannelMap ? setChannelMap(*converter->engine, value)
                                                 : setQuality(*converter->engine, value);
}

OSStatus AudioConverterConvertBuffer(AudioConverterRef converter, UInt32 inputSize, const void* input,
                                     UInt32* outputSize, void* output)
{
    if (!converter || (!input && inputSize > 0) || !outputSize || !output)
        return kAudio_ParamError;
    return converter->engine->convertBuffer({static_cast<const std::byte*>(input), inputSize},
                                            static_cast<std::byte*>(output), *outputSize);
}

OSStatus AudioConverterFillComplexBuffer(AudioConverterRef converter, AudioConverterComplexInputDataProc inputProc,
                                         void* userData, UInt32* packetCount, AudioBufferList* output,
                                         AudioStreamPacketDescription*)
{
    if (!converter || !inputProc || !packetCount || !output)
        return kAudio_ParamError;
    return converter->engine->fill({inputProc, converter, userData}, *packetCount, *output);
}
