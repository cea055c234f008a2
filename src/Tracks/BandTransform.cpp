// SPDX-License-Identifier: MIT
#include "Tracks/BandTransform.h"

#include <cmath>
#include <numbers>

namespace qmx
{
namespace
{

constexpr std::array<double, bandCount + 1> bandEdges{130, 300, 600, 1200, 2400, 4800, 10500};

std::size_t windowLength(double sampleRate)
{
    constexpr double longest = 0.047; // seconds
    constexpr std::size_t most = 4096;
    std::size_t length = 64;
    while (length < most && 4 * static_cast<double>(length) <= longest * sampleRate)
        length *= 4;
    return length;
}

/// The digits of `index` to the base of four, as many as those of `length`, in reverse order.
std::size_t reversedDigits(std::size_t index, std::size_t length)
{
    std::size_t reversed = 0;
    for (; length > 1; length /= 4, index /= 4)
        reversed = reversed * 4 + index % 4;
    return reversed;
}

} // namespace

BandTransform::BandTransform(double sampleRate)
{
    const std::size_t length = windowLength(sampleRate);
    const double size = static_cast<double>(length);
    const double scale = 1 / std::sqrt(size * size * 3 / 8); // the mean of the squared window is 3/8
    values_.resize(length);
    for (auto& window : windows_)
        window.resize(2 * length);
    for (std::size_t i = 0; i < length; ++i) {
        const double angle = 2 * std::numbers::pi * static_cast<double>(i) / size;
        shape_.push_back(static_cast<float>(scale * 0.5 * (1 - std::cos(angle))));
        turns_.push_back({static_cast<float>(std::cos(angle)), static_cast<float>(-std::sin(angle))});
    }
    for (std::size_t band = 0; band < bandCount; ++band)
        for (std::size_t i = 1; i < length / 2; ++i)
            if (const double frequency = static_cast<double>(i) * sampleRate / size;
                frequency >= bandEdges[band] && frequency < bandEdges[band + 1])
                for (const std::size_t index : {i, length - i})
                    places_[band].push_back(static_cast<std::uint16_t>(reversedDigits(index, length)));
}

std::size_t BandTransform::liveChannels(std::size_t lane) const
{
    const auto& window = windows_[lane];
    std::size_t live = 0;
    for (std::size_t channel = 0; channel < 2; ++channel)
        for (std::size_t i = channel; i < window.size(); i += 2)
            if (window[i] != 0) {
                ++live;
                break;
            }
    return live;
}

void BandTransform::load()
{
    const auto lanes = [this](std::size_t index) {
        constexpr float most = 1e6F;
        const Lanes samples{windows_[0][index], windows_[1][index], windows_[2][index], windows_[3][index]};
        return samples > -most && samples < most ? samples : Lanes{};
    };
    for (std::size_t i = 0; i < values_.size(); ++i)
        values_[i] = {lanes(2 * i) * shape_[i], lanes(2 * i + 1) * shape_[i]};
}

/// Makes four values of four, each turned by its angle.
inline void BandTransform::turnTogether(Value* value, std::size_t quarter, Turn once, Turn twice, Turn thrice)
{
    const auto times = [](const Value& from, const Turn& turn) -> Value {
        return {from.real * turn.real - from.imaginary * turn.imaginary,
                from.real * turn.imaginary + from.imaginary * turn.real};
    };
    const Value a = value[0], b = value[quarter], c = value[2 * quarter], d = value[3 * quarter];
    const Value sum{a.real + c.real, a.imaginary + c.imaginary};
    const Value difference{a.real - c.real, a.imaginary - c.imaginary};
    const Value otherSum{b.real + d.real, b.imaginary + d.imaginary};
    const Value otherDifference{b.imaginary - d.imaginary, d.real - b.real}; // turned by a quarter
    value[0] = {sum.real + otherSum.real, sum.imaginary + otherSum.imaginary};
    value[quarter] =
        times({difference.real + otherDifference.real, difference.imaginary + otherDifference.imaginary}, once);
    value[2 * quarter] = times({sum.real - otherSum.real, sum.imaginary - otherSum.imaginary}, twice);
    value[3 * quarter] =
        times({difference.real - otherDifference.real, difference.imaginary - otherDifference.imaginary}, thrice);
}

/// Fourier transform in place, by fours; the frequencies come out in reversed order of their digits.
void BandTransform::transform()
{
    const std::size_t length = values_.size();
    for (std::size_t quarter = length / 4, step = 1; quarter > 1; quarter /= 4, step *= 4)
        for (std::size_t start = 0; start < length; start += 4 * quarter)
            for (std::size_t i = 0; i < quarter; ++i)
                turnTogether(values_.data() + start + i, quarter, turns_[i * step], turns_[2 * i * step],
                             turns_[3 * i * step]);
    constexpr Turn none{1, 0}; // of the last round
    for (std::size_t start = 0; start < length; start += 4)
        turnTogether(values_.data() + start, 1, none, none, none);
}

std::array<BandPowers, BandTransform::laneCount> BandTransform::powers()
{
    load();
    transform();
    std::array<BandPowers, laneCount> result{};
    for (std::size_t band = 0; band < bandCount; ++band) {
        Lanes sum{};
        for (const std::size_t place : places_[band]) {
            const Value& value = values_[place];
            sum += value.real * value.real + value.imaginary * value.imaginary;
        }
        for (std::size_t lane = 0; lane < laneCount; ++lane)
            result[lane][band] = sum[lane];
    }
    return result;
}

} // namespace qmx
