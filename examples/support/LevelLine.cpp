// SPDX-License-Identifier: MIT
#include "support/LevelLine.h"

#include <QMXCoreAudio/Foundation/Text/Format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <unistd.h>

namespace example
{
namespace
{

constexpr Float32 fall = 0.9F;   // factor of a bar's fall from one set of levels to the next
constexpr double quietest = -60; // dB

std::string bar(Float32 level)
{
    constexpr std::size_t width = 20;
    const double decibels = level > 0 ? 20 * std::log10(static_cast<double>(level)) : quietest;
    const auto filled =
        static_cast<std::size_t>(std::clamp((decibels - quietest) / -quietest, 0.0, 1.0) * double{width});
    return " [" + std::string(filled, '#') + std::string(width - filled, ' ') + "]";
}

} // namespace

LevelLine::LevelLine(UInt32 channels)
    : isTerminal_(isatty(STDERR_FILENO) == 1), channels_(std::min(channels, QMXVUMeterData::maximumChannels))
{
}

LevelLine::~LevelLine()
{
    if (!drawn_.empty())
        std::fputs("\r\033[K", stderr);
}

void LevelLine::take(const QMXVUMeterData& levels)
{
    hasLevels_ = true;
    for (UInt32 i = 0; i < channels_; ++i)
        shown_[i] = std::max(levels.floatValueForChannel(i + 1), shown_[i] * fall);
}

void LevelLine::show(double seconds, double lostSeconds)
{
    if (!isTerminal_)
        return;
    const auto whole = static_cast<UInt64>(seconds);
    std::string line = qmx::format("%qu:%02qu.%qu", whole / 60, whole % 60, static_cast<UInt64>(seconds * 10) % 10);
    if (lostSeconds > 0)
        line += qmx::format("  LOST: %.1f s ", lostSeconds);
    for (UInt32 i = 0; hasLevels_ && i < channels_; ++i)
        line += bar(shown_[i]);
    if (line == drawn_)
        return;
    std::fprintf(stderr, "\r%s\033[K", line.c_str());
    drawn_ = std::move(line);
}

} // namespace example
