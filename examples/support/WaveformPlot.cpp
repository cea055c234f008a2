// SPDX-License-Identifier: MIT
#include "support/WaveformPlot.h"

#include "support/LevelPanel.h"

#include <QMXCoreAudio/Foundation/Text/Format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <utf8.h>

namespace example
{
namespace
{

// all in pixels
constexpr double width = 1200;
constexpr double waveformHeight = 372;
constexpr double heightWithLevels = 500;
constexpr double levelsTop = 384;
constexpr double levelsBottom = 480;
constexpr double left = 56;
constexpr double right = left + waveformColumns;
constexpr double bandTop = 84;
constexpr double waveTop = 128;
constexpr double waveBottom = 320;
constexpr double middle = (waveTop + waveBottom) / 2;
constexpr double halfHeight = (waveBottom - waveTop) / 2;

constexpr const char* style = R"(<style>
text{font-family:system-ui,"Segoe UI","Noto Sans","DejaVu Sans",sans-serif;font-size:12px;fill:#5b6472}
.paper{fill:#fff}.title{font-size:20px;font-weight:600;fill:#1b2430}.number{font-size:13px;font-weight:700;fill:#1b2430}
.a{fill:#e8f1fb}.b{fill:#eef6ec}.c{fill:#fdf3e3}
.peak{fill:#8fb8e0}.core{fill:#2e6bb0}
.rule{stroke:#c5ccd6;stroke-width:1;fill:none}.faint{stroke:#1b2430;stroke-opacity:.09}
.pause{fill:#d2452d}.level{stroke:#2e6bb0;fill:none}.floor{stroke:#b26a00;stroke-width:1.5;fill:none}
.level-name{fill:#2e6bb0}.floor-name{fill:#b26a00}
.bound{stroke:#d2452d;stroke-width:1.5}.fine{stroke-width:.7}.flag{fill:#d2452d}
@media (prefers-color-scheme:dark){
text{fill:#9aa5b4}.paper{fill:#12161c}.title,.number{fill:#eef1f5}
.a{fill:#1a2735}.b{fill:#1a2a22}.c{fill:#2d2618}
.peak{fill:#3f6e9f}.core{fill:#9cc8f5}.rule{stroke:#39424f}.faint{stroke:#fff}
.pause{fill:#ff7a5c}.level{stroke:#9cc8f5}.floor{stroke:#e0a850}
.level-name{fill:#9cc8f5}.floor-name{fill:#e0a850}
.bound{stroke:#ff7a5c}.flag{fill:#ff7a5c}}
</style>
)";

template <class... Values> void append(std::string& svg, const char* text, const Values&... values)
{
    svg += qmx::format(text, values...);
}

/// Makes a text fit for XML: markup and control characters are replaced, malformed UTF-8 becomes '?', long texts end in
/// an ellipsis.
std::string xmlText(const std::string& text, std::size_t mostCharacters)
{
    std::string whole, xml;
    utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(whole), '?');
    std::size_t characters = 0;
    for (auto at = whole.cbegin(); at != whole.cend(); ++characters) {
        if (characters == mostCharacters)
            return xml + "\u2026";
        const auto start = at;
        switch (const auto point = utf8::unchecked::next(at)) {
        case '<':
            xml += "&lt;";
            break;
        case '>':
            xml += "&gt;";
            break;
        case '&':
            xml += "&amp;";
            break;
        default:
            xml += point < ' ' || point == 0x7F ? "?" : std::string(start, at);
        }
    }
    return xml;
}

/// A round step between ticks, for about ten ticks in `seconds`.
double tickStep(double seconds)
{
    constexpr std::array<double, 17> steps{0.1, 0.2, 0.5, 1,   2,   5,    10,   15,  30,
                                           60,  120, 300, 600, 900, 1800, 3600, 7200};
    const auto found = std::ranges::find_if(steps, [&](double step) { return seconds / step <= 14; });
    return found != steps.end() ? *found : std::ceil(seconds / 14 / 3600) * 3600;
}

/// Maps frames to positions across and samples to positions down.
class Scale
{
public:
    Scale(UInt64 frames, float peak) : frames_(static_cast<double>(frames))
    {
        // a quiet recording is drawn larger, in whole steps of 6 dB
        while (halvings_ < 8 && std::ldexp(peak, halvings_ + 1) <= 1)
            ++halvings_;
    }

    double x(UInt64 frame) const
    {
        return left + waveformColumns * std::min(1.0, static_cast<double>(frame) / frames_);
    }
    double y(float sample) const
    {
        return middle - halfHeight * std::clamp(std::ldexp(static_cast<double>(sample), halvings_), -1.0, 1.0);
    }
    /// The level of the drawing's upper edge, in dB relative to full scale.
    int decibels() const { return -6 * halvings_; }

private:
    double frames_;
    int halvings_ = 0;
};

void drawHeading(std::string& svg, const WaveformPlot& plot, const Scale& scale, float peak)
{
    append(svg, "<text class=\"title\" x=\"%g\" y=\"38\">%s</text>\n", left, xmlText(plot.title, 80));
    append(svg, "<text x=\"%g\" y=\"60\">%s</text>\n", left, xmlText(plot.subtitle, 120));
    std::string loudest = "silent";
    if (const double level = 20 * std::log10(static_cast<double>(peak)); peak > 0) {
        loudest = "peak ";
        append(loudest, "%s%.1f dB", level < -0.05 ? "\u2212" : "", std::abs(level));
    }
    append(svg, "<rect class=\"peak\" x=\"%g\" y=\"50\" width=\"11\" height=\"11\" rx=\"2\"/>", right - 222);
    append(svg, "<text x=\"%g\" y=\"60\">%s</text>", right - 206, loudest);
    append(svg, "<rect class=\"core\" x=\"%g\" y=\"50\" width=\"11\" height=\"11\" rx=\"2\"/>", right - 100);
    append(svg, "<text x=\"%g\" y=\"60\">mean (RMS)</text>\n", right - 84);
    for (const auto& [at, lower] : {std::pair{middle - halfHeight, 0}, std::pair{middle - halfHeight / 2, 6}})
        append(svg, "<text x=\"%g\" y=\"%g\" text-anchor=\"end\">%s%d dB</text>\n", left - 8, at + 4,
               scale.decibels() - lower < 0 ? "\u2212" : "", std::abs(scale.decibels() - lower));
}

void drawBand(std::string& svg, std::size_t index, const WaveformPlot& plot, const Scale& scale)
{
    const WaveformPlot::Track& track = plot.tracks[index];
    const double from = scale.x(track.begin);
    const double across = std::max(0.0, scale.x(track.end) - from);
    const double seconds = static_cast<double>(track.end - std::min(track.begin, track.end)) / plot.sampleRate;
    const std::string start = clockTime(static_cast<double>(track.begin) / plot.sampleRate);
    const std::string length = clockTime(seconds);
    append(svg, "<g><title>%zu: from %s, %s long</title>", index + 1, start, length);
    append(svg, "<rect class=\"%c\" x=\"%.1f\" y=\"%g\" width=\"%.1f\" height=\"%g\"/>", "abc"[index % 3], from,
           bandTop, across, waveBottom - bandTop);
    constexpr double roomForNumber = 22;
    constexpr double roomForTimes = 72;
    constexpr double roomForOneLine = 150;
    if (across >= roomForNumber)
        append(svg, "<text class=\"number\" x=\"%.1f\" y=\"%g\">%zu</text>", from + 7, bandTop + 17, index + 1);
    if (across >= roomForOneLine)
        append(svg, "<text x=\"%.1f\" y=\"%g\">from %s \u00b7 %s long</text>", from + 7, bandTop + 34, start, length);
    else if (across >= roomForTimes)
        append(svg, "<text x=\"%.1f\" y=\"%g\">%s</text><text x=\"%.1f\" y=\"%g\">%s long</text>", from + 28,
               bandTop + 17, start, from + 7, bandTop + 34, length);
    svg += "</g>\n";
}

void drawGrid(std::string& svg, const WaveformPlot& plot, const Scale& scale)
{
    for (const double y : {middle - halfHeight / 2, middle + halfHeight / 2})
        append(svg, "<path class=\"faint\" d=\"M%g %gH%g\"/>", left, y, right);
    const double seconds = static_cast<double>(plot.frames) / plot.sampleRate;
    const double step = tickStep(seconds);
    for (int tick = 0; tick * step <= seconds; ++tick) {
        const double x = scale.x(static_cast<UInt64>(tick * step * plot.sampleRate));
        append(svg, "<path class=\"faint\" d=\"M%.1f %gV%g\"/><path class=\"rule\" d=\"M%.1f %gv6\"/>", x, waveTop,
               waveBottom, x, waveBottom);
        append(svg, "<text x=\"%.1f\" y=\"%g\" text-anchor=\"%s\">%s</text>\n", x, waveBottom + 22,
               x > right - 12 ? "end" : "middle", clockTime(tick * step, step < 1));
    }
    append(svg, "<path class=\"rule\" d=\"M%g %gH%g\"/>\n", left, waveBottom, right);
}

/// The area between two lines over the columns, stepped from one column to the next.
template <class Upper, class Lower>
void drawArea(std::string& svg, const char* name, const std::vector<EnvelopeColumn>& columns, Upper upper, Lower lower)
{
    const double across = waveformColumns / static_cast<double>(columns.size());
    const auto column = [&](std::size_t i) {
        return std::lround(10 * (left + across * (static_cast<double>(i) + 0.5)));
    };
    long x = column(0);
    long y = std::lround(10 * upper(columns[0]));
    append(svg, "<path class=\"%s\" d=\"M%g %gl", name, static_cast<double>(x) / 10, static_cast<double>(y) / 10);
    const auto lineTo = [&](std::size_t i, double position) {
        const long nextX = column(i);
        const long nextY = std::lround(10 * position);
        append(svg, "%g%s%g ", static_cast<double>(nextX - x) / 10, nextY < y ? "" : " ",
               static_cast<double>(nextY - y) / 10);
        x = nextX;
        y = nextY;
    };
    for (std::size_t i = 1; i < columns.size(); ++i)
        lineTo(i, upper(columns[i]));
    constexpr double leastHeight = 0.6; // so that silence shows as a line
    for (std::size_t i = columns.size(); i-- > 0;)
        lineTo(i, std::max(lower(columns[i]), upper(columns[i]) + leastHeight));
    svg.back() = 'z';
    svg += "\"/>\n";
}

/// Draws the bounds between tracks, as fine lines if they are crowded, so that the waveform stays visible.
void drawBounds(std::string& svg, const WaveformPlot& plot, const Scale& scale)
{
    constexpr double roomForFlags = 12;
    double nearest = width;
    for (std::size_t i = 1; i < plot.tracks.size(); ++i)
        nearest = std::min(nearest, scale.x(plot.tracks[i].begin) - scale.x(plot.tracks[i - 1].begin));
    const bool isCrowded = nearest < roomForFlags;
    for (std::size_t i = 1; i < plot.tracks.size(); ++i) {
        const double x = scale.x(plot.tracks[i].begin);
        append(svg, "<path class=\"bound%s\" d=\"M%.1f %gV%g\"/>", isCrowded ? " fine" : "", x, bandTop, waveBottom);
        if (!isCrowded)
            append(svg, "<path class=\"flag\" d=\"M%.1f %gh10l-5 7z\"/>", x - 5, bandTop - 7);
        svg += '\n';
    }
}

} // namespace

std::string clockTime(double seconds, bool withTenths)
{
    const double shown = std::clamp(seconds, 0.0, 1e9); // damaged files may claim any rate
    const long tenths = std::lround(shown * 10);
    const long whole = withTenths ? tenths / 10 : std::lround(shown);
    std::string text;
    if (whole >= 3600)
        append(text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
    else
        append(text, "%ld:%02ld", whole / 60, whole % 60);
    if (withTenths)
        append(text, ".%ld", tenths % 10);
    return text;
}

std::string drawWaveform(const WaveformPlot& plot, const Envelope& envelope)
{
    const float peak = envelope.peak();
    const Scale scale(plot.frames, peak);
    const double height = plot.pauses ? heightWithLevels : waveformHeight;
    std::string svg;
    append(svg,
           "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %g %g\" width=\"%g\" height=\"%g\" role=\"img\">\n",
           width, height, width, height);
    append(svg, "<title>%s</title>\n", xmlText(plot.title, 80));
    svg += style;
    append(svg, "<rect class=\"paper\" width=\"%g\" height=\"%g\" rx=\"10\"/>\n", width, height);
    drawHeading(svg, plot, scale, peak);
    for (std::size_t i = 0; i < plot.tracks.size(); ++i)
        drawBand(svg, i, plot, scale);
    drawGrid(svg, plot, scale);
    drawArea(
        svg, "peak", envelope.columns(), [&](const EnvelopeColumn& c) { return scale.y(c.highest); },
        [&](const EnvelopeColumn& c) { return scale.y(c.lowest); });
    drawArea(
        svg, "core", envelope.columns(),
        [&](const EnvelopeColumn& c) { return scale.y(std::min(c.rootMeanSquare, c.highest)); },
        [&](const EnvelopeColumn& c) { return scale.y(std::max(-c.rootMeanSquare, c.lowest)); });
    drawBounds(svg, plot, scale);
    if (plot.pauses)
        svg += drawLevelPanel(
            *plot.pauses, {left, right, levelsTop, levelsBottom, static_cast<double>(plot.frames), plot.sampleRate});
    svg += "</svg>\n";
    return svg;
}

} // namespace example
