// SPDX-License-Identifier: MIT
#include "Tracks/QuietStretches.h"

#include "CoreAudioTypes/AudioBuffers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <limits>
#include <numeric>

namespace qmx
{
namespace
{

using Steps = std::vector<LevelStep>;

constexpr std::size_t smoothing = 9;       // steps, 0.4 s: clicks are shorter
constexpr double floorReach = 12;          // seconds that the floor looks ahead and back
constexpr int seedMargin = 7;              // half decibels above the floor where a stretch starts
constexpr int margin = 6;                  // half decibels above its own level as far as it goes
constexpr std::size_t leastSeed = 6;       // steps
constexpr double surroundings = 20;        // seconds on each side that tell how deep it is
constexpr double besides = 0.6;            // seconds on each side that tell how sharply it starts and ends
constexpr double edge = 1.5;               // seconds from the recording's start and end
constexpr double interruption = 0.5;       // seconds of sound that do not end a stretch
constexpr int dynamics = 150;              // half decibels below the loudest that nobody hears
constexpr int faintness = 90;              // half decibels below the loudest: what is steady there is no music
constexpr int closeness = 16;              // half decibels below the loudest: what is steady there is no noise
constexpr std::size_t leastFaintSeed = 22; // steps
constexpr std::size_t mostPoints = 4096;

/// The middle value of some successive ones, each of which takes the place of the oldest.
class RunningMiddle
{
public:
    explicit RunningMiddle(BandLevel first)
    {
        sorted_.fill(first);
        recent_.fill(first);
    }
    void take(BandLevel level)
    {
        BandLevel* place = std::ranges::find(sorted_, recent_[oldest_]);
        for (; place + 1 < sorted_.end() && place[1] < level; ++place)
            place[0] = place[1];
        for (; place > sorted_.begin() && place[-1] > level; --place)
            place[0] = place[-1];
        *place = level;
        recent_[oldest_] = level;
        oldest_ = (oldest_ + 1) % smoothing;
    }
    BandLevel middle() const { return sorted_[smoothing / 2]; }

private:
    std::array<BandLevel, smoothing> sorted_;
    std::array<BandLevel, smoothing> recent_;
    std::size_t oldest_ = 0;
};

/// Replaces each level by its band's middle one of the smoothing steps around, so that a click is gone and an edge
/// stays.
void removeClicks(Steps& steps)
{
    constexpr std::size_t half = smoothing / 2;
    for (std::size_t band = 0; band < bandCount; ++band) {
        RunningMiddle running(steps.front()[band]);
        for (std::size_t i = 0; i < steps.size() + half; ++i) {
            // the steps before this one but `half` are smooth already, and not read again
            running.take(steps[std::min(i, steps.size() - 1)][band]);
            if (i >= half)
                steps[i - half][band] = running.middle();
        }
    }
}

/// The value that `share` of those counted lie below.
class Histogram
{
public:
    void add(BandLevel level)
    {
        ++counts_[level];
        ++total_;
    }
    int quantile(double share) const
    {
        const auto wanted = static_cast<std::size_t>(share * static_cast<double>(total_));
        std::size_t below = 0;
        for (std::size_t level = 0; level < counts_.size(); ++level)
            if ((below += counts_[level]) > wanted)
                return static_cast<int>(level);
        return static_cast<int>(counts_.size()) - 1;
    }
    /// The mean of the lowest `share`.
    double lowMean(double share) const
    {
        const auto wanted = std::max(1.0, share * static_cast<double>(total_));
        double count = 0;
        double sum = 0;
        for (std::size_t level = 0; level < counts_.size() && count < wanted; ++level) {
            const double taken = std::min(static_cast<double>(counts_[level]), wanted - count);
            count += taken;
            sum += taken * static_cast<double>(level);
        }
        return sum / wanted;
    }

private:
    std::array<std::size_t, 256> counts_{};
    std::size_t total_ = 0;
};

/// The level that the loud parts reach in their loudest band.
int loudestOf(const Steps& steps)
{
    constexpr double loud = 0.95;
    Histogram loudest;
    for (const LevelStep& step : steps)
        loudest.add(std::ranges::max(step));
    return loudest.quantile(loud);
}

/// Raises what is too soft to be heard beside the loud parts to one level, and gives that.
BandLevel raiseInaudible(Steps& steps, int loudest)
{
    const auto least = static_cast<BandLevel>(std::max(0, loudest - dynamics));
    for (LevelStep& step : steps)
        for (BandLevel& level : step)
            level = std::max(level, least);
    return least;
}

/// The lowest mean of some steps in reach, for one step after the other.
class FloorFollower
{
public:
    FloorFollower(const Steps& steps, std::size_t reach) : steps_(steps), reach_(reach) {}

