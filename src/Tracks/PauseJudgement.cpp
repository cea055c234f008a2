// SPDX-License-Identifier: MIT
#include "Tracks/PauseJudgement.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <numeric>

namespace qmx
{
namespace
{

// all in seconds
constexpr double neighbourhood = 600;
constexpr double rivalry = 45;
constexpr double ownSurroundings = 25;
constexpr double shortestTrack = 10;

constexpr double usualStanding = 18; ///< of a pause that is as likely none

/// From 0 at `low` to 1 at `high`, which may be the lower of the two.
double ramp(double value, double low, double high)
{
    return std::clamp((value - low) / (high - low), 0.0, 1.0);
}

double meanOf(const BandDecibels& levels)
{
    return static_cast<double>(std::accumulate(levels.begin(), levels.end(), 0.0F) / bandCount);
}

struct Candidate {
    double begin, end; ///< seconds
    BandDecibels levels;
    double level, depth, edge, unsteadiness;
    double steadiness = 0;    ///< 0 to 1
    double aboveOthers = 0;   ///< decibels of music above the noise of the pauses around
    double aboveQuietest = 0; ///< decibels by which it is not the quietest sound of the recording, made louder
    double strength = 0;      ///< 0 to 1

    double length() const { return end - begin; }
    double lengthThatCounts() const
    {
        constexpr double longest = 4;
        return std::min(length(), longest);
    }
    /// How much it stands out of the sound: by its depth, and the longer the more.
    double standing() const { return depth * std::sqrt(lengthThatCounts()); }
    /// How surely it stands out where `needed` makes it a half.
    double outstanding(double needed) const
    {
        return ramp(standing(), 0.6 * needed, 1.4 * needed) * ramp(length(), 0.25, 0.6);
    }
    /// How suddenly the sound ends before it or starts after it, 0 to 1: where music only thins out it does neither.
    double sharpness() const { return ramp(edge, 9, 22); }
    double weight() const { return outstanding(usualStanding) * steadiness; }
    double evidence() const
    {
        constexpr double most = 60;
        return weight() * std::min(standing(), most);
    }
};

using Candidates = std::vector<Candidate>;

/// Calls `visit` for each other candidate that starts at most `reach` seconds from this one.
template <class Visit> void visitOthers(const Candidates& all, std::size_t self, double reach, Visit visit)
{
    const double here = all[self].begin;
    const auto first = std::ranges::lower_bound(all, here - reach, {}, &Candidate::begin);
    for (auto at = first; at != all.end() && at->begin <= here + reach; ++at)
        if (at != all.begin() + static_cast<std::ptrdiff_t>(self))
            visit(*at);
}

using Group = std::vector<const Candidate*>;

/// Sorts the candidates by a value; gives the one below whose value `share` of the weight lies.
template <class Value, class Weight> const Candidate& quantile(Group& group, double share, Value value, Weight weight)
{
    std::ranges::sort(group, {}, value);
    double total = 0;
    for (const Candidate* candidate : group)
        total += std::invoke(weight, candidate);
    double below = 0;
    for (const Candidate* candidate : group)
        if ((below += std::invoke(weight, candidate)) >= share * total)
            return *candidate;
    return *group.back();
}

/// Noise is steady, and music hardly is. Clicks make all the quiet of a recording less steady.
void judgeSteadiness(Candidates& candidates)
{
    Group all;
    for (const Candidate& candidate : candidates)
        all.push_back(&candidate);
    const double usual =
        all.empty() ? 0 : quantile(all, 0.3, &Candidate::unsteadiness, &Candidate::standing).unsteadiness;
    for (Candidate& candidate : candidates)
        candidate.steadiness = ramp(candidate.unsteadiness - usual, 2.8, 1);
}

/// The clear candidates nearest to one, and itself if it is clear.
Group clearOnesAround(const Candidates& candidates, const std::vector<std::size_t>& clear, std::size_t i)
{
    constexpr std::ptrdiff_t mostOnEachSide = 8;
    const auto place = std::ranges::lower_bound(clear, i);
    const auto first = place - std::min(mostOnEachSide, place - clear.begin());
    const auto last = place + std::min(mostOnEachSide + 1, clear.end() - place);
    Group around;
    for (auto at = first; at != last; ++at)
        if (std::abs(candidates[*at].begin - candidates[i].begin) <= neighbourhood)
            around.push_back(&candidates[*at]);
    return around;
}

/// How levels differ from others on the mean of the bands, and how far the bands deviate from that: noise that becomes
/// louder keeps its colour, music that goes on does not have that of the noise.
struct Difference {
    double mean = 0;
    double deviation = 0;

