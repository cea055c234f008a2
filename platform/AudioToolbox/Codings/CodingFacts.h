// SPDX-License-Identifier: MIT
// What is known of compressed codings without a library: their cookies, bit rates, and the records that describe them.
#pragma once

#include "CoreAudioTypes/CoreAudioTypes.h"
#include "Foundation/ByteFields.h"
#include "Foundation/Export.h"

#include <optional>
#include <span>
#include <vector>

namespace qmx
{

/// An MPEG-4 audio configuration.
struct AACConfig {
    UInt32 sampleRate = 0; ///< of the coded samples
    UInt32 channels = 0;
    bool hasSpectralReplication = false; ///< stated explicitly: the output has twice the rate
};

QMX_MODULE_EXPORT std::optional<AACConfig> parseAACConfig(std::span<const UInt8> config);
/// Two bytes for low complexity AAC of the format's rate and channels; empty if these have no code.
QMX_MODULE_EXPORT Bytes makeAACConfig(const AudioStreamBasicDescription& format);

/// A cookie as files and callers exchange it: for AAC the descriptor of an elementary stream, for ALAC the 24 bytes of
/// its configuration, for FLAC the 34 bytes of its stream information. `bare` is what the coding itself knows: for AAC
/// the configuration.
QMX_MODULE_EXPORT Bytes cookieFromBare(AudioFormatID coding, std::span<const UInt8> bare);
/// The bare form of a cookie in any form found in files (with and without atoms around). Empty for anything else.
QMX_MODULE_EXPORT Bytes bareFromCookie(AudioFormatID coding, std::span<const UInt8> cookie);

QMX_MODULE_EXPORT bool isAAC(AudioFormatID coding);
QMX_MODULE_EXPORT bool isLossless(AudioFormatID coding);
/// Whether the coding is one of packets that the module of codings may have.
bool hasPackets(AudioFormatID coding);
/// Significant bits of the source of a lossless format; 0 if its flags do not say.
QMX_MODULE_EXPORT UInt32 sourceBitsOf(const AudioStreamBasicDescription& format);
QMX_MODULE_EXPORT AudioFormatFlags flagsForSourceBits(UInt32 bits);
/// The record of a compressed format.
QMX_MODULE_EXPORT AudioStreamBasicDescription compressedFormat(AudioFormatID coding, AudioFormatFlags flags,
                                                               Float64 rate, UInt32 channels, UInt32 framesPerPacket);

/// The format that the 24 bytes of an ALAC configuration describe; empty for anything else.
QMX_MODULE_EXPORT std::optional<AudioStreamBasicDescription> formatFromALAC(std::span<const UInt8> config);
/// The format that the 34 bytes of FLAC's stream information describe, with 0 frames per packet if the packets differ
/// in frames; `totalFrames` is 0 if they do not state it.
QMX_MODULE_EXPORT std::optional<AudioStreamBasicDescription> formatFromFLAC(std::span<const UInt8> info,
                                                                            UInt64& totalFrames);

/// How many packets before one a decoder needs to decode it exactly.
UInt32 rollDistanceOf(AudioFormatID coding);

/// The bit rates that an encoder supports, ascending; those of all rates and channel counts if these are 0. Empty for
/// codings whose rate follows from the signal.
QMX_MODULE_EXPORT std::vector<UInt32> encodeBitRates(AudioFormatID coding, Float64 sampleRate, UInt32 channels);
/// The same as ranges of one rate each.
std::vector<AudioValueRange> encodeBitRateRanges(AudioFormatID coding, Float64 sampleRate, UInt32 channels);

} // namespace qmx