    /// The floor at the next step.
    LevelStep next()
    {
        for (; taken_ < steps_.size() && taken_ <= current_ + reach_; ++taken_)
            take(taken_);
        LevelStep floor;
        for (std::size_t band = 0; band < bandCount; ++band) {
            auto& lowest = lowest_[band];
            while (lowest.front().step + reach_ < current_)
                lowest.pop_front();
            floor[band] = lowest.front().level;
        }
        ++current_;
        return floor;
    }

private:
    struct Mean {
        std::size_t step;
        BandLevel level;
    };

    BandLevel mean(std::size_t step, std::size_t band) const
    {
        constexpr std::size_t half = smoothing / 2;
        std::size_t sum = smoothing / 2;
        for (std::size_t k = 0; k < smoothing; ++k)
            sum += steps_[std::min(std::max(step + k, half) - half, steps_.size() - 1)][band];
        return static_cast<BandLevel>(sum / smoothing);
    }

    void take(std::size_t step)
    {
        for (std::size_t band = 0; band < bandCount; ++band) {
            auto& lowest = lowest_[band];
            const BandLevel level = mean(step, band);
            while (!lowest.empty() && lowest.back().level >= level)
                lowest.pop_back();
            lowest.push_back({step, level});
        }
    }

    const Steps& steps_;
    std::size_t reach_;
    std::size_t current_ = 0;
    std::size_t taken_ = 0;
    std::array<std::deque<Mean>, bandCount> lowest_; // rising in step and level
};

/// How far a step stands above a level in the band where it does so most.
int excess(const LevelStep& step, const LevelStep& level)
{
    int most = -255;
    for (std::size_t band = 0; band < bandCount; ++band)
        most = std::max(most, int{step[band]} - int{level[band]});
    return most;
}

/// The same in the band where it does so second most, which a soft tone alone, as of hum, does not raise.
int broadExcess(const LevelStep& step, const LevelStep& level)
{
    std::array<int, 2> most{0, 0};
    for (std::size_t band = 0; band < bandCount; ++band) {
        const int difference = int{step[band]} - int{level[band]};
        if (difference > most[0])
            most = {difference, most[0]};
        else
            most[1] = std::max(most[1], difference);
    }
    constexpr int ofLoudTone = 60; // half decibels
    return std::max(most[1], most[0] - ofLoudTone);
}

bool areAlike(const LevelStep& step, const LevelStep& other)
{
    return excess(step, other) <= margin && excess(other, step) <= margin;
}

Histogram histogramOf(std::span<const LevelStep> steps, std::size_t band)
{
    Histogram levels;
    for (const LevelStep& step : steps)
        levels.add(step[band]);
    return levels;
}

LevelStep middleLevel(std::span<const LevelStep> steps)
{
    LevelStep middle;
    for (std::size_t band = 0; band < bandCount; ++band)
        middle[band] = static_cast<BandLevel>(histogramOf(steps, band).quantile(0.5));
    return middle;
}

/// The level of each band in decibels; what of the sound around reaches into the steps counts little.
BandDecibels noiseLevels(std::span<const LevelStep> steps)
{
    constexpr double share = 0.6;
    BandDecibels levels;
    for (std::size_t band = 0; band < bandCount; ++band)
        levels[band] = lowestDecibels + decibelsPerLevel * static_cast<float>(histogramOf(steps, band).lowMean(share));
    return levels;
}

/// The levels of the quietest second that is audible throughout and ends as it starts: neither digital silence nor
/// sound that fades away tells anything of the noise.
BandDecibels quietestOf(std::span<const LevelStep> steps, BandLevel inaudible, std::size_t second)
{
    const auto total = [](const LevelStep& step) { return std::accumulate(step.begin(), step.end(), std::size_t{0}); };
    std::size_t sum = 0;
    std::size_t count = 0;
    std::size_t lowest = std::numeric_limits<std::size_t>::max();
    std::span<const LevelStep> quietest;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (std::ranges::max(steps[i]) == inaudible) {
            sum = count = 0;
            continue;
        }
        sum += total(steps[i]);
        if (++count > second)
            sum -= total(steps[i - second]);
        if (count >= second && sum < lowest && areAlike(steps[i + 1 - second], steps[i])) {
            lowest = sum;
            quietest = steps.subspan(i + 1 - second, second);
        }
    }
    return noiseLevels(quietest);
}

/// How far the levels of the upper bands, where noise is steadiest, wander below the middle: clicks only raise them.
float unsteadinessOf(std::span<const LevelStep> steps)
{
    constexpr std::size_t lower = bandCount / 2;
    float sum = 0;
    for (std::size_t band = lower; band < bandCount; ++band) {
        const Histogram levels = histogramOf(steps, band);
        sum += decibelsPerLevel * static_cast<float>(2 * (levels.quantile(0.5) - levels.quantile(0.1)));
    }
    return sum / static_cast<float>(bandCount - lower);
}

/// How far steps stand above a floor, but for the loudest ones that `share` leaves out.
float loudness(std::span<const LevelStep> steps, const LevelStep& floor, double share)
{
    Histogram levels;
    for (const LevelStep& step : steps)
        levels.add(static_cast<BandLevel>(broadExcess(step, floor)));
    return decibelsPerLevel * static_cast<float>(levels.quantile(share));
}

/// The sound on each side of a stretch.
struct Surroundings {
    std::span<const LevelStep> before, after;