    Difference(const BandDecibels& levels, const BandDecibels& others)
    {
        std::vector<double> differences;
        for (std::size_t band = 0; band < bandCount; ++band)
            if (levels[band] != others[band]) // else nothing sounds in this band
                differences.push_back(static_cast<double>(levels[band] - others[band]));
        if (differences.empty())
            return;
        const auto count = static_cast<double>(differences.size());
        mean = std::accumulate(differences.begin(), differences.end(), 0.0) / count;
        for (const double difference : differences)
            deviation += std::abs(difference - mean) / count;
    }
};

/// How much of what levels are above others is not of the same strength in all bands, 0 to 1.
double colouring(const BandDecibels& levels, const BandDecibels& others)
{
    constexpr double ofNoise = 0.03;
    const Difference difference(levels, others);
    return difference.mean > 0 ? std::max(ofNoise, ramp(difference.deviation / difference.mean, 0.12, 0.3)) : 0;
}

/// The noise of the pauses around is the same, or at least of the same colour.
void compareWithOthers(Candidates& candidates)
{
    constexpr double usualShare = 0.4; // music is above the noise, never below
    constexpr std::size_t fewest = 3;  // of two, neither is the usual one
    std::vector<std::size_t> clear;
    for (std::size_t i = 0; i < candidates.size(); ++i)
        if (candidates[i].weight() > 0.5)
            clear.push_back(i);
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        Candidate& candidate = candidates[i];
        Group around = clearOnesAround(candidates, clear, i);
        if (around.size() < fewest)
            continue;
        const Candidate& usual = quantile(around, usualShare, &Candidate::level, &Candidate::evidence);
        candidate.aboveOthers =
            std::max(0.0, candidate.level - usual.level) * colouring(candidate.levels, around.front()->levels);
    }
}

/// Where no pause is known, the quietest sound of the recording is the noise: what goes on above it is music.
void compareWithQuietest(Candidates& candidates, const BandDecibels& quietest)
{
    for (Candidate& candidate : candidates)
        if (const Difference difference(candidate.levels, quietest); difference.mean > 0)
            candidate.aboveQuietest = difference.deviation;
}

/// How many others like it a candidate has around: the pauses of a recording are of a kind.
struct Support {
    double all = 0;
    double sharp = 0; ///< of those where the sound ends or starts suddenly
};

Support supportOf(const Candidates& candidates, std::size_t i)
{
    Support support;
    visitOthers(candidates, i, neighbourhood, [&](const Candidate& other) {
        if (std::abs(other.begin - candidates[i].begin) <= ownSurroundings)
            return;
        const double ratio = other.lengthThatCounts() / candidates[i].lengthThatCounts();
        const double likeness = other.weight() * ramp(ratio, 0.2, 0.5) * ramp(ratio, 4, 2.5);
        support.all += likeness;
        support.sharp += likeness * other.sharpness();
    });
    return support;
}

/// From 1 for none to 0 for very much; a half at the tolerance.
double tolerated(double value, double tolerance)
{
    return 1 / (1 + value * value / (tolerance * tolerance));
}

/// One alone has to stand out more, and to last; and much more where the sound sinks into it and rises from it slowly,
/// as in a quiet passage. One above the noise of the others hardly is a pause, and few that differ from the quietest
/// sound of the recording neither: many alike are between tracks even where the needle was lifted once.
void judgeStrength(Candidates& candidates)
{
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        Candidate& candidate = candidates[i];
        const Support support = supportOf(candidates, i);
        const double lonely = ramp(support.all, 1, 0);
        const double alike = ramp(support.all, 1, 2);
        const double blurred = ramp(candidate.sharpness() + support.sharp + alike, 1, 0);
        const double needed = usualStanding * (1 + 0.5 * lonely + 3 * blurred);
        candidate.strength = candidate.outstanding(needed) * candidate.steadiness *
                             std::lerp(1.0, ramp(candidate.length(), 0.4, 1), lonely) *
                             tolerated(candidate.aboveOthers, 0.6) *
                             std::lerp(tolerated(candidate.aboveQuietest, 3), 1.0, alike);
    }
}

/// What is short, and much shorter than most pauses of the recording, is a rest in the music.
void weakenUnusuallyShort(Candidates& candidates)
{
    std::vector<double> lengths;
    for (const Candidate& candidate : candidates)
        if (candidate.strength > 0.5)
            lengths.push_back(candidate.length());
    if (lengths.empty())
        return;
    const auto middle = lengths.begin() + std::ssize(lengths) / 2;
    std::ranges::nth_element(lengths, middle);
    for (Candidate& candidate : candidates)
        candidate.strength *= 0.5 + 0.5 * std::max(ramp(candidate.length(), 0.2 * *middle, 0.7 * *middle),
                                                   ramp(candidate.length(), 0.6, 1.3));
}

