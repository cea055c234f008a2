// SPDX-License-Identifier: MIT
#include "Processing/QMXAudioConverter.h"

#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/Format.h"
#include "Foundation/Log.h"

#include <utility>

std::shared_ptr<QMXAudioConverter> QMXAudioConverter::initWithSourceFormat_destinationFormat(
    std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
    std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat)
{
    if (!sourceFormat || !destinationFormat)
        return nullptr;
    AudioConverterRef converter = nullptr;
    if (AudioConverterNew(sourceFormat->audioStreamBasicDescription(), destinationFormat->audioStreamBasicDescription(),
                          &converter) != noErr)
        return nullptr;
    return std::shared_ptr<QMXAudioConverter>(
        new QMXAudioConverter(converter, std::move(sourceFormat), std::move(destinationFormat)));
}

QMXAudioConverter::QMXAudioConverter(AudioConverterRef converter,
                                     std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
                                     std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat)
    : audioConverter(converter), mSourceFormat(std::move(sourceFormat)),
      mDestinationFormat(std::move(destinationFormat))
{
}

QMXAudioConverter::~QMXAudioConverter()
{
    AudioConverterDispose(audioConverter);
}

UInt32 QMXAudioConverter::minimumInputBufferSize() const
{
    return property(kAudioConverterPropertyMinimumInputBufferSize, 0);
}

UInt32 QMXAudioConverter::minimumOutputBufferSize() const
{
    return property(kAudioConverterPropertyMinimumOutputBufferSize, 0);
}

UInt32 QMXAudioConverter::calculateInputBufferSize(UInt32 outputBufferSize) const
{
    return property(kAudioConverterPropertyCalculateInputBufferSize, outputBufferSize);
}

UInt32 QMXAudioConverter::calculateOutputBufferSize(UInt32 inputBufferSize) const
{
    return property(kAudioConverterPropertyCalculateOutputBufferSize, inputBufferSize);
}

UInt32 QMXAudioConverter::sampleRateConverterQuality() const
{
    return property(kAudioConverterSampleRateConverterQuality, 0);
}

/// The property's value; what it was at first when the platform fails.
UInt32 QMXAudioConverter::property(AudioConverterPropertyID property, UInt32 valueAtFirst) const
{
    UInt32 value = valueAtFirst;
    UInt32 size = sizeof value;
    const OSStatus status = AudioConverterGetProperty(audioConverter, property, &size, &value);
    return status == noErr ? value : valueAtFirst;
}

void QMXAudioConverter::setSampleRateConverterQuality(UInt32 quality)
{
    AudioConverterSetProperty(audioConverter, kAudioConverterSampleRateConverterQuality, sizeof quality, &quality);
}

void QMXAudioConverter::setMagicCookie_length(const void*, UInt32)
{
    // intended: no cookie reaches the converter, the quality becomes the lowest
    setSampleRateConverterQuality(0);
}

void QMXAudioConverter::reset()
{
    AudioConverterReset(audioConverter);
}

OSStatus QMXAudioConverter::convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(const void* inputBuffer,
                                                                                        UInt32 inputBufferSize,
                                                                                        void* outputBuffer,
                                                                                        UInt32* outputBufferSize)
{
    if (!inputBuffer)
        qmx::Log("*** WARNING *** QMXAudioConverter:convertBuffer  input is NULL");
    if (!outputBuffer)
        qmx::Log("*** WARNING *** QMXAudioConverter:convertBuffer  output buffer is NULL");
    if (!inputBuffer || !outputBuffer)
        return noErr;
    const OSStatus status =
        AudioConverterConvertBuffer(audioConverter, inputBufferSize, inputBuffer, outputBufferSize, outputBuffer);
    if (status != noErr) {
        qmx::Log("*** ERROR *** QMXAudioConverter:convertBuffer");
        printOSStatusCode(status);
    }
    return status;
}

void QMXAudioConverter::printOSStatusCode(OSStatus status)
{
    switch (status) {
    case kAudioConverterErr_FormatNotSupported:
        return qmx::Log("OS Status: kAudioConverterErr_FormatNotSupported");
    case kAudioConverterErr_OperationNotSupported:
        return qmx::Log("OS Status: kAudioConverterErr_OperationNotSupported");
    case kAudioConverterErr_PropertyNotSupported:
        return qmx::Log("OS Status: kAudioConverterErr_PropertyNotSupported");
    case kAudioConverterErr_InvalidInputSize:
        return qmx::Log("OS Status: kAudioConverterErr_InvalidInputSize");
    case kAudioConverterErr_InvalidOutputSize:
        return qmx::Log("OS Status: kAudioConverterErr_InvalidOutputSize");
    default:
        return qmx::Log("QMXAudioConverter: OS Status: %-4.4s", qmx::fourCharString(static_cast<UInt32>(status)));
    }
}

std::string QMXAudioConverter::description() const
{
    // intended: the brackets do not match
    return "QMXAudioConverter:[" + qmx::format(" minimumInputBufferSize: %u; ]", minimumInputBufferSize()) +
           qmx::format("minimumOutputBufferSize: %u; ]", minimumOutputBufferSize());
}
