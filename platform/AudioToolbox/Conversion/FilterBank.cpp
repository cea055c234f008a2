// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/FilterBank.h"

#include "AudioToolbox/Conversion/FilterKernels.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <numbers>
#include <tuple>
#include <utility>

namespace qmx
{
namespace
{

struct Figures {
    Float64 side; ///< frames on each side of the middle
    Float64 edge, beta;
};
constexpr Figures fast{31, 0.91, 10.06}, medium{63, 0.95, 12.27}, best{127, 0.975, 14.47};

const Figures& figuresOf(UInt32 quality)
{
    if (quality < 32)
        return fast;
    return quality < 96 ? medium : best;
}

constexpr std::size_t blendedPhases = 64, leastPhases = 2;
constexpr std::size_t rungsPerOctave = 12;
/// The parts of the way to the next rung between which the two are mixed. 44.1 / 48 and 44.1 / 96 are no such places.
constexpr Float64 mixedFrom = 0.1, mixedTo = 0.3;
/// Ratios of larger numbers are blended.
constexpr UInt32 largestExact = 2048;

/// As many as keep the blending's error where it is without stretching.
std::size_t blendedPhasesAt(Float64 cutoff)
{
    return std::max(blendedPhases >> static_cast<unsigned>(-std::log2(cutoff)), leastPhases);
}

/// Exactly half of that an octave before.
Float64 cutoffOfRung(std::size_t rung)
{
    const Float64 within = static_cast<Float64>(rung % rungsPerOctave) / rungsPerOctave;
    return std::ldexp(std::exp2(-within), -static_cast<int>(rung / rungsPerOctave));
}

struct Fraction {
    UInt32 numerator = 0, denominator = 0;
};

/// The fraction of small numbers that `ratio` is; 0 / 0 where it is none.
Fraction exactly(Float64 ratio)
{
    constexpr Float64 rounding = 1e-13;
    for (UInt32 denominator = 1; denominator <= largestExact; ++denominator) {
        const Float64 numerator = std::round(ratio * denominator);
        if (numerator > largestExact)
            break;
        if (numerator >= 1 && std::abs(numerator - ratio * denominator) <= rounding * numerator)
            return {static_cast<UInt32>(numerator), denominator};
    }
    return {};
}

/// The modified Bessel function of the first kind and order 0.
Float64 besselI0(Float64 x)
{
    constexpr Float64 negligible = 1e-11;
    Float64 sum = 1, term = 1;
    for (Float64 k = 1; term > sum * negligible; ++k)
        sum += term *= x * x / (4 * k * k);
    return sum;
}

Float64 sineCardinal(Float64 x)
{
    const Float64 angle = std::numbers::pi * x;
    return x == 0 ? 1 : std::sin(angle) / angle;
}

/// Half of the filter, from its middle on: every `spacing` frames at cut-off 1.
std::vector<Float64> halfFilter(const Figures& figures, Float64 spacing)
{
    const Float64 side = figures.side;
    std::vector<Float64> filter(static_cast<std::size_t>(std::ceil(side / spacing)));
    for (std::size_t i = 0; i < filter.size(); ++i) {
        const Float64 t = static_cast<Float64>(i) * spacing, inside = std::max(1 - t * t / (side * side), 0.0);
        filter[i] = sineCardinal(figures.edge * t) * besselI0(figures.beta * std::sqrt(inside));
    }
    return filter;
}

} // namespace

PhaseTable::PhaseTable(Float64 side, std::size_t phases) : phases_(phases)
{
    constexpr std::size_t group = tapGroup / 2;
    // a frame more: blended phases need some of the frame before and after
    reach_ = (static_cast<std::size_t>(std::ceil(side)) + 1 + group - 1) / group * group;
}

const Float32* PhaseTable::row(std::ptrdiff_t phase) const
{
    // a whole frame later, the same values stand one tap on
    const auto phases = static_cast<std::ptrdiff_t>(phases_), size = static_cast<std::ptrdiff_t>(rowSize());
    const std::ptrdiff_t frames = phase < 0 ? -1 : phase / phases;
    return rows_ + (phase - frames * phases) * size - frames;
}

void PhaseTable::write(const std::vector<Float64>& filter, Float32* memory)
{
    rows_ = memory + lead;
    std::vector<Float64> values(taps());
    for (std::size_t phase = 0; phase < phases_; ++phase) {
        const std::size_t middle = (reach_ - 1) * phases_ + phase; // of the filter, counted from the first tap
        Float64 sum = 0;
        std::size_t at = 0;
        for (Float64& value : values) {
            const std::size_t distance = at < middle ? middle - at : at - middle;
            value = distance < filter.size() ? filter[distance] : 0;
            sum += value;
            at += phases_;
        }
        Float32* const row = memory + lead + phase * rowSize();
        const Float64 scale = 1 / sum;
        for (std::size_t tap = 0; tap < values.size(); ++tap)
            row[tap] = static_cast<Float32>(values[tap] * scale);
    }
}

/// Equal banks have equal keys.
struct FilterBank::Key {
    const Figures* figures;
    Float64 cutoff;     ///< the cut-off of the longest filter
    Float64 exactStep;  ///< 0 when phases are blended
    std::size_t phases; ///< of a frame
    bool moves;         ///< a ladder from cut-off 1 down

