// SPDX-License-Identifier: MIT
#include "Processing/QMXAudioConverter.h"

#include "CoreAudio/AudioHardware.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/FailureLine.h"
#include "Foundation/Text/Format.h"
#include "Foundation/Text/Log.h"

#include <algorithm>
#include <utility>

const UInt32 MAX_FRAMES_PER_SLICE = 8192;

namespace
{

// intended: the names in these lines are not this file's
constexpr qmx::FailureLine report("Halcyra", "coreaudio_aac/src/QMXAudioConverter");

constexpr ComponentDescription defaultOutput{kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput,
                                             kAudioUnitManufacturer_Apple};
constexpr ComponentDescription converterUnit{kAudioUnitType_FormatConverter, kAudioUnitSubType_AUConverter,
                                             kAudioUnitManufacturer_Apple};

OSStatus setFormat(AudioUnit unit, AudioUnitScope scope, const AudioStreamBasicDescription& format)
{
    return AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, scope, 0, &format, sizeof format);
}

OSStatus setMaximumFrames(AudioUnit unit)
{
    return AudioUnitSetProperty(unit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0,
                                &MAX_FRAMES_PER_SLICE, sizeof MAX_FRAMES_PER_SLICE);
}

/// The bytes of one of `count` equal pieces that the buffers have room for, in each buffer.
UInt64 bytesOfEach(const AudioBufferList& data, UInt32 count)
{
    return data.mNumberBuffers > 0 && count > 0 ? data.mBuffers[0].mDataByteSize / count : 0;
}

/// Cuts the buffers down to `bytes` each, where they hold more.
void keepAtMost(UInt64 bytes, AudioBufferList& data)
{
    AudioBuffer* const buffers = data.mBuffers;
    for (UInt32 i = 0; i < data.mNumberBuffers; ++i)
        buffers[i].mDataByteSize = static_cast<UInt32>(std::min<UInt64>(buffers[i].mDataByteSize, bytes));
}

} // namespace

QMXAudioConverterDelegate::~QMXAudioConverterDelegate() = default;

std::shared_ptr<QMXAudioConverter> QMXAudioConverter::initWithSourceFormat_destinationFormat(
    std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
    std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat)
{
    if (!sourceFormat || !destinationFormat)
        return nullptr;
    auto object = qmx::withinMemory(std::shared_ptr<QMXAudioConverter>(), [&] {
        return std::shared_ptr<QMXAudioConverter>(
            new QMXAudioConverter(std::move(sourceFormat), std::move(destinationFormat)));
    });
    if (!object)
        return nullptr;
    object->setupGraph();
    const OSStatus status =
        AudioConverterNew(object->mSourceFormat->audioStreamBasicDescription(),
                          object->mDestinationFormat->audioStreamBasicDescription(), &object->audioConverter);
    return status == noErr ? object : nullptr;
}

std::shared_ptr<QMXAudioConverter> QMXAudioConverter::initWithDelegate_sourceFormat_destinationFormat(
    std::shared_ptr<QMXAudioConverterDelegate> delegate, std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
    std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat)
{
    auto object = initWithSourceFormat_destinationFormat(std::move(sourceFormat), std::move(destinationFormat));
    if (object)
        object->mDelegate = std::move(delegate);
    return object;
}

QMXAudioConverter::QMXAudioConverter(std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
                                     std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat)
    : mSourceFormat(std::move(sourceFormat)), mDestinationFormat(std::move(destinationFormat)),
      mAUSourceFormat(std::make_unique<AudioStreamBasicDescription>(*mSourceFormat->audioStreamBasicDescription())),
      mAUDestinationFormat(
          std::make_unique<AudioStreamBasicDescription>(*mDestinationFormat->audioStreamBasicDescription())),
      mAUInternalFormat(std::make_unique<AudioStreamBasicDescription>())
{
}

QMXAudioConverter::~QMXAudioConverter()
{
    AudioConverterDispose(audioConverter);
    AUGraphStop(mGraph);
    AUGraphClose(mGraph);
    DisposeAUGraph(mGraph);
}

/// Builds the pull chain. Every step is tried, whatever became of those before it.
void QMXAudioConverter::setupGraph()
{
    report(NewAUGraph(&mGraph));
    report(AUGraphOpen(mGraph));
    makeGraph();
    const AURenderCallbackStruct input{AudioDataInputProc, this};
    report(AudioUnitSetProperty(mInputUnit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0, &input,
                                sizeof input));
    report(AUGraphUpdate(mGraph, nullptr));
    report(AUGraphInitialize(mGraph));
    report(AUGraphStart(mGraph));
}

