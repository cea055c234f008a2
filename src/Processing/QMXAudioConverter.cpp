// SPDX-License-Identifier: MIT
#include "Processing/QMXAudioConverter.h"

#include "CoreAudio/AudioHardware.h"
#include "Formats/LastFailure.h"
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

constexpr auto cannotConvert = "could not convert";

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

/// The bytes of one of `count` equal pieces that a buffer has room for; all buffers are sized like the first.
UInt64 bytesOfEach(const AudioBufferList& data, UInt32 count)
{
    return data.mNumberBuffers > 0 && count > 0 ? data.mBuffers[0].mDataByteSize / count : 0;
}

/// Cuts each buffer down to at most `bytes`.
void keepAtMost(UInt64 bytes, AudioBufferList& data)
{
    AudioBuffer* const buffers = data.mBuffers;
    for (UInt32 i = 0; i < data.mNumberBuffers; ++i)
        buffers[i].mDataByteSize = static_cast<UInt32>(std::min<UInt64>(buffers[i].mDataByteSize, bytes));
}

class QMXAudioConverterImpl final : public QMXAudioConverter
{
public:
    QMXAudioConverterImpl(std::shared_ptr<QMXAudioConverterDelegate> delegate,
                          std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
                          std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat);
    ~QMXAudioConverterImpl() override;

    /// Makes both routes; returns whether the platform can convert at all.
    bool setUp();

    OSStatus lastStatus() const override { return failure_.status(); }
    std::string lastError() const override { return failure_.sentence(); }
    AudioConverterRef converter() const override { return audioConverter; }
    UInt32 minimumInputBufferSize() const override;
    UInt32 minimumOutputBufferSize() const override;
    UInt32 calculateInputBufferSize(UInt32 outputBufferSize) const override;
    UInt32 calculateOutputBufferSize(UInt32 inputBufferSize) const override;
    UInt32 sampleRateConverterQuality() const override;
    void setSampleRateConverterQuality(UInt32 quality) override;
    void setMagicCookie_length(const void* magicCookie, UInt32 length) override;
    void reset() override;
    OSStatus convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(const void* inputBuffer,
                                                                         UInt32 inputBufferSize, void* outputBuffer,
                                                                         UInt32* outputBufferSize) override;
    OSStatus fillComplexBuffer_buffer_packetDescription(const UInt32* frameCount, AudioBufferList* buffer,
                                                        AudioStreamPacketDescription* packetDescription) override;
    OSStatus render_numberFrames_ioData(const AudioTimeStamp* timeStamp, UInt32 numberFrames,
                                        AudioBufferList* data) override;
    OSStatus audioUnitCallback_timeStamp_busNumber_numFrames_data(AudioUnitRenderActionFlags* flags,
                                                                  const AudioTimeStamp* timeStamp, UInt32 busNumber,
                                                                  UInt32 numberFrames, AudioBufferList* data) override;
    OSStatus audioConverterCallback_data_packetDescription(UInt32* packetCount, AudioBufferList* data,
                                                           AudioStreamPacketDescription** packetDescriptions) override;
    std::string description() const override;

private:
    void setupGraph();
    void makeGraph();
    void setupInternalStreamFormat();
    void setupAudioFormats();
    void connectAudioUnits();
    OSStatus reported(OSStatus status, unsigned line = __builtin_LINE());
    OSStatus told(OSStatus status, const char* whatFailed) const;
    UInt32 property(AudioConverterPropertyID property, UInt32 valueAtFirst) const;

