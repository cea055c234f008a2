// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/VariableRateConverter.h"

#include <algorithm>
#include <cmath>

namespace qmx
{
namespace
{

/// Input frames that are kept before the oldest are dropped, beside those that the filter needs.
constexpr std::size_t leastBlock = 1024;

/// -400 dB. Multiplying such samples may cost processors a hundred times as much, and nobody hears them.
constexpr Float32 negligible = 1e-20F;

/// What the polynomial through four values at -1, 0, 1 and 2 takes of each at `x`.
std::array<Float32, 4> cubicWeights(Float32 x)
{
    const Float32 before = x + 1, after = x - 1, last = x - 2;
    return {x * after * last / -6, before * after * last / 2, before * x * last / -2, before * x * after / 6};
}

} // namespace

VariableRateConverter::VariableRateConverter(UInt32 channels, UInt32 quality, const Range& ratios)
    : channels_(channels), ratios_(ratios), bank_(FilterBank::shared(quality, ratios.lowest, ratios.highest)),
      units_(bank_->unitsPerFrame())
{
    const std::size_t around = 2 * bank_->longestReach();
    capacity_ = around + std::max(around, leastBlock);
    history_.resize(capacity_ * channels);
    row_.resize(around);
    restart();
}

void VariableRateConverter::restart()
{
    // the frames before the first are silence
    filled_ = centre_ = bank_->longestReach();
    for (UInt32 i = 0; i < channels_; ++i)
        std::fill_n(&history_[i * capacity_], filled_, 0.0F);
    position_ = 0;
    ratio_ = 0;
}

VariableRateConverter::Progress VariableRateConverter::process(const Float32* in, std::size_t frames, Float32* out,
                                                               std::size_t room, Float64 ratio)
{
    const Float64 target = ratio > ratios_.lowest ? std::min(ratio, ratios_.highest) : ratios_.lowest;
    if (ratio_ == 0)
        setRatio(target);
    const Float64 change = (target - ratio_) / static_cast<Float64>(room), last = ratio_;
    Progress progress;
    while (progress.made < room) {
        if (change != 0)
            setRatio(last + change * static_cast<Float64>(progress.made + 1));
        while (!hasInputForFrame() && progress.taken < frames)
            progress.taken += take(in + progress.taken * channels_, frames - progress.taken);
        if (!hasInputForFrame()) {
            setRatio(last + change * static_cast<Float64>(progress.made));
            return progress;
        }
        makeFrame(out + progress.made * channels_);
        ++progress.made;
        advance();
    }
    setRatio(target);
    return progress;
}

/// Takes as many frames as there is room for.
std::size_t VariableRateConverter::take(const Float32* in, std::size_t frames)
{
    if (filled_ == capacity_)
        dropOldest();
    const std::size_t count = std::min(frames, capacity_ - filled_);
    for (UInt32 channel = 0; channel < channels_; ++channel) {
        Float32* const to = &history_[channel * capacity_ + filled_];
        for (std::size_t i = 0; i < count; ++i) {
            const Float32 sample = in[i * channels_ + channel];
            to[i] = std::abs(sample) < negligible ? 0 : sample;
        }
    }
    filled_ += count;
    return count;
}

/// Leaves what the longest filter may need, whatever the ratio is by then.
void VariableRateConverter::dropOldest()
{
    const std::size_t dropped = centre_ - bank_->longestReach();
    for (UInt32 i = 0; i < channels_; ++i) {
        Float32* const channel = &history_[i * capacity_];
        std::copy(channel + dropped, channel + filled_, channel);
    }
    filled_ -= dropped;
    centre_ -= dropped;
}

void VariableRateConverter::setRatio(Float64 ratio)
{
    if (ratio == ratio_)
        return;
    ratio_ = ratio;
    step_ = bank_->step(ratio);
    mixture_ = bank_->mixtureFor(ratio);
    reach_ = bank_->reach(mixture_);
}

void VariableRateConverter::makeFrame(Float32* out)
{
    const PhaseTable& table = bank_->table(mixture_.table);
    const Float64 phase = position_ * phasesPerUnit(table);
    const auto whole = static_cast<std::ptrdiff_t>(phase);
    const bool isExact = mixture_.next == 0 && phase == static_cast<Float64>(whole);
    kernels_.apply(isExact ? table.row(whole) : blendedRow(), 2 * reach_, &history_[centre_ + 1 - reach_], capacity_,
                   channels_, out);
}

/// The taps at the current position.
const Float32* VariableRateConverter::blendedRow()
{
    if (mixture_.next > 0) { // that is the longer one
        blend(kernels_.blend, bank_->table(mixture_.table + 1), mixture_.next);
        blend(kernels_.addBlend, bank_->table(mixture_.table), 1 - mixture_.next);
    } else
        blend(kernels_.blend, bank_->table(mixture_.table), 1);
    return row_.data();
}

void VariableRateConverter::blend(decltype(FilterKernels::blend) kernel, const PhaseTable& table, Float32 weight)
{
    const Float64 phase = position_ * phasesPerUnit(table);
    const auto below = static_cast<std::ptrdiff_t>(phase);
    auto weights = cubicWeights(static_cast<Float32>(phase - static_cast<Float64>(below)));
    for (Float32& each : weights)
        each *= weight;
    kernel({table.row(below - 1), table.row(below), table.row(below + 1), table.row(below + 2)}, weights, table.taps(),
           &row_[reach_ - table.reach()]);
}

/// 1, or a half, a quarter, ... as the table is stretched.
Float64 VariableRateConverter::phasesPerUnit(const PhaseTable& table) const
{
    return static_cast<Float64>(table.phases()) / units_;
}

void VariableRateConverter::advance()
{
    position_ += step_;
    if (position_ < units_)
        return;
    const auto whole = static_cast<std::size_t>(position_ / units_);
    position_ -= static_cast<Float64>(whole) * units_;
    centre_ += whole;
}

} // namespace qmx