    auto order() const { return std::tie(figures, cutoff, exactStep, phases, moves); }
    bool operator<(const Key& other) const { return order() < other.order(); }
};

FilterBank::FilterBank(const Key& key)
    : edge_(key.figures->edge), units_(static_cast<Float64>(key.phases)), exactStep_(key.exactStep)
{
    std::vector<Float64> cutoffs{key.moves ? 1 : key.cutoff};
    while (key.moves && cutoffs.back() >= key.cutoff)
        cutoffs.push_back(cutoffOfRung(cutoffs.size()));
    std::size_t size = 0;
    tables_.reserve(cutoffs.size());
    for (const Float64 cutoff : cutoffs)
        size +=
            tables_.emplace_back(key.figures->side / cutoff, key.moves ? blendedPhasesAt(cutoff) : key.phases).size();
    memory_.resize(size / std::size(Block{}.values));

    Float32* memory = memory_[0].values;
    std::vector<Float64> filter;
    Float64 spacing = 0;
    for (std::size_t first = 0; first < std::min(rungsPerOctave, cutoffs.size()); ++first)
        for (std::size_t i = first; i < cutoffs.size(); i += rungsPerOctave) {
            // an octave lower, the same values serve half as many phases
            const Float64 wanted = cutoffs[i] / static_cast<Float64>(tables_[i].phases());
            if (std::exchange(spacing, wanted) != wanted)
                filter = halfFilter(*key.figures, wanted);
            tables_[i].write(filter, memory);
            memory += tables_[i].size();
        }
}

std::shared_ptr<const FilterBank> FilterBank::shared(UInt32 quality, Float64 lowest, Float64 highest)
{
    Key key{&figuresOf(quality), std::min(lowest, 1.0), 0, blendedPhases, lowest != highest};
    if (key.moves)
        key.cutoff = std::min(lowest / key.figures->edge, 1.0);
    else if (const Fraction fraction = exactly(lowest); fraction.numerator != 0) {
        key.exactStep = fraction.denominator;
        key.phases = fraction.numerator;
    } else
        key.phases = blendedPhasesAt(key.cutoff);

    static auto& mutex = *new std::mutex; // never destroyed: threads may use units while the process ends
    static auto& banks = *new std::map<Key, std::weak_ptr<const FilterBank>>;
    const std::lock_guard lock(mutex);
    std::erase_if(banks, [](const auto& entry) { return entry.second.expired(); });
    auto bank = banks[key].lock();
    if (!bank)
        banks[key] = bank = std::shared_ptr<const FilterBank>(new FilterBank(key));
    return bank;
}

FilterBank::Mixture FilterBank::mixtureFor(Float64 ratio) const
{
    if (tables_.size() == 1 || ratio >= edge_)
        return {};
    // a rung serves until half the output rate has come down to where it loses 6 dB, and a little longer
    const Float64 way = Float64{rungsPerOctave} * std::log2(edge_ / ratio);
    const Float64 above = std::floor(way);
    const auto table = static_cast<std::size_t>(above);
    if (table + 1 >= tables_.size())
        return {tables_.size() - 1, 0};
    const Float64 mixed = std::max((way - above - mixedFrom) / (mixedTo - mixedFrom), 0.0);
    return mixed < 1 ? Mixture{table, static_cast<Float32>(mixed)} : Mixture{table + 1, 0};
}

} // namespace qmx
