// SPDX-License-Identifier: MIT
// The rate conversion of render threads: libsamplerate, made and warmed beforehand.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <cstddef>
#include <memory>

struct SRC_STATE_tag;

namespace qmx
{

/// Interleaved floats in pieces of any size, at a ratio that may differ from call to call. The output is aligned with
/// the input: output frame 0 is input frame 0, and the filter needs some input in advance for it. Its memory is fixed:
/// everything except construction and destruction may run on a render thread.
class VariableRateConverter
{
public:
    static constexpr UInt32 defaultQuality = 96;
    /// Rates farther apart than this are not converted.
    static constexpr Float64 highestRatio = 256;

    /// `quality` is 0 to 127; 96 and more reach 145 dB and 97 percent of the bandwidth.
    VariableRateConverter(UInt32 channels, UInt32 quality);

    /// False for more channels than can be converted, or when memory was short; then nothing else may be called.
    bool isUsable() const { return filter_ != nullptr; }

    struct Progress {
        std::size_t taken = 0; ///< input frames used
        std::size_t made = 0;  ///< output frames written
    };
    /// Consumes up to `frames` frames of `in`, writes up to `room` frames to `out`. `ratio` is output frames per input
    /// frame, within 1/256 to 256; a change of it is spread over the frames made. 0 frames made mean that all input was
    /// consumed and more is needed.
    Progress process(const Float32* in, std::size_t frames, Float32* out, std::size_t room, Float64 ratio);

    /// The next frames start a new stream.
    void restart();

private:
    struct Release {
        void operator()(SRC_STATE_tag* filter) const;
    };
    void warm(UInt32 channels);

    std::unique_ptr<SRC_STATE_tag, Release> filter_;
};

} // namespace qmx
