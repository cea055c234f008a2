// SPDX-License-Identifier: MIT
// Rate conversion on a render thread, between frames of any two layouts.
#pragma once

#include "AudioToolbox/Conversion/FrameConverter.h"
#include "AudioToolbox/Conversion/VariableRateConverter.h"

#include <memory>
#include <vector>

namespace qmx
{

/// Input frames to floats, rate conversion, floats to output frames. Channels are mixed on the side that leaves fewer
/// of them to convert. Allocates nothing after construction.
class RateStage
{
public:
    /// How frames are converted.
    struct Way {
        VariableRateConverter::Range ratios; ///< output frames per input frame; the highest at first
        UInt32 quality;                      ///< 0 to 127
        const ChannelRoutes& routes;         ///< which input channel feeds which output channel
    };
    /// Input comes in runs of at most `maximumFrames`.
    RateStage(const PcmLayout& from, const PcmLayout& to, const Way& way, UInt32 maximumFrames);

    /// Input frames that about `outputFrames` output frames take, as a fraction.
    Float64 inputFramesFor(std::size_t outputFrames) const { return static_cast<Float64>(outputFrames) / ratio_; }

    /// Frames that `produce` makes from now on get there gradually, without a step in the sound.
    void setRatio(Float64 ratio) { ratio_ = ratio; }
    /// How many input frames after a frame it takes to make that, at the highest ratio.
    std::size_t lookAhead() const { return rate_.lookAhead(); }

    /// Takes a run of input frames, at most the maximum. Call only when the last run is used up.
    void feed(const SourceFrames& source, std::size_t frames);
    /// The same with silence.
    void feedSilence(std::size_t frames);
    /// Writes up to `frames` frames to `target` and advances it; fewer mean that all input is used up.
    std::size_t produce(TargetFrames& target, std::size_t frames);
    /// The next frames begin a new stream.
    void restart();

private:
    PcmLayout middle_;
    Float64 ratio_;
    VariableRateConverter rate_;
    std::vector<Float32> in_, out_;
    SourceFrames toRead_;
    TargetFrames toWrite_;
    std::size_t used_ = 0, ready_ = 0; ///< frames of `in_`
    std::unique_ptr<FrameConverter> toRate_, fromRate_;
};

} // namespace qmx