    AudioConverterRef audioConverter = nullptr;
    std::shared_ptr<QMXAudioStreamBasicDescription> mSourceFormat;
    std::shared_ptr<QMXAudioStreamBasicDescription> mDestinationFormat;
    AudioStreamBasicDescription mAUSourceFormat;
    AudioStreamBasicDescription mAUDestinationFormat;
    AudioStreamBasicDescription mAUInternalFormat; ///< between the units, but for its rate
    AUGraph mGraph = nullptr;
    AudioUnit mInputUnit = nullptr;
    AUNode mInputNode = 0;
    [[maybe_unused]] AudioUnit mVarispeedUnit = nullptr; ///< there is no such stage
    [[maybe_unused]] AUNode mVarispeedNode = 0;
    AudioUnit mOutputUnit = nullptr;
    AUNode mOutputNode = 0;
    std::shared_ptr<QMXAudioConverterDelegate> mDelegate;
    bool mChainTakesSource = false; ///< the chain accepts the source format
    mutable qmx::LastFailure failure_;
};

QMXAudioConverterImpl::QMXAudioConverterImpl(std::shared_ptr<QMXAudioConverterDelegate> delegate,
                                             std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
                                             std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat)
    : mSourceFormat(std::move(sourceFormat)), mDestinationFormat(std::move(destinationFormat)),
      mAUSourceFormat(*mSourceFormat->audioStreamBasicDescription()),
      mAUDestinationFormat(*mDestinationFormat->audioStreamBasicDescription()), mDelegate(std::move(delegate))
{
}

QMXAudioConverterImpl::~QMXAudioConverterImpl()
{
    // nobody is left to be told
    (void)AudioConverterDispose(audioConverter);
    (void)AUGraphStop(mGraph);
    (void)AUGraphClose(mGraph);
    (void)DisposeAUGraph(mGraph);
}

bool QMXAudioConverterImpl::setUp()
{
    setupGraph();
    return AudioConverterNew(&mAUSourceFormat, &mAUDestinationFormat, &audioConverter) == noErr;
}

/// Prints a failing step of the set-up and keeps the first.
OSStatus QMXAudioConverterImpl::reported(OSStatus status, unsigned line)
{
    return failure_.keepFirst(report(status, line), "The pull chain", "could not be made");
}

OSStatus QMXAudioConverterImpl::told(OSStatus status, const char* whatFailed) const
{
    return failure_.keepFirst(status, "The converter", whatFailed);
}

/// Builds the pull chain. Every step is tried, even after one that failed.
void QMXAudioConverterImpl::setupGraph()
{
    reported(NewAUGraph(&mGraph));
    reported(AUGraphOpen(mGraph));
    makeGraph();
    const AURenderCallbackStruct input{AudioDataInputProc, static_cast<QMXAudioConverter*>(this)};
    reported(AudioUnitSetProperty(mInputUnit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0, &input,
                                  sizeof input));
    reported(AUGraphUpdate(mGraph, nullptr));
    reported(AUGraphInitialize(mGraph));
    reported(AUGraphStart(mGraph));
}

void QMXAudioConverterImpl::makeGraph()
{
    setupInternalStreamFormat();
    reported(AUGraphNewNode(mGraph, &converterUnit, 0, nullptr, &mInputNode));
    reported(AUGraphNewNode(mGraph, &converterUnit, 0, nullptr, &mOutputNode));
    reported(AUGraphGetNodeInfo(mGraph, mInputNode, nullptr, nullptr, nullptr, &mInputUnit));
    reported(AUGraphGetNodeInfo(mGraph, mOutputNode, nullptr, nullptr, nullptr, &mOutputUnit));
    reported(AUGraphUpdate(mGraph, nullptr));
    setupAudioFormats();
    connectAudioUnits();
}

/// The canonical format is what the default output unit takes; the unit is opened for this question only.
void QMXAudioConverterImpl::setupInternalStreamFormat()
{
    AudioUnit unit = nullptr;
    reported(OpenAComponent(FindNextComponent(nullptr, &defaultOutput), &unit));
    reported(AudioUnitInitialize(unit));
    UInt32 size = sizeof mAUInternalFormat;
    reported(AudioUnitGetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0, &mAUInternalFormat,
                                  &size));
    Float64 deviceRate = 0; // intended: queried but not used
    size = sizeof deviceRate;
    reported(AudioUnitGetProperty(unit, kAudioDevicePropertyNominalSampleRate, kAudioUnitScope_Input, 0, &deviceRate,
                                  &size));
    reported(AudioUnitUninitialize(unit));
    reported(CloseComponent(unit));
}

