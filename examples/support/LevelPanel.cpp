// SPDX-License-Identifier: MIT
#include "support/LevelPanel.h"

#include "support/WaveformPlot.h"

#include <QMXCoreAudio/Foundation/Text/Format.h>

#include <algorithm>
#include <cmath>

namespace example
{
namespace
{

/// Maps frames to positions across and decibels to positions down.
class Scale
{
public:
    Scale(const QMXAudioPauses& pauses, const PanelPlace& place) : place_(place)
    {
        for (const auto& [level, floor] : pauses.levels) {
            highest_ = std::max(highest_, level);
            lowest_ = std::min(lowest_, floor);
        }
        lowest_ = std::floor(lowest_ / 10) * 10;
        highest_ = std::max(std::ceil(highest_ / 10) * 10, lowest_ + 10);
    }

    double x(UInt64 frame) const
    {
        return place_.left + (place_.right - place_.left) * std::min(1.0, static_cast<double>(frame) / place_.frames);
    }
    double y(float decibels) const
    {
        const float share = (highest_ - decibels) / (highest_ - lowest_);
        return place_.top + (place_.bottom - place_.top) * static_cast<double>(std::clamp(share, 0.0F, 1.0F));
    }
    float highest() const { return highest_; }
    float lowest() const { return lowest_; }

private:
    const PanelPlace& place_;
    float highest_ = -120;
    float lowest_ = 0;
};

void drawPause(std::string& svg, const QMXAudioPause& pause, const Scale& scale, const PanelPlace& place)
{
    constexpr double leastWidth = 1.5;
    const double from = scale.x(pause.begin);
    const double across = std::max(leastWidth, scale.x(pause.end) - from);
    const double strength = static_cast<double>(pause.strength);
    const auto time = [&](UInt64 frame) { return clockTime(static_cast<double>(frame) / place.sampleRate, true); };
    svg += qmx::format("<g><title>%s to %s, strength %.2f</title>", time(pause.begin), time(pause.end), strength);
    svg += qmx::format("<rect class=\"pause\" x=\"%.1f\" y=\"%g\" width=\"%.1f\" height=\"%g\" fill-opacity=\"%.2f\"/>",
                       from, place.top, across, place.bottom - place.top, 0.08 + 0.5 * strength);
    if (pause.divides)
        svg += qmx::format("<text x=\"%.1f\" y=\"%g\" text-anchor=\"middle\">%.2f</text>", from + across / 2,
                           place.top - 5, strength);
    svg += "</g>\n";
}

template <class Value>
void drawLine(std::string& svg, const char* name, const QMXAudioPauses& pauses, const Scale& scale, Value value)
{
    svg += qmx::format("<path class=\"%s\" d=\"", name);
    const std::size_t points = std::min(pauses.levels.size(), waveformColumns);
    for (std::size_t i = 0; i < points; ++i) {
        const std::size_t point = i * pauses.levels.size() / points;
        svg += qmx::format("%s%.1f %.1f", i == 0 ? "M" : "L", scale.x(point * pauses.framesPerLevel),
                           scale.y(value(pauses.levels[point])));
    }
    svg += "\"/>\n";
}

} // namespace

std::string drawLevelPanel(const QMXAudioPauses& pauses, const PanelPlace& place)
{
    const Scale scale(pauses, place);
    std::string svg;
    for (const float decibels : {scale.highest(), scale.lowest()})
        svg +=
            qmx::format("<text x=\"%g\" y=\"%g\" text-anchor=\"end\">%s%.0f dB</text>", place.left - 8,
                        scale.y(decibels) + 4, decibels < 0 ? "\u2212" : "", static_cast<double>(std::abs(decibels)));
    svg += qmx::format("<text class=\"level-name\" x=\"%g\" y=\"%g\">level</text>", place.left, place.top - 5);
    svg += qmx::format("<text class=\"floor-name\" x=\"%g\" y=\"%g\">noise floor</text>\n", place.left + 38,
                       place.top - 5);
    for (const QMXAudioPause& pause : pauses.pauses)
        drawPause(svg, pause, scale, place);
    drawLine(svg, "level", pauses, scale, [](const QMXAudioLevelAndFloor& point) { return point.level; });
    drawLine(svg, "floor", pauses, scale, [](const QMXAudioLevelAndFloor& point) { return point.floor; });
    svg += qmx::format("<path class=\"rule\" d=\"M%g %gH%g\"/>\n", place.left, place.bottom, place.right);
    return svg;
}

} // namespace example
