// SPDX-License-Identifier: MIT
// The rate conversion of render threads: a bank of filters made beforehand.
#pragma once

#include "AudioToolbox/Conversion/FilterBank.h"
#include "AudioToolbox/Conversion/FilterKernels.h"

#include <cstddef>
#include <memory>
#include <vector>

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

    /// Ratios (output frames per input frame) to be ready for, within 1/256 to 256. A single one is converted with
    /// fewer operations than one that may move.
    struct Range {
        Float64 lowest, highest;
    };
    /// `quality` is 0 to 127. The figures are relative to half of the lower rate; what lies above 1.01 is suppressed.
    /// - 96 and more: flat to 0.94, 3 dB down at 0.97, suppressed by 140 dB; 256 products a frame and channel
    /// - 32 to 95: flat to 0.89, suppressed by 120 dB; 128 products
    /// - less: flat to 0.81, suppressed by 100 dB; 64 products
    ///
    /// To lower rates it takes as many more products as the ratio says. A ratio that moves below 1 has the band
    /// narrower by up to 4 percent. May wait; the filters are shared with converters of the same ratios and quality.
    /// At least one channel.
    VariableRateConverter(UInt32 channels, UInt32 quality, const Range& ratios);

    struct Progress {
        std::size_t taken = 0; ///< input frames used
        std::size_t made = 0;  ///< output frames written
    };
    /// Consumes up to `frames` frames of `in`, writes up to `room` frames, at least 1, to `out`. `ratio` is output
    /// frames per input frame, brought into the range; a change of it is spread over the frames made. 0 frames made
    /// mean that all input was consumed and more is needed.
    Progress process(const Float32* in, std::size_t frames, Float32* out, std::size_t room, Float64 ratio);

    /// How many input frames after a frame it takes to make that, at the highest ratio.
    std::size_t lookAhead() const { return bank_->table(0).reach(); }

    /// The next frames start a new stream.
    void restart();

private:
    std::size_t take(const Float32* in, std::size_t frames);
    void dropOldest();
    void setRatio(Float64 ratio);
    bool hasInputForFrame() const { return centre_ + reach_ < filled_; }
    void makeFrame(Float32* out);
    const Float32* blendedRow();
    void blend(decltype(FilterKernels::blend) kernel, const PhaseTable& table, Float32 weight);
    Float64 phasesPerUnit(const PhaseTable& table) const;
    void advance();

    UInt32 channels_;
    Range ratios_;
    const FilterKernels& kernels_ = filterKernels();
    std::shared_ptr<const FilterBank> bank_;
    Float64 units_;                ///< of an input frame, in which positions are counted
    std::size_t capacity_ = 0;     ///< frames of each channel
    std::vector<Float32> history_; ///< input, channel after channel
    std::vector<Float32> row_;     ///< blended taps
    std::size_t filled_ = 0;       ///< frames in the history
    std::size_t centre_ = 0;       ///< the frame at or before the next output frame; may be still to come
    Float64 position_ = 0;         ///< units from there to the output frame
    Float64 ratio_ = 0;            ///< of the last frame made; 0 before the first
    Float64 step_ = 0;             ///< units to the next output frame
    FilterBank::Mixture mixture_;
    std::size_t reach_ = 0; ///< of the mixture
};

} // namespace qmx