void QMXAudioConverterImpl::setupAudioFormats()
{
    AudioStreamBasicDescription atSourceRate = mAUInternalFormat;
    atSourceRate.mSampleRate = mAUSourceFormat.mSampleRate;
    mChainTakesSource = reported(setFormat(mInputUnit, kAudioUnitScope_Input, mAUSourceFormat)) == noErr;
    reported(setFormat(mInputUnit, kAudioUnitScope_Output, atSourceRate));
    reported(setFormat(mOutputUnit, kAudioUnitScope_Input, mAUInternalFormat));
    reported(setFormat(mOutputUnit, kAudioUnitScope_Output, mAUDestinationFormat));
    reported(setMaximumFrames(mInputUnit));
    reported(setMaximumFrames(mOutputUnit));
}

void QMXAudioConverterImpl::connectAudioUnits()
{
    reported(AUGraphConnectNodeInput(mGraph, mInputNode, 0, mOutputNode, 0));
}

OSStatus QMXAudioConverterImpl::fillComplexBuffer_buffer_packetDescription(const UInt32* frameCount,
                                                                           AudioBufferList* buffer,
                                                                           AudioStreamPacketDescription*)
{
    if (!frameCount)
        return kAudio_ParamError;
    AudioUnitRenderActionFlags flags = 0;
    const AudioTimeStamp zero;
    return AudioUnitRender(mOutputUnit, &flags, &zero, 0, *frameCount, buffer);
}

OSStatus QMXAudioConverterImpl::render_numberFrames_ioData(const AudioTimeStamp* timeStamp, UInt32 numberFrames,
                                                           AudioBufferList* data)
{
    return AudioUnitRender(mInputUnit, nullptr, timeStamp, 0, numberFrames, data);
}

OSStatus QMXAudioConverterImpl::audioUnitCallback_timeStamp_busNumber_numFrames_data(AudioUnitRenderActionFlags*,
                                                                                     const AudioTimeStamp*, UInt32,
                                                                                     UInt32 numberFrames,
                                                                                     AudioBufferList* data)
{
    if (!data)
        return kAudio_ParamError;
    const UInt32 framesPerPacket = mAUSourceFormat.mFramesPerPacket;
    const UInt32 asked = framesPerPacket > 0 ? numberFrames / framesPerPacket : 0;
    const UInt64 bytesPerPacket = bytesOfEach(*data, numberFrames) * framesPerPacket;
    UInt32 packets = asked;
    const OSStatus status = audioConverterCallback_data_packetDescription(&packets, data, nullptr);
    keepAtMost(mChainTakesSource ? std::min(packets, asked) * bytesPerPacket : 0, *data);
    return status;
}

OSStatus
QMXAudioConverterImpl::audioConverterCallback_data_packetDescription(UInt32* packetCount, AudioBufferList* data,
                                                                     AudioStreamPacketDescription** packetDescriptions)
{
    return mDelegate ? mDelegate->audioConverterCallback_data_packetDescription(packetCount, data, packetDescriptions)
                     : noErr;
}

UInt32 QMXAudioConverterImpl::minimumInputBufferSize() const
{
    return property(kAudioConverterPropertyMinimumInputBufferSize, 0);
}

UInt32 QMXAudioConverterImpl::minimumOutputBufferSize() const
{
    return property(kAudioConverterPropertyMinimumOutputBufferSize, 0);
}

UInt32 QMXAudioConverterImpl::calculateInputBufferSize(UInt32 outputBufferSize) const
{
    return property(kAudioConverterPropertyCalculateInputBufferSize, outputBufferSize);
}

UInt32 QMXAudioConverterImpl::calculateOutputBufferSize(UInt32 inputBufferSize) const
{
    return property(kAudioConverterPropertyCalculateOutputBufferSize, inputBufferSize);
}

