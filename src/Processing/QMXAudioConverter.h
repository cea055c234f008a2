// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/AudioConverter.h"
#include "AudioUnit/AUGraph.h"
#include "Foundation/Export.h"
#include "Foundation/Object.h"

#include <memory>

class QMXAudioStreamBasicDescription;

/// The frames of one slice of a converter's pull chain at most.
QMX_EXPORT extern const UInt32 MAX_FRAMES_PER_SLICE;

/// Supplies the source data of a converter's pull chain.
class QMX_EXPORT QMXAudioConverterDelegate
{
public:
    virtual ~QMXAudioConverterDelegate();

    /// Fills the buffers of `data`, which have room for `*packetCount` packets in the source format, or points them at
    /// data that stay valid until the next call, and sets the packet count and the byte sizes to what it gives. Where
    /// the two differ the smaller one holds. What is missing is silence; after a result other than 0, which
    /// `fillComplexBuffer` passes on, all of it is. No packet descriptions are asked for. Called on the thread that
    /// pulls the chain.
    virtual OSStatus
    audioConverterCallback_data_packetDescription(UInt32* packetCount, AudioBufferList* data,
                                                  AudioStreamPacketDescription** packetDescriptions) = 0;
};

/// Converts audio data from a source format to a destination format, by two routes that know nothing of each other.
///
/// Whole buffers: `convertBuffer` converts what it is given. With a change of the sample rate consecutive calls are one
/// stream until `reset`. One thread at a time; not for render threads.
///
/// The pull chain: `fillComplexBuffer` asks the delegate for as much source data as it needs. Two converter units in a
/// graph bring them to the canonical format (stereo float) at the source's rate, and from there to the destination. One
/// thread at a time, which may be a render thread if the delegate is fit for one. Failing calls while the chain is
/// built print a line on standard error each; a chain that cannot take the source format (compressed data) still asks
/// the delegate, and delivers silence.
class QMX_EXPORT QMXAudioConverter : public qmx::Object
{
public:
    /// Null where the platform cannot convert between the two. Keeps both format objects.
    static std::shared_ptr<QMXAudioConverter>
    initWithSourceFormat_destinationFormat(std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
                                           std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat);
    /// The same with a source of data for the pull chain, which is kept too. Without one the chain delivers silence.
    static std::shared_ptr<QMXAudioConverter>
    initWithDelegate_sourceFormat_destinationFormat(std::shared_ptr<QMXAudioConverterDelegate> delegate,
                                                    std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
                                                    std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat);
    ~QMXAudioConverter() override;

    /// The platform converter, which stays this object's.
    AudioConverterRef converter() const { return audioConverter; }

    /// Bytes of the smallest useful buffer; 0 on failure.
    UInt32 minimumInputBufferSize() const;
    UInt32 minimumOutputBufferSize() const;
    /// Input bytes needed for `outputBufferSize` output bytes. With a change of the sample rate they last for them in
    /// mid-stream; at its start the filter holds some back. Converting them in one call takes the room that
    /// `calculateOutputBufferSize` gives for them. The given size itself on failure.
    UInt32 calculateInputBufferSize(UInt32 outputBufferSize) const;
    /// Output bytes that so many input bytes give at most; the given size itself on failure.
    UInt32 calculateOutputBufferSize(UInt32 inputBufferSize) const;

    /// 0 to 127; 0 on failure.
    UInt32 sampleRateConverterQuality() const;
    void setSampleRateConverterQuality(UInt32 quality);
    /// Sets the quality of the rate conversion to 0. The arguments are not used.
    void setMagicCookie_length(const void* magicCookie, UInt32 length);

    /// Forgets what the rate conversion holds: the next buffer begins a new stream.
    void reset();

    /// Converts all `inputBufferSize` bytes; `*outputBufferSize` is the room in bytes and becomes the bytes made. 0
    /// input bytes drain the rate conversion. Gives the platform's status; 0 without converting when either buffer is
    /// null.
    OSStatus convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(const void* inputBuffer,
                                                                         UInt32 inputBufferSize, void* outputBuffer,
                                                                         UInt32* outputBufferSize);

    /// Pulls `*frameCount` frames (at most MAX_FRAMES_PER_SLICE) in the destination format out of the chain's end. The
    /// buffers' sizes are their room in bytes and become the bytes made. What the delegate does not give is silence;
    /// the first status it fails with is the result. The packet description is not used.
    OSStatus fillComplexBuffer_buffer_packetDescription(const UInt32* frameCount, AudioBufferList* buffer,
                                                        AudioStreamPacketDescription* packetDescription);
    /// Pulls frames in the canonical format at the source's rate, out of the chain's middle.
    OSStatus render_numberFrames_ioData(const AudioTimeStamp* timeStamp, UInt32 numberFrames, AudioBufferList* data);

    /// The chain's input: asks the delegate for the packets that `numberFrames` frames of the source format are, part
    /// packets not counted.
    OSStatus audioUnitCallback_timeStamp_busNumber_numFrames_data(AudioUnitRenderActionFlags* flags,
                                                                  const AudioTimeStamp* timeStamp, UInt32 busNumber,
                                                                  UInt32 numberFrames, AudioBufferList* data);
    /// Hands the question on to the delegate.
    OSStatus audioConverterCallback_data_packetDescription(UInt32* packetCount, AudioBufferList* data,
                                                           AudioStreamPacketDescription** packetDescriptions);

    /// Logs a converter status by name.
    static void printOSStatusCode(OSStatus status);

    std::string description() const override;

private:
    QMXAudioConverter(std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
                      std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat);

    void setupGraph();
    void makeGraph();
    void setupInternalStreamFormat();
    void setupAudioFormats();
    void connectAudioUnits();

    UInt32 property(AudioConverterPropertyID property, UInt32 valueAtFirst) const;

    AudioConverterRef audioConverter = nullptr;
    std::shared_ptr<QMXAudioStreamBasicDescription> mSourceFormat;
    std::shared_ptr<QMXAudioStreamBasicDescription> mDestinationFormat;
    std::unique_ptr<AudioStreamBasicDescription> mAUSourceFormat;
    std::unique_ptr<AudioStreamBasicDescription> mAUDestinationFormat;
    std::unique_ptr<AudioStreamBasicDescription> mAUInternalFormat; ///< between the units, but for its rate
    AUGraph mGraph = nullptr;
    AudioUnit mInputUnit = nullptr;
    AUNode mInputNode = 0;
    [[maybe_unused]] AudioUnit mVarispeedUnit = nullptr; ///< there is no such stage
    [[maybe_unused]] AUNode mVarispeedNode = 0;
    AudioUnit mOutputUnit = nullptr;
    AUNode mOutputNode = 0;
    std::shared_ptr<QMXAudioConverterDelegate> mDelegate;
    bool mChainTakesSource = false; ///< the chain can make sound of what the delegate gives
};

/// The render callback of a chain's input; `converter` is its QMXAudioConverter.
QMX_EXPORT OSStatus AudioDataInputProc(void* converter, AudioUnitRenderActionFlags* flags,
                                       const AudioTimeStamp* timeStamp, UInt32 busNumber, UInt32 numberFrames,
                                       AudioBufferList* data);