    Surroundings(const Steps& steps, std::size_t begin, std::size_t end, std::size_t reach)
        : before(std::span(steps).first(begin).last(std::min(reach, begin))),
          after(std::span(steps).subspan(end, std::min(reach, steps.size() - end)))
    {
    }
};

float depthIn(const Surroundings& around, const LevelStep& floor)
{
    constexpr double loud = 0.88;
    constexpr std::size_t least = 20; // steps
    const auto depth = [&](auto steps) { return steps.size() > least ? loudness(steps, floor, loud) : 0; };
    const auto [lower, higher] = std::minmax({depth(around.before), depth(around.after)});
    return std::lerp(lower, higher, 0.2F);
}

float edgeIn(const Surroundings& beside, const LevelStep& floor)
{
    constexpr double loud = 0.75;
    return std::max(loudness(beside.before, floor, loud), loudness(beside.after, floor, loud));
}

float together(const LevelStep& step)
{
    float power = 0;
    for (const BandLevel level : step)
        power += std::pow(10.0F, decibelsOf(level) / 10);
    return 10 * std::log10(power);
}

/// Grows stretches from the places where all bands are near their floors.
class StretchFinder
{
public:
    /// A stretch also starts where all that sounds is at most `faint` and steady, although some band has been fainter.
    /// What comes close to the `loudest` is sound even if it is as steady as noise.
    StretchFinder(const Steps& steps, double seconds, int loudest)
        : steps_(steps), faint_(loudest - faintness), loud_(loudest - closeness),
          around_(static_cast<std::size_t>(surroundings / seconds)),
          beside_(static_cast<std::size_t>(std::max(1.0, besides / seconds))),
          edge_(static_cast<std::size_t>(edge / seconds)),
          interruption_(static_cast<std::size_t>(interruption / seconds))
    {
    }

