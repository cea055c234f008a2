// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/AudioToolbox/AudioConverter.h>
#include <QMXCoreAudio/AudioUnit/AUGraph.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>
#include <string>

class QMXAudioStreamBasicDescription;

/// Maximum frames in one slice of a converter's pull chain.
QMX_EXPORT extern const UInt32 MAX_FRAMES_PER_SLICE;

/// Supplies the source data of a converter's pull chain. Programs derive from it.
class QMX_EXPORT QMXAudioConverterDelegate
{
public:
    virtual ~QMXAudioConverterDelegate();

    /// Fills the buffers of `data`, which have room for `*packetCount` packets in the source format, or points them at
    /// data that stay valid until the next call, and sets the packet count and the byte sizes to what it supplied. If
    /// the two differ, the smaller one holds. Missing packets are silence; after a result other than 0, which
    /// `fillComplexBuffer` passes on, all of them are. No packet descriptions are requested. Called on the thread that
    /// pulls the chain.
    [[nodiscard]] virtual OSStatus
    audioConverterCallback_data_packetDescription(UInt32* packetCount, AudioBufferList* data,
                                                  AudioStreamPacketDescription** packetDescriptions) = 0;
};

/// Converts audio data from a source format to a destination format, by two independent routes.
///
/// Whole buffers: `convertBuffer` converts what it is given. When the sample rate changes, consecutive calls are one
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
    /// Null if the platform cannot convert between the two. Keeps both format objects.
    static std::shared_ptr<QMXAudioConverter>
    initWithSourceFormat_destinationFormat(std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
                                           std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat);
    /// The same with a delegate for the pull chain, which is kept too. Without one the chain delivers silence.
    static std::shared_ptr<QMXAudioConverter>
    initWithDelegate_sourceFormat_destinationFormat(std::shared_ptr<QMXAudioConverterDelegate> delegate,
                                                    std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
                                                    std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat);

    /// The status of what failed in the last operation that can fail, even if its result hides it: making the pull
    /// chain of a new object, a missing buffer, a refused setting. 0 if nothing failed. Rendering leaves this
    /// unchanged: its results report failures. Any thread but the real-time ones.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people, empty when nothing failed. Any thread but those.
    virtual std::string lastError() const = 0;

    /// The platform's converter, which this object owns.
    virtual AudioConverterRef converter() const = 0;

    /// Bytes of the smallest useful buffer; 0 on failure.
    virtual UInt32 minimumInputBufferSize() const = 0;
    virtual UInt32 minimumOutputBufferSize() const = 0;
    /// Input bytes needed for `outputBufferSize` output bytes. When the sample rate changes, they suffice in
    /// mid-stream; at its start the filter holds some back. Converting them in one call takes the room that
    /// `calculateOutputBufferSize` returns for them. On failure, `outputBufferSize` itself.
    virtual UInt32 calculateInputBufferSize(UInt32 outputBufferSize) const = 0;
    /// Maximum output bytes from `inputBufferSize` input bytes; on failure, `inputBufferSize` itself.
    virtual UInt32 calculateOutputBufferSize(UInt32 inputBufferSize) const = 0;

    /// 0 to 127; 0 on failure.
    virtual UInt32 sampleRateConverterQuality() const = 0;
    virtual void setSampleRateConverterQuality(UInt32 quality) = 0;
    /// Sets the quality of the rate conversion to 0. The arguments are not used.
    virtual void setMagicCookie_length(const void* magicCookie, UInt32 length) = 0;

    /// Forgets what the rate conversion holds: the next buffer starts a new stream.
    virtual void reset() = 0;

    /// Converts all `inputBufferSize` bytes; `*outputBufferSize` is the room in bytes and becomes the bytes made. 0
    /// input bytes drain the rate conversion. Returns the platform's status; 0 without converting when either buffer is
    /// null.
    [[nodiscard]] virtual OSStatus
    convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(const void* inputBuffer, UInt32 inputBufferSize,
                                                                void* outputBuffer, UInt32* outputBufferSize) = 0;

    /// Pulls `*frameCount` frames (at most MAX_FRAMES_PER_SLICE) in the destination format out of the chain's end. The
    /// buffers' sizes are their room in bytes and become the bytes made. Frames that the delegate does not supply are
    /// silence; the first status it fails with is the result. The packet description is not used.
    [[nodiscard]] virtual OSStatus
    fillComplexBuffer_buffer_packetDescription(const UInt32* frameCount, AudioBufferList* buffer,
                                               AudioStreamPacketDescription* packetDescription) = 0;
    /// Pulls frames in the canonical format at the source's rate, out of the chain's middle.
    [[nodiscard]] virtual OSStatus render_numberFrames_ioData(const AudioTimeStamp* timeStamp, UInt32 numberFrames,
                                                              AudioBufferList* data) = 0;

    /// The chain's input: asks the delegate for the whole packets that `numberFrames` frames of the source format
    /// contain.
    [[nodiscard]] virtual OSStatus
    audioUnitCallback_timeStamp_busNumber_numFrames_data(AudioUnitRenderActionFlags* flags,
                                                         const AudioTimeStamp* timeStamp, UInt32 busNumber,
                                                         UInt32 numberFrames, AudioBufferList* data) = 0;
    /// Forwards the request to the delegate.
    [[nodiscard]] virtual OSStatus
    audioConverterCallback_data_packetDescription(UInt32* packetCount, AudioBufferList* data,
                                                  AudioStreamPacketDescription** packetDescriptions) = 0;

    /// Logs a converter status by name.
    static void printOSStatusCode(OSStatus status);
};

/// The render callback of a chain's input; `converter` is its QMXAudioConverter.
[[nodiscard]] QMX_EXPORT OSStatus AudioDataInputProc(void* converter, AudioUnitRenderActionFlags* flags,
                                                     const AudioTimeStamp* timeStamp, UInt32 busNumber,
                                                     UInt32 numberFrames, AudioBufferList* data);
