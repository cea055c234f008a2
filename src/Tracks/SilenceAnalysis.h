// SPDX-License-Identifier: MIT
// The analysis behind the track auto-definer: how often blocks of samples cross a level, and where the quiet between
// pieces is. Positions are block indices until zeroCrossingSplitFile (QMXAudioTrackAutoDefiner.h) turns them into
// frames. The split searches report progress to the auto-definer's delegate; everything else may be called on any
// thread.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

/// The smoothing weights of weightedAverage for the distances -4 to +4; they add up to 1.
QMX_EXPORT extern const double dWeights[9];

/// Free for the application; the library neither reads nor writes it.
QMX_EXPORT extern SInt32 counter;

/// How often the samples cross `level`: the count of the channel with the most crossings. `samples` are signed,
/// interleaved and in host order, `byteCount` bytes of them. A channel starts above the level; samples equal to it
/// change nothing. Only the first 1/channels of the block's frames are examined. 0 for a format without channels or
/// bytes per frame.
QMX_EXPORT UInt32 countZeroCrossings(const AudioStreamBasicDescription& format, const SInt16* samples, UInt32 byteCount,
                                     SInt16 level);

/// Whether the block crosses `level` less often than `thresholdPerTenthSecond` times per tenth of a second.
QMX_EXPORT bool isSilence(const AudioStreamBasicDescription& format, const SInt16* samples, UInt16 byteCount,
                          SInt16 thresholdPerTenthSecond, UInt32 ignored, SInt16 level);

/// The count at `index` smoothed with dWeights over its neighbours within the table of `length` counts. Each term is
/// truncated; terms beyond the ends are left out.
QMX_EXPORT UInt32 weightedAverage(const UInt32* counts, SInt16 length, SInt16 index);

/// The penalty of a block `distance` blocks from a split: 1000 on it, else 700 / |distance|.
QMX_EXPORT UInt32 fudge(SInt16 distance);

/// Finds splits where at least `minimumRun` blocks below `threshold` are followed by at least as many at or above it,
/// each halfway between the first quiet and the first loud block. Writes block indices to `splits`, 0 first, at most
/// 98, and returns their number.
QMX_EXPORT UInt32 findThresholdSplits(const UInt32* counts, UInt32 length, UInt16 threshold, UInt32 minimumRun,
                                      UInt32* splits);

namespace qmx
{
/// The same without a report of progress.
UInt32 thresholdSplits(const UInt32* counts, UInt32 length, UInt16 threshold, UInt32 minimumRun, UInt32* splits);
} // namespace qmx

/// Finds the `wanted` quietest places, away from both ends and from each other. Writes `wanted` + 2 block indices to
/// `splits` in ascending order: 0, the places, `length`. Returns `wanted`.
QMX_EXPORT UInt32 findCountedSplits(const UInt32* counts, SInt16 length, SInt16 wanted, UInt32* splits);

/// The remainder of `dividend` by `divisor`; 0 for a divisor of 0.
QMX_EXPORT UInt64 myMod(UInt64 dividend, UInt64 divisor);