/// One of many, as between sentences, has to stand out of them: to be longer than the sixth longest around it.
void weakenOneOfMany(Candidates& candidates)
{
    constexpr std::size_t many = 6;
    std::vector<double> rivals;
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        rivals.clear();
        visitOthers(candidates, i, rivalry,
                    [&](const Candidate& other) { rivals.push_back(other.length() * std::sqrt(other.weight())); });
        if (rivals.size() < many)
            continue;
        std::ranges::nth_element(rivals, rivals.begin() + many - 1, std::greater());
        const double usual = rivals[many - 1];
        if (usual > 0)
            candidates[i].strength *= 0.1 + 0.9 * ramp(candidates[i].length(), usual, 2 * usual);
    }
}

/// Whether a candidate divides rather than the next one, or is as good as that and has lost already.
bool isFirstOf(const Candidate& candidate, const Candidate& next, bool hasLost)
{
    return 1.5 * candidate.strength >= next.strength || (hasLost && 1.3 * candidate.standing() >= next.standing());
}

/// Of several close together the first divides, unless a later one is much stronger: a piece that starts with single
/// sounds has a row of others after its own. What is close to the start or end of all sound does not divide.
void weakenCrowded(Candidates& candidates, double soundBegin, double soundEnd)
{
    std::vector<bool> loses(candidates.size());
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        if (candidates[i].begin - soundBegin < shortestTrack || soundEnd - candidates[i].end < shortestTrack)
            loses[i] = true;
        for (std::size_t k = i + 1; k < candidates.size() && candidates[k].begin - candidates[i].end < shortestTrack;
             ++k)
            loses[isFirstOf(candidates[i], candidates[k], loses[i]) ? k : i] = true;
    }
    for (std::size_t i = 0; i < candidates.size(); ++i)
        if (loses[i])
            candidates[i].strength *= 0.4;
}

} // namespace

std::vector<float> pauseStrengths(const LevelAnalysis& analysis, double seconds)
{
    Candidates candidates;
    for (const QuietStretch& stretch : analysis.stretches)
        candidates.push_back({.begin = static_cast<double>(stretch.begin) * seconds,
                              .end = static_cast<double>(stretch.end) * seconds,
                              .levels = stretch.levels,
                              .level = meanOf(stretch.levels),
                              .depth = static_cast<double>(stretch.depth),
                              .edge = static_cast<double>(stretch.edge),
                              .unsteadiness = static_cast<double>(stretch.unsteadiness)});
    judgeSteadiness(candidates);
    compareWithOthers(candidates);
    compareWithQuietest(candidates, analysis.quietest);
    judgeStrength(candidates);
    weakenOneOfMany(candidates);
    // the deepest and longest stand out among clear ones too
    for (Candidate& candidate : candidates)
        candidate.strength *= 0.85 + 0.1 * ramp(candidate.depth, 15, 50) + 0.05 * ramp(candidate.length(), 1, 5);
    weakenCrowded(candidates, static_cast<double>(analysis.soundBegin) * seconds,
                  static_cast<double>(analysis.soundEnd) * seconds);
    weakenUnusuallyShort(candidates);
    std::vector<float> strengths;
    for (const Candidate& candidate : candidates)
        strengths.push_back(static_cast<float>(candidate.strength));
    return strengths;
}

std::vector<bool> dividingStretches(const std::vector<QuietStretch>& stretches, const std::vector<float>& strengths,
                                    double seconds, std::optional<std::size_t> wanted)
{
    constexpr float clear = 0.5F;
    std::vector<std::size_t> order(stretches.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::ranges::stable_sort(order, std::greater(), [&](std::size_t i) { return strengths[i]; });
    const auto apart = static_cast<std::size_t>(shortestTrack / seconds);
    std::vector<bool> divides(stretches.size());
    std::vector<std::size_t> chosen;
    for (const std::size_t i : order) {
        if (wanted ? chosen.size() == *wanted : strengths[i] < clear)
            break;
        const bool isCrowded = std::ranges::any_of(chosen, [&](std::size_t other) {
            return stretches[i].begin < stretches[other].end + apart &&
                   stretches[other].begin < stretches[i].end + apart;
        });
        if (isCrowded)
            continue;
        divides[i] = true;
        chosen.push_back(i);
    }
    return divides;
}

} // namespace qmx
