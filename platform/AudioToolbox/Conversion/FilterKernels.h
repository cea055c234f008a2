// SPDX-License-Identifier: MIT
// The two loops of a polyphase filter, for the processor that runs them. Pure, without allocation: any thread, the
// real-time ones included.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <array>
#include <cstddef>

namespace qmx
{

/// Taps per filter come in multiples of this.
inline constexpr std::size_t tapGroup = 16;

struct FilterKernels {
    /// One output sample of each channel: the sum of `taps` products of `row` and the frames at `history`. Channels are
    /// `stride` floats apart.
    void (*apply)(const Float32* row, std::size_t taps, const Float32* history, std::size_t stride,
                  std::size_t channels, Float32* out);
    using Rows = std::array<const Float32*, 4>;
    using Weights = std::array<Float32, 4>;
    /// The weighted sum of four rows.
    void (*blend)(const Rows& rows, const Weights& weights, std::size_t taps, Float32* row);
    /// Adds it to what is in `row`.
    void (*addBlend)(const Rows& rows, const Weights& weights, std::size_t taps, Float32* row);
};

/// Those for this processor.
const FilterKernels& filterKernels();
/// Those that every processor can run.
const FilterKernels& plainFilterKernels();

} // namespace qmx
