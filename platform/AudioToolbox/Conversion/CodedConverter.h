// SPDX-License-Identifier: MIT
// Conversions with a compressed side: a coder, and a converter between the coder's linear PCM and the format of the
// other side.
#pragma once

#include "AudioToolbox/Codings/PacketCoding.h"
#include "AudioToolbox/Conversion/Converter.h"

#include <memory>
#include <optional>
#include <span>

namespace qmx
{

/// One thread at a time.
class CodedConverter
{
public:
    using InputSource = Converter::InputSource;

    virtual ~CodedConverter() = default;

    /// Between the linear side and the coder: for the quality of rate conversion and the channel map.
    Converter& linear() { return *linear_; }
    const Converter& linear() const { return *linear_; }

    virtual const AudioStreamBasicDescription& source() const = 0;
    virtual const AudioStreamBasicDescription& target() const = 0;
    virtual UInt32 maximumPacketSize() const = 0;
    /// See AudioConverterFillComplexBuffer.
    virtual OSStatus fill(const InputSource& input, UInt32& packetCount, AudioBufferList& output,
                          AudioStreamPacketDescription* descriptions) = 0;
    virtual void reset() = 0;

    virtual AudioConverterPrimeInfo primeInfo() const = 0;
    virtual OSStatus setPrimeInfo(const AudioConverterPrimeInfo& info) = 0;
    /// For a decoding converter; false if it refuses the cookie.
    virtual bool setCookie(std::span<const UInt8>) { return false; }
    /// The encoder of an encoding converter.
    virtual PacketEncoder* encoder() { return nullptr; }

    /// Null if neither or both sides are compressed, or if the conversion is not possible.
    static std::unique_ptr<CodedConverter> between(const AudioStreamBasicDescription& source,
                                                   const AudioStreamBasicDescription& target);

protected:
    explicit CodedConverter(std::unique_ptr<Converter> linear) : linear_(std::move(linear)) {}

private:
    std::unique_ptr<Converter> linear_;
};

} // namespace qmx
