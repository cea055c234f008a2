// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

#include <cstddef>
#include <span>
#include <vector>

namespace example
{

/// One column of a waveform: the extremes of its samples, over all channels, and their root mean square.
struct EnvelopeColumn {
    float lowest = 0;
    float highest = 0;
    float rootMeanSquare = 0;
};

/// Gathers a recording into columns of equal length. Samples may come in pieces of any size.
class Envelope
{
public:
    /// `frames` frames of `channels` channels become `columns` columns, or one per frame if there are fewer frames.
    Envelope(UInt64 frames, UInt32 channels, std::size_t columns);

    void add(std::span<const float> samples);
    /// The columns, complete when all samples have been added.
    const std::vector<EnvelopeColumn>& columns() const { return columns_; }
    float peak() const;

private:
    UInt64 endOfColumn(std::size_t column) const;
    void finishColumn();

    UInt64 sampleCount_;
    UInt64 position_ = 0;
    std::size_t current_ = 0;
    double squares_ = 0;
    UInt64 samplesInColumn_ = 0;
    std::vector<EnvelopeColumn> columns_;
};

} // namespace example
