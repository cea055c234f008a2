// SPDX-License-Identifier: MIT
#include "Tracks/SettingsSuggestion.h"

#include "CoreAudioTypes/AudioBuffers.h"
#include "FileRelated/QMXAudioFile.h"
#include "Tracks/CrossingBlocks.h"
#include "Tracks/DefinerProgress.h"
#include "Tracks/DefinerRun.h"
#include "Tracks/SilenceAnalysis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>

namespace qmx
{
namespace
{

constexpr std::array<SInt16, 13> levels{20, 40, 70, 100, 150, 220, 330, 500, 750, 1100, 1600, 2400, 3600};
constexpr std::array<SInt16, 14> sensitivities{1, 2, 4, 8, 12, 18, 25, 35, 50, 71, 100, 140, 200, 280};
constexpr std::array<UInt32, 9> runLengths{1, 2, 3, 4, 5, 7, 9, 12, 16};
constexpr float millisecondsPerBlock = 200;

using Counts = std::vector<UInt32>;

struct Bounds {
    UInt64 begin, end; ///< frames
};

std::vector<Bounds> wantedBounds(const QMXAudioPauses& pauses, UInt64 margin)
{
    std::vector<Bounds> wanted;
    for (const QMXAudioPause& pause : pauses.pauses)
        if (pause.divides)
            wanted.push_back({pause.begin - std::min(pause.begin, margin), pause.end + margin});
    return wanted;
}

std::array<Counts, levels.size()> countAll(CrossingBlocks& blocks)
{
    std::array<Counts, levels.size()> counts;
    for (Counts& ofLevel : counts)
        ofLevel.resize(blocks.count());
    definerProgress::setBlockCount(blocks.count());
    for (UInt64 block = 0; blocks.hasMore() && !definerRun::isCancelled(); ++block) {
        const UInt32 size = blocks.read();
        for (std::size_t i = 0; block < blocks.count() && i < levels.size(); ++i)
            counts[i][block] = countZeroCrossings(blocks.format(), blocks.samples(), size, levels[i]);
        definerProgress::advance();
    }
    return counts;
}

/// How well the cuts hit what is wanted, 0 to 1: the harmonic mean of the share of cuts that hit and of pauses hit.
double agreement(std::span<const UInt32> cuts, UInt64 framesPerBlock, std::span<const Bounds> wanted)
{
    std::size_t hits = 0;
    for (const auto& [begin, end] : wanted)
        if (const auto cut = std::ranges::lower_bound(cuts, begin, {}, [&](UInt32 at) { return at * framesPerBlock; });
            cut != cuts.end() && *cut * framesPerBlock <= end)
            ++hits;
    const std::size_t all = cuts.size() + wanted.size();
    return all == 0 ? 1 : 2 * static_cast<double>(hits) / static_cast<double>(all);
}

double distanceFromDefaults(const QMXAutoDefinerSettings& settings)
{
    const QMXAutoDefinerSettings usual;
    return std::abs(std::log(settings.sensitivity / static_cast<double>(usual.sensitivity))) +
           std::abs(std::log(static_cast<double>(settings.lengthOfSilence / usual.lengthOfSilence))) +
           std::abs(std::log(settings.zeroOffset / static_cast<double>(usual.zeroOffset)));
}

} // namespace

QMXAutoDefinerSettings suggestSettings(QMXAudioFile& file, const QMXAudioPauses& pauses)
{
    CrossingBlocks blocks(file);
    const auto wanted = wantedBounds(pauses, UInt64{blocks.frames()} * 5 / 2);
    const auto counts = countAll(blocks);
    std::tuple<double, double> best{-1, 0};
    QMXAutoDefinerSettings suggestion;
    std::array<UInt32, 99> splits{};
    for (std::size_t level = 0; level < levels.size() && !definerRun::isCancelled(); ++level)
        for (const SInt16 sensitivity : sensitivities)
            for (const UInt32 runLength : runLengths) {
                const UInt32 found = thresholdSplits(counts[level].data(), blocks.count(),
                                                     static_cast<UInt16>(sensitivity), runLength, splits.data());
                const QMXAutoDefinerSettings settings{sensitivity, millisecondsPerBlock * static_cast<float>(runLength),
                                                      levels[level]};
                const std::tuple quality{agreement(std::span(splits).subspan(1, found - 1), blocks.frames(), wanted),
                                         -distanceFromDefaults(settings)};
                if (quality > best) {
                    best = quality;
                    suggestion = settings;
                }
            }
    definerProgress::finish();
    return suggestion;
}

} // namespace qmx
