// SPDX-License-Identifier: MIT
#include "Tracks/QMXAudioTrackAutoDefiner.h"

#include "FileRelated/QMXAudioFile.h"
#include "Foundation/HeapBlock.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Log.h"
#include "Tracks/CrossingBlocks.h"
#include "Tracks/DefinerProgress.h"
#include "Tracks/DefinerRun.h"
#include "Tracks/QMXAudioTrackInfo.h"
#include "Tracks/SilenceAnalysis.h"

#include <algorithm>
#include <atomic>

namespace
{

using qmx::definerRun::cannotBeDivided, qmx::definerRun::fail, qmx::definerRun::failure, qmx::definerRun::isCancelled;

constexpr QMXAutoDefinerSettings defaults;

std::atomic<bool> convertsOtherChannelCounts{false};

/// Counts the crossings of each block into `counts`. Blocks past their count are reported but not stored.
void countBlocks(qmx::CrossingBlocks& blocks, SInt16 level, UInt32* counts)
{
    for (UInt64 block = 0; blocks.hasMore() && !isCancelled(); ++block) {
        const UInt32 size = blocks.read();
        if (block < blocks.count())
            counts[block] = countZeroCrossings(blocks.format(), blocks.samples(), size, level);
        qmx::definerProgress::advance();
    }
}

/// As zeroCrossingSplitFile, within a run.
SInt32 divide(QMXAudioFile& file, UInt16 sensitivity, SInt16 runLength, SInt16 level, UInt32* splits,
              UInt32* trackCount)
{
    const SInt32 result = qmx::withinMemory(-1, [&]() -> SInt32 {
        qmx::CrossingBlocks blocks(file);
        const UInt32 lengthInFrames = file.lengthInFrames();
        qmx::definerProgress::setBlockCount(blocks.count());
        const auto counts = qmx::zeroedHeapArray<UInt32>(blocks.count());
        if (!counts || !blocks.hasMemory())
            return -1;
        countBlocks(blocks, level, counts.get());

        if (const auto wanted = static_cast<SInt16>(*trackCount); wanted >= 0 && !isCancelled()) {
            // Intended: the counted search keeps the first chosen place; its last one makes room for the file's end.
            const UInt32 found =
                *trackCount != 0 ? findCountedSplits(counts.get(), static_cast<SInt16>(blocks.count()), wanted, splits)
                                 : findThresholdSplits(counts.get(), blocks.count(), sensitivity,
                                                       static_cast<UInt32>(runLength), splits);
            std::for_each_n(splits, found, [&](UInt32& split) { split *= blocks.frames(); });
            splits[found] = lengthInFrames;
            *trackCount = found;
        }
        qmx::definerProgress::finish();
        return 0;
    });
    if (result != 0)
        fail(memFullErr, file, cannotBeDivided);
    return result;
}

QMXAudioTrackAutoDefiner::Tracks define(QMXAudioFile& file, SInt16 sensitivity, float lengthOfSilence,
                                        SInt16 zeroOffset, SInt16 numberOfTracks)
{
    auto trackCount = static_cast<UInt32>(numberOfTracks);
    std::vector<UInt32> splits(static_cast<std::size_t>(std::max(99, numberOfTracks + 2)));
    qmx::definerRun::start();
    const auto runLength = qmx::truncated<SInt16>(lengthOfSilence / 1000.0F * 5.0F);
    if (divide(file, static_cast<UInt16>(sensitivity), runLength, zeroOffset, splits.data(), &trackCount) != 0)
        qmx::Log("An Error Ocurred While Auto-Defining Tracks");
    if (isCancelled() || trackCount == 0)
        return nullptr;

    auto tracks = std::make_shared<QMXAudioTrackAutoDefiner::Tracks::element_type>();
    for (SInt32 i = 0; i < static_cast<SInt32>(trackCount); ++i) {
        const auto index = static_cast<std::size_t>(i);
        tracks->push_back(qmx::definerRun::untitledTrack(index, splits[index], splits[index + 1]));
    }
    return tracks;
}

} // namespace

SInt32 zeroCrossingSplitFile(QMXAudioFile& file, UInt16 sensitivity, SInt16 runLength, SInt16 level, UInt32* splits,
                             UInt32* trackCount)
{
    failure().clear();
    return divide(file, sensitivity, runLength, level, splits, trackCount);
}

