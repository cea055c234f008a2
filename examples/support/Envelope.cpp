// SPDX-License-Identifier: MIT
#include "support/Envelope.h"

#include <algorithm>
#include <cmath>

namespace example
{

Envelope::Envelope(UInt64 frames, UInt32 channels, std::size_t columns)
    : sampleCount_(frames * channels), columns_(std::min<UInt64>(columns, frames))
{
}

UInt64 Envelope::endOfColumn(std::size_t column) const
{
    return static_cast<UInt64>(static_cast<double>(sampleCount_) * static_cast<double>(column + 1) /
                               static_cast<double>(columns_.size()));
}

void Envelope::finishColumn()
{
    if (samplesInColumn_ > 0)
        columns_[current_].rootMeanSquare =
            static_cast<float>(std::sqrt(squares_ / static_cast<double>(samplesInColumn_)));
    ++current_;
    squares_ = 0;
    samplesInColumn_ = 0;
}

void Envelope::add(std::span<const float> samples)
{
    while (!samples.empty() && current_ < columns_.size()) {
        const UInt64 room = endOfColumn(current_) - position_;
        const auto part = samples.first(std::min<std::size_t>(samples.size(), room));
        EnvelopeColumn& column = columns_[current_];
        float sum = 0;
        for (const float given : part) {
            const float sample = std::isfinite(given) ? given : 0.0F;
            column.lowest = std::min(column.lowest, sample);
            column.highest = std::max(column.highest, sample);
            sum += sample * sample;
        }
        squares_ += static_cast<double>(sum);
        samplesInColumn_ += part.size();
        position_ += part.size();
        if (part.size() == room)
            finishColumn();
        samples = samples.subspan(part.size());
    }
}

float Envelope::peak() const
{
    float peak = 0;
    for (const EnvelopeColumn& column : columns_)
        peak = std::max({peak, column.highest, -column.lowest});
    return peak;
}

} // namespace example