UInt32 QMXAudioConverterImpl::sampleRateConverterQuality() const
{
    return property(kAudioConverterSampleRateConverterQuality, 0);
}

/// The property's value; `valueAtFirst` when the platform fails.
UInt32 QMXAudioConverterImpl::property(AudioConverterPropertyID property, UInt32 valueAtFirst) const
{
    const qmx::LastFailure::Operation operation(failure_);
    UInt32 value = valueAtFirst;
    UInt32 size = sizeof value;
    const OSStatus status =
        told(AudioConverterGetProperty(audioConverter, property, &size, &value), "could not answer");
    return status == noErr ? value : valueAtFirst;
}

void QMXAudioConverterImpl::setSampleRateConverterQuality(UInt32 quality)
{
    const qmx::LastFailure::Operation operation(failure_);
    told(AudioConverterSetProperty(audioConverter, kAudioConverterSampleRateConverterQuality, sizeof quality, &quality),
         "could not be given a quality");
}

void QMXAudioConverterImpl::setMagicCookie_length(const void*, UInt32)
{
    // intended: no cookie reaches the converter, the quality becomes the lowest
    setSampleRateConverterQuality(0);
}

void QMXAudioConverterImpl::reset()
{
    const qmx::LastFailure::Operation operation(failure_);
    told(AudioConverterReset(audioConverter), "could not begin again");
}

OSStatus QMXAudioConverterImpl::convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(const void* inputBuffer,
                                                                                            UInt32 inputBufferSize,
                                                                                            void* outputBuffer,
                                                                                            UInt32* outputBufferSize)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (!inputBuffer)
        qmx::Log("*** WARNING *** QMXAudioConverter:convertBuffer  input is NULL");
    if (!outputBuffer)
        qmx::Log("*** WARNING *** QMXAudioConverter:convertBuffer  output buffer is NULL");
    if (!inputBuffer || !outputBuffer) {
        told(kAudio_ParamError, cannotConvert);
        return noErr; // intended
    }
    const OSStatus status =
        told(AudioConverterConvertBuffer(audioConverter, inputBufferSize, inputBuffer, outputBufferSize, outputBuffer),
             cannotConvert);
    if (status != noErr) {
        qmx::Log("*** ERROR *** QMXAudioConverter:convertBuffer");
        printOSStatusCode(status);
    }
    return status;
}

std::string QMXAudioConverterImpl::description() const
{
    // intended: the brackets do not match
    return "QMXAudioConverter:[" + qmx::format(" minimumInputBufferSize: %u; ]", minimumInputBufferSize()) +
           qmx::format("minimumOutputBufferSize: %u; ]", minimumOutputBufferSize());
}

} // namespace

QMXAudioConverterDelegate::~QMXAudioConverterDelegate() = default;

std::shared_ptr<QMXAudioConverter> QMXAudioConverter::initWithSourceFormat_destinationFormat(
    std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
    std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat)
{
    return initWithDelegate_sourceFormat_destinationFormat(nullptr, std::move(sourceFormat),
                                                           std::move(destinationFormat));
}

std::shared_ptr<QMXAudioConverter> QMXAudioConverter::initWithDelegate_sourceFormat_destinationFormat(
    std::shared_ptr<QMXAudioConverterDelegate> delegate, std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
    std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat)
{
    if (!sourceFormat || !destinationFormat)
        return nullptr;
    const auto object = qmx::withinMemory(std::shared_ptr<QMXAudioConverterImpl>(), [&] {
        return std::make_shared<QMXAudioConverterImpl>(std::move(delegate), std::move(sourceFormat),
                                                       std::move(destinationFormat));
    });
    return object && object->setUp() ? object : nullptr;
}

OSStatus AudioDataInputProc(void* converter, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* timeStamp,
                            UInt32 busNumber, UInt32 numberFrames, AudioBufferList* data)
{
    return static_cast<QMXAudioConverter*>(converter)->audioUnitCallback_timeStamp_busNumber_numFrames_data(
        flags, timeStamp, busNumber, numberFrames, data);
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
