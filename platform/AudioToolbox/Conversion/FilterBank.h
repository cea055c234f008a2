// SPDX-License-Identifier: MIT
// The filters of rate conversion on render threads: a windowed sine cardinal, sampled at many phases.
//
// An output frame lies somewhere between two input frames. Its value is the sum of the input frames around it, each
// times the filter's value at its distance. The filter is sin(pi e t) / (pi t), which passes everything up to e times
// half the input rate, faded out by a Kaiser window of `reach` frames to each side. Three figures describe it:
//
// - The window's beta decides how deep the stop band is. For A dB it is 0.1102 (A - 8.7): 14.47 for 140 dB.
// - The length decides how wide the slope between pass band and stop band is: a window of n frames needs
//   (A - 8) / (14.36 n) of the input rate. 256 frames at 140 dB give 3.6 percent of it, that is 7.2 percent of the
//   band.
// - The edge e is the middle of the slope, where 6 dB are lost. The slope is to end where the band does, and half of it
//   lies above the edge: 0.975 for the best quality. The pass band then is flat to 0.94 of the band (20.7 of
//   22.05 kHz), and 3 dB are lost at 0.97.
//
// To lower rates, the output's half rate is the end of the band: the filter is stretched by the ratio ("cut-off", 1 at
// most), its taps get as many more, and all the figures hold relative to the output.
//
// Phases: at a ratio of small whole numbers p/q the output frames lie at p different distances from the input frames,
// and the bank has just these. For other ratios, and for those that move, 64 phases a frame are blended: the
// third-order polynomial through four phases h apart errs by 3/128 (w h)^4 at the angular frequency w. For 20 of 22.05
// kHz and 64 phases that is -141 dB; 32 would be -117 dB. A filter stretched by 2 is as smooth with half the phases.
//
// A ratio that moves has the cut-off follow it over a ladder of filters a semitone apart, made beforehand; a little way
// after each rung two of them are mixed. So the edge is at 0.94 to 1.006 of the output's half rate. A ladder down to
// 1/32 takes 5.7 MB at the best quality.
//
// Measured at the best quality, stereo, 44.1 to 48 kHz, with wide multiply-add: a residue of -141 dB beside a 20 kHz
// tone at a constant ratio and of -140 dB at one that moves, 370 and 175 times real time.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace qmx
{

/// A filter's values at the distances of its taps, for a number of phases between two input frames.
class PhaseTable
{
public:
    /// Of a filter that ends within `side` frames; its values are yet to be written.
    PhaseTable(Float64 side, std::size_t phases);

    /// Frames on each side that an output frame takes.
    std::size_t reach() const { return reach_; }
    std::size_t taps() const { return 2 * reach_; }
    std::size_t phases() const { return phases_; }
    /// The taps for an output frame `phase` / phases() after input frame 0, from input frame 1 - reach() to reach().
    /// `phase` is -1 to 2 * phases() - 1.
    const Float32* row(std::ptrdiff_t phase) const;

    /// Zeros that are to be written to.
    std::size_t size() const { return (phases_ * rowSize() + lead); }
    /// `filter` has the values at the distances 0, 1 / phases(), 2 / phases(), ... and 0 after its end. They are
    /// written to the zeros at `memory`, each phase such that it passes a constant unchanged. The memory is to outlast
    /// this.
    void write(const std::vector<Float64>& filter, Float32* memory);

private:
    static constexpr std::size_t lead = 16; ///< zeros before the first row, between rows, and after the last
    std::size_t rowSize() const { return taps() + lead; }

    std::size_t reach_, phases_;
    const Float32* rows_ = nullptr;
};

/// The filters of one ratio, or of a range of them. Made on threads that may wait and shared by all that need the same;
/// then constant.
class FilterBank
{
public:
    /// Made for the ratios (output frames per input frame) from `lowest` to `highest`. Of the quality only its class
    /// counts: 96 and more, 32 and more, less.
    static std::shared_ptr<const FilterBank> shared(UInt32 quality, Float64 lowest, Float64 highest);

    /// Positions are counted in units of this part of an input frame.
    Float64 unitsPerFrame() const { return units_; }
    /// Units from one output frame to the next.
    Float64 step(Float64 ratio) const { return exactStep_ != 0 ? exactStep_ : units_ / ratio; }

    /// What a ratio takes: a table, and how much of the next one is mixed in.
    struct Mixture {
        std::size_t table = 0;
        Float32 next = 0; ///< 0 to 1
    };
    Mixture mixtureFor(Float64 ratio) const;
    const PhaseTable& table(std::size_t index) const { return tables_[index]; }
    /// Of the mixture's longer table.
    std::size_t reach(const Mixture& mixture) const { return tables_[mixture.table + (mixture.next > 0)].reach(); }
    std::size_t longestReach() const { return tables_.back().reach(); }

private:
    struct Key;
    struct alignas(64) Block {
        Float32 values[16];
    };
    explicit FilterBank(const Key& key);

    Float64 edge_, units_, exactStep_;
    std::vector<PhaseTable> tables_; ///< of falling cut-off
    std::vector<Block> memory_;      ///< of the tables
};

} // namespace qmx