void QMXAudioConverter::makeGraph()
{
    setupInternalStreamFormat();
    report(AUGraphNewNode(mGraph, &converterUnit, 0, nullptr, &mInputNode));
    report(AUGraphNewNode(mGraph, &converterUnit, 0, nullptr, &mOutputNode));
    report(AUGraphGetNodeInfo(mGraph, mInputNode, nullptr, nullptr, nullptr, &mInputUnit));
    report(AUGraphGetNodeInfo(mGraph, mOutputNode, nullptr, nullptr, nullptr, &mOutputUnit));
    report(AUGraphUpdate(mGraph, nullptr));
    setupAudioFormats();
    connectAudioUnits();
}

/// The canonical format is what the default output unit takes; the unit is opened for this question only.
void QMXAudioConverter::setupInternalStreamFormat()
{
    AudioUnit unit = nullptr;
    report(OpenAComponent(FindNextComponent(nullptr, &defaultOutput), &unit));
    report(AudioUnitInitialize(unit));
    UInt32 size = sizeof *mAUInternalFormat;
    report(AudioUnitGetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                                mAUInternalFormat.get(), &size));
    Float64 deviceRate = 0; // intended: asked for and not used
    size = sizeof deviceRate;
    report(AudioUnitGetProperty(unit, kAudioDevicePropertyNominalSampleRate, kAudioUnitScope_Input, 0, &deviceRate,
                                &size));
    report(AudioUnitUninitialize(unit));
    report(CloseComponent(unit));
}

void QMXAudioConverter::setupAudioFormats()
{
    AudioStreamBasicDescription atSourceRate = *mAUInternalFormat;
    atSourceRate.mSampleRate = mAUSourceFormat->mSampleRate;
    mChainTakesSource = report(setFormat(mInputUnit, kAudioUnitScope_Input, *mAUSourceFormat)) == noErr;
    report(setFormat(mInputUnit, kAudioUnitScope_Output, atSourceRate));
    report(setFormat(mOutputUnit, kAudioUnitScope_Input, *mAUInternalFormat));
    report(setFormat(mOutputUnit, kAudioUnitScope_Output, *mAUDestinationFormat));
    report(setMaximumFrames(mInputUnit));
    report(setMaximumFrames(mOutputUnit));
}

void QMXAudioConverter::connectAudioUnits()
{
    report(AUGraphConnectNodeInput(mGraph, mInputNode, 0, mOutputNode, 0));
}

OSStatus QMXAudioConverter::fillComplexBuffer_buffer_packetDescription(const UInt32* frameCount,
                                                                       AudioBufferList* buffer,
                                                                       AudioStreamPacketDescription*)
{
    if (!frameCount)
        return kAudio_ParamError;
    AudioUnitRenderActionFlags flags = 0;
    const AudioTimeStamp zero;
    return AudioUnitRender(mOutputUnit, &flags, &zero, 0, *frameCount, buffer);
}

OSStatus QMXAudioConverter::render_numberFrames_ioData(const AudioTimeStamp* timeStamp, UInt32 numberFrames,
                                                       AudioBufferList* data)
{
    return AudioUnitRender(mInputUnit, nullptr, timeStamp, 0, numberFrames, data);
}

OSStatus QMXAudioConverter::audioUnitCallback_timeStamp_busNumber_numFrames_data(AudioUnitRenderActionFlags*,
                                                                                 const AudioTimeStamp*, UInt32,
                                                                                 UInt32 numberFrames,
                                                                                 AudioBufferList* data)
{
    if (!data)
        return kAudio_ParamError;
    const UInt32 framesPerPacket = mAUSourceFormat->mFramesPerPacket;
    const UInt32 asked = framesPerPacket > 0 ? numberFrames / framesPerPacket : 0;
    const UInt64 bytesPerPacket = bytesOfEach(*data, numberFrames) * framesPerPacket;
    UInt32 packets = asked;
    const OSStatus status = audioConverterCallback_data_packetDescription(&packets, data, nullptr);
    keepAtMost(mChainTakesSource ? std::min(packets, asked) * bytesPerPacket : 0, *data);
    return status;
}

OSStatus
QMXAudioConverter::audioConverterCallback_data_packetDescription(UInt32* packetCount, AudioBufferList* data,
                                                                 AudioStreamPacketDescription** packetDescriptions)
{
    return mDelegate ? mDelegate->audioConverterCallback_data_packetDescription(packetCount, data, packetDescriptions)
                     : noErr;
}

OSStatus AudioDataInputProc(void* converter, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* timeStamp,
                            UInt32 busNumber, UInt32 numberFrames, AudioBufferList* data)
{
    return static_cast<QMXAudioConverter*>(converter)->audioUnitCallback_timeStamp_busNumber_numFrames_data(
        flags, timeStamp, busNumber, numberFrames, data);
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
