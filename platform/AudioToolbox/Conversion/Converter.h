// SPDX-License-Identifier: MIT
// A converter between two formats over buffers and buffer lists: one frame converter at equal rates, a rate chain
// otherwise.
#pragma once

#include "AudioToolbox/AudioConverter.h"
#include "AudioToolbox/Conversion/FrameConverter.h"
#include "AudioToolbox/Conversion/RateChain.h"

#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace qmx
{

/// Used by one thread at a time. At equal rates converting allocates nothing.
class Converter
{
public:
    /// Null if the formats cannot be converted.
    static std::unique_ptr<Converter> between(const AudioStreamBasicDescription& source,
                                              const AudioStreamBasicDescription& target);

    /// The formats as interpreted, byte counts included.
    const AudioStreamBasicDescription& source() const { return source_; }
    const AudioStreamBasicDescription& target() const { return target_; }
    /// Bytes of one frame of all channels.
    UInt32 sourceFrameBytes() const { return static_cast<UInt32>(sourceLayout_.frameBytes()); }
    UInt32 targetFrameBytes() const { return static_cast<UInt32>(targetLayout_.frameBytes()); }

    /// Maximum output bytes of a call with `inputBytes` input bytes; none if 32 bits cannot count them.
    std::optional<UInt32> outputBytesFor(UInt32 inputBytes) const;
    /// Input bytes (whole frames) that suffice for `outputBytes` output bytes.
    UInt32 inputBytesFor(UInt32 outputBytes) const;

    UInt32 quality() const { return quality_; }
    /// Of the rate conversion, 0 to 127; while a stream is open it takes effect with the next one.
    void setQuality(UInt32 quality);

    /// Per output channel the input channel or -1; empty while the output is mixed from several.
    std::span<const SInt32> channelMap() const;
    /// False for a map of another length or with an entry that is no input channel.
    bool setChannelMap(std::span<const SInt32> map);

    /// Sets which channel is which, as bytes of a layout record. Known surround channels are then mixed to left and
    /// right.
    void setLayouts(std::span<const std::byte> input, std::span<const std::byte> output);

    /// The next data start a new stream.
    void reset();

    /// See AudioConverterConvertBuffer.
    OSStatus convertBuffer(std::span<const std::byte> input, std::byte* output, UInt32& outputBytes);

    /// The procedure that supplies source data, and what it is called with.
    struct InputSource {
        AudioConverterComplexInputDataProc give;
        AudioConverterRef converter;
        void* userData;
    };
    /// See AudioConverterFillComplexBuffer.
    OSStatus fill(const InputSource& input, UInt32& packetCount, AudioBufferList& output);

private:
    Converter(const AudioStreamBasicDescription& source, const PcmLayout& sourceLayout,
              const AudioStreamBasicDescription& target, const PcmLayout& targetLayout);

    void route(ChannelRoutes routes);
    UInt64 outputFramesFor(UInt64 inputFrames) const;
    UInt64 inputFramesFor(UInt64 outputFrames) const;
    std::size_t produce(std::size_t frames);
    void endStreamIfDrained(bool isShort);
    OSStatus pull(const InputSource& input, std::size_t outputFrames);
    void receive(UInt32 packetCount);

    AudioStreamBasicDescription source_, target_;
    PcmLayout sourceLayout_, targetLayout_;
    ChannelRoutes routes_;
    UInt32 quality_ = RateConverter::defaultQuality;
    std::unique_ptr<FrameConverter> straight_; ///< at equal rates
    std::unique_ptr<RateChain> chain_;         ///< otherwise

    SourceFrames pending_; ///< input that was supplied and not yet consumed
    TargetFrames room_;    ///< where output goes
    std::vector<std::byte> inputListMemory_;
    AudioBufferList* inputList_; ///< handed to input procedures
};

} // namespace qmx
