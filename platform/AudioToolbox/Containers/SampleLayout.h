// SPDX-License-Identifier: MIT
// How the samples of an audio file of constant frame size are coded, apart from any container.
#pragma once

#include "CoreAudioTypes/CoreAudioTypes.h"
#include "Foundation/ByteFields.h"

#include <optional>

namespace qmx
{

struct SampleLayout {
    enum class Coding { signedInteger, unsignedInteger, floatingPoint, uLaw, aLaw };

    Coding coding = Coding::signedInteger;
    ByteOrder order = ByteOrder::big;
    UInt32 bits = 16; ///< significant bits of a sample, left-justified in its bytes
    UInt32 bytes = 2; ///< of one sample

    bool operator==(const SampleLayout&) const = default;
};

/// Whether a file may have this rate and channel count.
QMX_MODULE_EXPORT bool isPlausible(Float64 sampleRate, UInt32 channels);

/// The layout that `format` asks a file for; empty if no file of interleaved samples holds it exactly: not plausible,
/// low-aligned, non-interleaved, or of another coding. The byte counts of a packed format are computed from its
/// channels and bits.
std::optional<SampleLayout> layoutOf(const AudioStreamBasicDescription& format);

/// The format of samples of this layout.
AudioStreamBasicDescription formatOf(const SampleLayout& layout, Float64 sampleRate, UInt32 channels);

} // namespace qmx
