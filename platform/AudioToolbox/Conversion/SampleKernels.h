// SPDX-License-Identifier: MIT
// Runs of samples between their form in memory and the numbers conversions work with: 32-bit integers whose full scale
// is 2^31, floats and doubles whose full scale is 1. Pure, without allocation: any thread, the real-time ones included.
// Memory may have any alignment.
#pragma once

#include "AudioToolbox/Conversion/PcmLayout.h"

#include <cstddef>

namespace qmx
{

/// Whether T in memory is what `format` describes.
template <class T> bool isNative(const SampleFormat& format);

/// Memory to numbers. Exact, except where T has fewer bits than the format. Bits below the significant ones of a
/// high-aligned sample count too: files have them.
template <class T> class SampleDecoder
{
public:
    /// Floating formats need a floating T.
    explicit SampleDecoder(const SampleFormat& format);

    /// `out` receives `count` values of T.
    void operator()(const std::byte* in, std::byte* out, std::size_t count) const { function_(*this, in, out, count); }

    UInt32 lift = 0; ///< brings the top significant bit of a low-aligned sample to bit 31
    UInt32 flip = 0; ///< turns unsigned into signed

private:
    using Function = void (*)(const SampleDecoder&, const std::byte*, std::byte*, std::size_t);
    Function function_ = nullptr;
};

/// Numbers to memory: rounds to nearest (ties to even), saturates, NaN becomes 0 in integer formats.
template <class T> class SampleEncoder
{
public:
    explicit SampleEncoder(const SampleFormat& format);

    /// `in` holds `count` values of T.
    void operator()(const std::byte* in, std::byte* out, std::size_t count) const { function_(*this, in, out, count); }

    UInt32 bits = 0;   ///< significant bits
    UInt32 offset = 0; ///< zero of an unsigned format
    UInt32 lift = 0;   ///< unused bits below the significant ones

private:
    using Function = void (*)(const SampleEncoder&, const std::byte*, std::byte*, std::size_t);
    Function function_ = nullptr;
};

/// Reverses the bytes of each sample of 2, 3, 4 or 8 bytes.
void swapSamples(UInt32 sampleBytes, const std::byte* in, std::byte* out, std::size_t count);

} // namespace qmx