    void take(std::size_t step, const LevelStep& floor)
    {
        if (std::ranges::max(steps_[step]) <= loud_ && excess(steps_[step], floor) <= seedMargin)
            ++run_;
        else
            endSeed(step);
        if (!continuesFaintRun(steps_[step]))
            endFaintSeed(step);
        if (std::ranges::max(steps_[step]) <= faint_)
            ++faintRun_;
    }

    void finish(LevelAnalysis& analysis)
    {
        endSeed(steps_.size());
        endFaintSeed(steps_.size());
        analysis.soundEnd = steps_.size();
        for (const auto& [begin, end] : spans_) {
            if (begin <= edge_)
                analysis.soundBegin = end;
            else if (end + edge_ >= steps_.size())
                analysis.soundEnd = begin;
            else
                analysis.stretches.push_back(stretch(begin, end));
        }
    }

private:
    struct Span {
        std::size_t begin, end;
    };

    bool continuesFaintRun(const LevelStep& step) const
    {
        return std::ranges::max(step) <= faint_ && (faintRun_ == 0 || areAlike(step, steps_[faintStart_]));
    }

    void endFaintSeed(std::size_t end)
    {
        if (faintRun_ >= leastFaintSeed)
            grow(end - faintRun_, end);
        faintRun_ = 0;
        faintStart_ = end;
    }

    void endSeed(std::size_t end)
    {
        if (run_ >= leastSeed)
            grow(end - run_, end);
        run_ = 0;
    }

    void grow(std::size_t begin, std::size_t end)
    {
        if (!spans_.empty() && end <= spans_.back().end)
            return;
        const std::size_t last = spans_.empty() ? 0 : spans_.back().end;
        begin = std::max(begin, last);
        const LevelStep level = middleLevel(std::span(steps_).subspan(begin, end - begin));
        while (begin > last && excess(steps_[begin - 1], level) <= margin)
            --begin;
        while (end < steps_.size() && excess(steps_[end], level) <= margin)
            ++end;
        if (!spans_.empty() && begin <= last + interruption_ && isAsQuiet(spans_.back(), level))
            spans_.back().end = end;
        else
            spans_.push_back({begin, end});
    }

    bool isAsQuiet(const Span& span, const LevelStep& level) const
    {
        const LevelStep other = middleLevel(std::span(steps_).subspan(span.begin, span.end - span.begin));
        return areAlike(level, other);
    }

    QuietStretch stretch(std::size_t begin, std::size_t end) const
    {
        const auto within = std::span(steps_).subspan(begin, end - begin);
        const LevelStep level = middleLevel(within);
        return {begin,
                end,
                noiseLevels(within),
                depthIn({steps_, begin, end, around_}, level),
                edgeIn({steps_, begin, end, beside_}, level),
                unsteadinessOf(within)};
    }

    const Steps& steps_;
    int faint_;
    int loud_;
    std::size_t faintRun_ = 0;
    std::size_t faintStart_ = 0;
    std::size_t around_;
    std::size_t beside_;
    std::size_t edge_;
    std::size_t interruption_;
    std::size_t run_ = 0;
    std::vector<Span> spans_;
};

} // namespace

LevelAnalysis analyseLevels(std::vector<LevelStep> steps, double seconds)
{
    LevelAnalysis analysis;
    if (steps.empty())
        return analysis;
    removeClicks(steps);
    const int loudest = loudestOf(steps);
    const BandLevel inaudible = raiseInaudible(steps, loudest);
    analysis.stepsPerPoint = (steps.size() + mostPoints - 1) / mostPoints;
    FloorFollower follower(steps, static_cast<std::size_t>(floorReach / seconds));
    StretchFinder finder(steps, seconds, loudest);
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const LevelStep floor = follower.next();
        finder.take(i, floor);
        if (i % analysis.stepsPerPoint == 0)
            analysis.curve.push_back({together(steps[i]), together(floor)});
    }
    finder.finish(analysis);
    const auto sound = std::span(steps).subspan(analysis.soundBegin, analysis.soundEnd - analysis.soundBegin);
    analysis.quietest = quietestOf(sound, inaudible, static_cast<std::size_t>(std::max(1.0, 1 / seconds)));
    return analysis;
}

} // namespace qmx
