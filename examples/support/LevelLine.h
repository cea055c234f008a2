// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Devices/QMXVUMeterData.h>

#include <array>
#include <string>

namespace example
{

/// A line on standard error with the elapsed time, the lost time and, if there are levels, a slowly falling bar for
/// each channel from -60 to 0 dB. Shown only if standard error is a terminal, and cleared when done.
class LevelLine
{
public:
    explicit LevelLine(UInt32 channels);
    ~LevelLine();
    LevelLine(const LevelLine&) = delete;
    LevelLine& operator=(const LevelLine&) = delete;

    void take(const QMXVUMeterData& levels);
    /// Redraws the line if it has changed.
    void show(double seconds, double lostSeconds);

private:
    bool isTerminal_;
    UInt32 channels_;
    bool hasLevels_ = false;
    std::array<Float32, QMXVUMeterData::maximumChannels> shown_{};
    std::string drawn_;
};

} // namespace example
