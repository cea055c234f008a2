// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/AudioConverter.h"
#include "Foundation/Export.h"
#include "Foundation/Object.h"

#include <memory>

class QMXAudioStreamBasicDescription;

/// Converts audio data from a source format to a destination format, whole buffers at a time. With a change of the sample
/// rate consecutive calls are one stream until `reset`. One thread at a time per object; not for render threads.
class QMX_EXPORT QMXAudioConverter : public qmx::Object
{
public:
    /// Null where the platform cannot convert between the two. Keeps both format objects.
    static std::shared_ptr<QMXAudioConverter>
    initWithSourceFormat_destinationFormat(std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
                                           std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat);
    ~QMXAudioConverter() override;

    /// The platform converter, which stays this object's.
    AudioConverterRef converter() const { return audioConverter; }

    /// Bytes of the smallest useful buffer; 0 on failure.
    UInt32 minimumInputBufferSize() const;
    UInt32 minimumOutputBufferSize() const;
    /// Input bytes needed for so many output bytes; the given size itself on failure.
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

    /// Converts all `inputBufferSize` bytes; `*outputBufferSize` is the room in bytes and becomes the bytes made. 0 input
    /// bytes drain the rate conversion. Gives the platform's status; 0 without converting when either buffer is null.
    OSStatus convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(const void* inputBuffer,
                                                                         UInt32 inputBufferSize, void* outputBuffer,
                                                                         UInt32* outputBufferSize);

    /// Logs a converter status by name.
    static void printOSStatusCode(OSStatus status);

    std::string description() const override;

private:
    QMXAudioConverter(AudioConverterRef converter, std::shared_ptr<QMXAudioStreamBasicDescription> sourceFormat,
                      std::shared_ptr<QMXAudioStreamBasicDescription> destinationFormat);

    UInt32 property(AudioConverterPropertyID property, UInt32 valueAtFirst) const;

    AudioConverterRef audioConverter;
    std::shared_ptr<QMXAudioStreamBasicDescription> mSourceFormat;
    std::shared_ptr<QMXAudioStreamBasicDescription> mDestinationFormat;
};