QMXAudioTrackAutoDefinerDelegate::~QMXAudioTrackAutoDefinerDelegate() = default;

void QMXAudioTrackAutoDefinerDelegate::autoDefineProgress(float /*progress*/) {}

void QMXAudioTrackAutoDefinerDelegate::autoDefineReadSamples(std::span<const Float32> /*samples*/, UInt32 /*channels*/)
{
}

QMXAudioTrackAutoDefiner::Tracks
QMXAudioTrackAutoDefiner::autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
    const std::string& path, SInt16 sensitivity, float lengthOfSilence, SInt16 zeroOffset, SInt16 numberOfTracks)
{
    return qmx::definerRun::run([&]() -> Tracks {
        const auto file = qmx::definerRun::openedFile(path);
        return define(*file, sensitivity, lengthOfSilence, zeroOffset, numberOfTracks);
    });
}

QMXAudioTrackAutoDefiner::Tracks
QMXAudioTrackAutoDefiner::autoDefineTracksInAudioFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
    QMXAudioFile& file, SInt16 sensitivity, float lengthOfSilence, SInt16 zeroOffset, SInt16 numberOfTracks)
{
    file.rewind();
    return qmx::definerRun::run([&] { return define(file, sensitivity, lengthOfSilence, zeroOffset, numberOfTracks); });
}

OSStatus QMXAudioTrackAutoDefiner::lastStatus()
{
    return failure().status();
}

std::string QMXAudioTrackAutoDefiner::lastError()
{
    return failure().sentence();
}

QMXAudioTrackAutoDefiner::Tracks QMXAudioTrackAutoDefiner::autoDefineTracksInFile(const std::string& path)
{
    return autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        path, defaults.sensitivity, defaults.lengthOfSilence, defaults.zeroOffset, 0);
}

QMXAudioTrackAutoDefiner::Tracks
QMXAudioTrackAutoDefiner::autoDefineTracksInFile_lengthOfSilence(const std::string& path, float lengthOfSilence)
{
    return autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        path, defaults.sensitivity, lengthOfSilence, defaults.zeroOffset, 0);
}

QMXAudioTrackAutoDefiner::Tracks QMXAudioTrackAutoDefiner::autoDefineTracksInFile_sensitivity(const std::string& path,
                                                                                              SInt16 sensitivity)
{
    return autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        path, sensitivity, defaults.lengthOfSilence, defaults.zeroOffset, 0);
}

QMXAudioTrackAutoDefiner::Tracks
QMXAudioTrackAutoDefiner::autoDefineTracksInFile_sensitivity_lengthOfSilence(const std::string& path,
                                                                             SInt16 sensitivity, float lengthOfSilence)
{
    return autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        path, sensitivity, lengthOfSilence, defaults.zeroOffset, 0);
}

QMXAudioTrackAutoDefiner::Tracks
QMXAudioTrackAutoDefiner::autoDefineTracksInFile_sensitivity_zeroOffset(const std::string& path, SInt16 sensitivity,
                                                                        SInt16 zeroOffset)
{
    return autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        path, sensitivity, defaults.lengthOfSilence, zeroOffset, 0);
}

QMXAudioTrackAutoDefiner::Tracks
QMXAudioTrackAutoDefiner::autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset(const std::string& path,
                                                                                        SInt16 sensitivity,
                                                                                        float lengthOfSilence,
                                                                                        SInt16 zeroOffset)
{
    return autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(path, sensitivity,
                                                                                        lengthOfSilence, zeroOffset, 0);
}

void QMXAudioTrackAutoDefiner::setDelegate(std::shared_ptr<QMXAudioTrackAutoDefinerDelegate> delegate)
{
    qmx::definerProgress::setDelegate(std::move(delegate));
}

void QMXAudioTrackAutoDefiner::cancel() noexcept
{
    qmx::definerRun::cancel();
}

void QMXAudioTrackAutoDefiner::autoDefineProgress(float progress)
{
    qmx::definerProgress::report(progress);
}

void QMXAudioTrackAutoDefiner::setConvertsFilesOfOtherChannelCounts(bool converts) noexcept
{
    convertsOtherChannelCounts.store(converts, std::memory_order_relaxed);
}

bool QMXAudioTrackAutoDefiner::convertsFilesOfOtherChannelCounts() noexcept
{
    return convertsOtherChannelCounts.load(std::memory_order_relaxed);
}
