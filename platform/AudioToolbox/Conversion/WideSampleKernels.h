// SPDX-License-Identifier: MIT
// Loops over groups of eight samples for processors that have wide vectors and shuffles of bytes (AVX2). They do as
// many whole groups as they can without leaving the memory, and return the number of samples they did; the plain loops
// do the rest. Pure, without allocation: any thread, the real-time ones included.
#pragma once

#include "AudioToolbox/Conversion/PcmLayout.h"

#include <array>
#include <cstddef>

namespace qmx
{

/// Where the bytes of a group go: words within the group, then bytes within each half of it.
struct GroupShuffle {
    std::array<UInt32, 8> words{};
    std::array<UInt8, 32> bytes{};

    /// The bytes of samples, to the top of 32-bit words of this machine.
    static GroupShuffle toWords(std::size_t sampleBytes, bool swapped);
    /// The low bytes of such words, to samples.
    static GroupShuffle fromWords(std::size_t sampleBytes, bool swapped);
};

/// Reverses the bytes of samples of 2, 3, 4 or 8 bytes.
struct GroupSwap {
    explicit GroupSwap(std::size_t ofBytes);

    std::size_t sampleBytes, samples;
    GroupShuffle shuffle;
    std::array<UInt32, 8> wordsBack{};
};

/// Null where the processor has none.
template <class T> struct WideSampleKernels {
    /// For integer samples of 1 to 4 bytes.
    static WideSampleKernels of(const SampleFormat& format);

    /// T from samples: shifted up by `lift`, changed by `flip`.
    std::size_t (*decode)(const GroupShuffle& shuffle, std::size_t sampleBytes, UInt32 lift, UInt32 flip,
                          const std::byte* in, std::byte* out, std::size_t count) = nullptr;
    /// Samples of `bits` bits from T: rounded, moved by `offset`, shifted up by `lift`.
    std::size_t (*encode)(const GroupShuffle& shuffle, std::size_t sampleBytes, UInt32 bits, UInt32 offset, UInt32 lift,
                          const std::byte* in, std::byte* out, std::size_t count) = nullptr;
};

using SwapGroups = std::size_t (*)(const GroupSwap& swap, const std::byte* in, std::byte* out, std::size_t count);

/// Null where the processor has none.
SwapGroups swapGroups();

} // namespace qmx
