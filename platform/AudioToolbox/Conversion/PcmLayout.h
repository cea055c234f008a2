// SPDX-License-Identifier: MIT
// What a stream description says about the bytes of uncompressed audio, in the terms the conversion code works with.
#pragma once

#include "CoreAudioTypes/CoreAudioTypes.h"
#include "Foundation/Export.h"

#include <cstddef>
#include <optional>

namespace qmx
{

inline constexpr UInt32 maximumChannels = 1024;
inline constexpr Float64 maximumSampleRate = 10e6;

/// Finite, above 0 and at most 10 MHz.
QMX_MODULE_EXPORT bool isUsableSampleRate(Float64 rate);

enum class SampleCoding : UInt8 { integer, floating, uLaw, aLaw };

/// One sample in memory. Two formats that mean the same bytes compare equal.
struct SampleFormat {
    SampleCoding coding = SampleCoding::integer;
    UInt8 bytes = 0;           ///< 1 to 4 for integers, 4 or 8 for floats, 1 for companded samples
    UInt8 bits = 0;            ///< significant bits; 16 for companded samples (what they expand to)
    bool isSigned = true;      ///< unsigned samples have their zero at half of the range
    bool isSwapped = false;    ///< the byte order is not this machine's
    bool isHighAligned = true; ///< unused bits lie below the significant ones

    bool operator==(const SampleFormat&) const = default;
};

/// The arrangement of samples in frames and buffers. A plane is one run of memory: all channels when interleaved, one
/// channel when not.
struct PcmLayout {
    SampleFormat sample;
    UInt32 channels = 0;
    bool isInterleaved = true; ///< also true of a single channel, whose samples lie the same either way

    UInt32 planes() const { return isInterleaved ? 1 : channels; }
    UInt32 channelsPerPlane() const { return isInterleaved ? channels : 1; }
    std::size_t planeFrameBytes() const { return std::size_t{channelsPerPlane()} * sample.bytes; }
    /// Bytes of one frame in all planes together.
    std::size_t frameBytes() const { return std::size_t{channels} * sample.bytes; }

    bool operator==(const PcmLayout&) const = default;

    /// The layout of linear PCM, mu-law or A-law; none for other codings and for records that contradict themselves. A
    /// packed format is read by its channels and bits, whatever its byte counts say.
    static std::optional<PcmLayout> of(const AudioStreamBasicDescription& description);
};

/// `description` with the byte and frame counts of `layout`.
AudioStreamBasicDescription withByteCounts(AudioStreamBasicDescription description, const PcmLayout& layout);

} // namespace qmx
