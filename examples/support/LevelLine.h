// SPDX-License-Identifier: MIT
#pragma once

#include "Devices/QMXVUMeterData.h"

#include <array>
#include <string>

namespace example
{

/// A line on standard error with the elapsed time, what of it was lost and, where levels come, a bar for each channel
/// from -60 to 0 dB that falls slowly. Shown only where that is a terminal, and wiped when done.
class LevelLine
{
public:
    explicit LevelLine(UInt32 channels);
    ~LevelLine();
    LevelLine(const LevelLine&) = delete;
    LevelLine& operator=(const LevelLine&) = delete;

    void take(const QMXVUMeterData& levels);
    /// Draws the line anew when it looks different.
    void show(double seconds, double lostSeconds);

private:
    bool isTerminal_;
    UInt32 channels_;
    bool hasLevels_ = false;
    std::array<Float32, QMXVUMeterData::maximumChannels> shown_{};
    std::string drawn_;
};

} // namespace example
