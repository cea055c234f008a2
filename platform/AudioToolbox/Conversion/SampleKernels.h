// SPDX-License-Identifier: MIT
// Runs of samples between their form in memory and the numbers conversions work with: 32-bit integers whose full scale
// is 2^31, floats and doubles whose full scale is 1. Pure, without allocation: any thread, the real-time ones included.
// Memory may have any alignment.
#pragma once

#include "AudioToolbox/Conversion/PcmLayout.h"
#include "AudioToolbox/Conversion/WideSampleKernels.h"

#include <cstddef>

namespace qmx
{

/// Those of this processor, or those that every processor has.
enum class Instructions { available, baseline };

/// Whether T in memory is what `format` describes.
template <class T> bool isNative(const SampleFormat& format);

/// Memory to numbers. Exact, except where T has fewer bits than the format. Bits below the significant ones of a
/// high-aligned sample count too: files have them.
template <class T> class SampleDecoder
{
public:
    /// Floating formats need a floating T.
    explicit SampleDecoder(const SampleFormat& format, Instructions instructions = Instructions::available);

    /// `out` receives `count` values of T.
    void operator()(const std::byte* in, std::byte* out, std::size_t count) const
    {
        const std::size_t done = wide_ ? wide_(shuffle_, bytes_, lift, flip, in, out, count) : 0;
        function_(*this, in + done * bytes_, out + done * sizeof(T), count - done);
    }

    UInt32 lift = 0; ///< brings the top significant bit of a low-aligned sample to bit 31
    UInt32 flip = 0; ///< turns unsigned into signed

private:
    using Function = void (*)(const SampleDecoder&, const std::byte*, std::byte*, std::size_t);
    Function function_ = nullptr;
    std::size_t bytes_;
    decltype(WideSampleKernels<T>::decode) wide_ = nullptr;
    GroupShuffle shuffle_;
};

/// Numbers to memory: rounds to nearest (ties to even), saturates, NaN becomes 0 in integer formats.
template <class T> class SampleEncoder
{
public:
    explicit SampleEncoder(const SampleFormat& format, Instructions instructions = Instructions::available);

    /// `in` holds `count` values of T.
    void operator()(const std::byte* in, std::byte* out, std::size_t count) const
    {
        const std::size_t done = wide_ ? wide_(shuffle_, bytes_, bits, offset, lift, in, out, count) : 0;
        function_(*this, in + done * sizeof(T), out + done * bytes_, count - done);
    }

    UInt32 bits = 0;   ///< significant bits
    UInt32 offset = 0; ///< zero of an unsigned format
    UInt32 lift = 0;   ///< unused bits below the significant ones

private:
    using Function = void (*)(const SampleEncoder&, const std::byte*, std::byte*, std::size_t);
    Function function_ = nullptr;
    std::size_t bytes_;
    decltype(WideSampleKernels<T>::encode) wide_ = nullptr;
    GroupShuffle shuffle_;
};

/// Reverses the bytes of each sample of 2, 3, 4 or 8 bytes.
class SampleSwapper
{
public:
    explicit SampleSwapper(UInt32 sampleBytes, Instructions instructions = Instructions::available);
    void operator()(const std::byte* in, std::byte* out, std::size_t count) const;

private:
    GroupSwap groups_;
    SwapGroups wide_;
};

} // namespace qmx
