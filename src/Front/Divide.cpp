// SPDX-License-Identifier: MIT
#include "Front/Divide.h"

#include "FileRelated/QMXExtAudioFile.h"
#include "Front/Convert.h"
#include "Front/FrameFiles.h"
#include "Front/Progress.h"
#include "Front/StatusText.h"
#include "Tracks/QMXAudioTrackAutoDefiner.h"
#include "Tracks/QMXAudioTrackInfo.h"

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <limits>
#include <mutex>
#include <utility>

namespace qmx
{
namespace
{

using Definer = QMXAudioTrackAutoDefiner;

/// The definer is the process's: one division at a time has it.
class DefinerTurn
{
public:
    /// Waits for the turn, or until `stop` is requested; isTaken() tells.
    explicit DefinerTurn(const std::stop_token& stop) : isTaken_(false)
    {
        std::unique_lock lock(queue().mutex);
        isTaken_ = queue().changed.wait(lock, stop, [] { return !queue().isBusy; });
        if (isTaken_)
            queue().isBusy = isOfThisThread = true;
    }
    ~DefinerTurn()
    {
        if (!isTaken_)
            return;
        const std::scoped_lock lock(queue().mutex);
        queue().isBusy = isOfThisThread = false;
        queue().changed.notify_one();
    }
    DefinerTurn(const DefinerTurn&) = delete;
    DefinerTurn& operator=(const DefinerTurn&) = delete;

    bool isTaken() const { return isTaken_; }
    static inline thread_local bool isOfThisThread = false;

private:
    struct Queue {
        std::mutex mutex;
        std::condition_variable_any changed;
        bool isBusy = false;
    };
    static Queue& queue()
    {
        static auto& instance = *new Queue; // never destroyed: threads may divide while the process ends
        return instance;
    }

    bool isTaken_;
};

using SampleReceiver = std::function<void(std::span<const float>, UInt32)>;

/// Passes the definer's reports and samples on; each report may cancel its run.
class Reports : public QMXAudioTrackAutoDefinerDelegate
{
public:
    /// The reports are of what is left after the part `done` of the whole.
    Reports(Progress& progress, double done, const SampleReceiver& samples)
        : progress_(progress), done_(done), samples_(samples)
    {
    }
    void autoDefineProgress(float progress) override
    {
        if (!progress_.report(done_ + (1 - done_) * static_cast<double>(progress)))
            Definer::cancel();
    }
    void autoDefineReadSamples(std::span<const Float32> samples, UInt32 channels) override
    {
        if (samples_)
            samples_(samples, channels);
    }

private:
    Progress& progress_;
    double done_;
    const SampleReceiver& samples_;
};

/// Receives the definer's reports, and sets its settings, while it exists.
class DefinerSettings
{
public:
    DefinerSettings(const DivideOptions& options, Progress& progress, double done)
    {
        Definer::setDelegate(std::make_shared<Reports>(progress, done, options.samples));
        Definer::setSecondsBeforeNextTrack(options.secondsBeforeNextTrack);
        Definer::setConvertsFilesOfOtherChannelCounts(true);
    }
    ~DefinerSettings()
    {
        Definer::setDelegate(nullptr);
        Definer::setSecondsBeforeNextTrack(secondsBefore_);
        Definer::setConvertsFilesOfOtherChannelCounts(converts_);
    }
    DefinerSettings(const DefinerSettings&) = delete;
    DefinerSettings& operator=(const DefinerSettings&) = delete;

private:
    double secondsBefore_ = Definer::secondsBeforeNextTrack();
    bool converts_ = Definer::convertsFilesOfOtherChannelCounts();
};

std::optional<Error> objectionToSettings(const DivideOptions& options)
{
    constexpr int most = std::numeric_limits<SInt16>::max();
    const auto isCount = [](int value) { return value >= 0 && value <= most; };
    if (!isCount(options.numberOfTracks) || !isCount(options.sensitivity))
        return Error(paramErr, "A number of tracks and a sensitivity are from 0 to 32767");
    if (options.level < -most - 1 || options.level > most)
        return Error(paramErr, "A level is from -32768 to 32767");
    return std::nullopt;
}

/// What the counts of the search by crossings cannot hold.
std::optional<Error> objectionToLength(const std::string& path, SInt64 frames, Float64 sampleRate, int tracks)
{
    constexpr SInt64 mostFrames = std::numeric_limits<UInt32>::max() / 5;
    constexpr double mostBlocks = std::numeric_limits<SInt16>::max() - 1;
    const double blocks = static_cast<double>(frames) * 5 / sampleRate;
    const auto objection = [&](const std::string& text) { return Error(paramErr, path + ": " + text, path); };
    if (frames > mostFrames)
        return objection("It is too long for the search by crossings");
    if (tracks > 0 && blocks > mostBlocks)
        return objection("It is longer than 1 h 49 min, too long for a number of tracks");
    if (tracks > blocks)
        return objection("It is too short for " + std::to_string(tracks) + " tracks");
    return std::nullopt;
}

Definer::Tracks define(const std::string& path, const DivideOptions& options)
{
    const auto number = static_cast<SInt16>(options.numberOfTracks);
    if (options.search == TrackSearch::noiseFloor)
        return Definer::autoDefineTracksByNoiseFloorInFile_numberOfTracks(path, number);
    return Definer::autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        path, static_cast<SInt16>(options.sensitivity), options.lengthOfSilence, static_cast<SInt16>(options.level),
        number);
}

float strengthOfCut(const QMXAudioPauses* pauses, SInt64 frame)
{
    if (!pauses)
        return 0;
    const auto found = std::ranges::find(pauses->pauses, static_cast<UInt64>(frame), &QMXAudioPause::cut);
    return found == pauses->pauses.end() ? 0 : found->strength;
}

std::vector<Track> tracksFrom(const Definer::Tracks& found, TrackSearch search)
{
    const auto pauses = search == TrackSearch::noiseFloor ? Definer::lastPauses() : nullptr;
    std::vector<Track> tracks;
    for (const auto& record : *found) {
        if (record->trackBegin() >= record->trackEnd()) // there were fewer pauses than asked for
            continue;
        tracks.push_back({.first = record->trackBegin(),
                          .end = record->trackEnd(),
                          .title = "Track " + std::to_string(tracks.size() + 1),
                          .strength = tracks.empty() ? 0 : strengthOfCut(pauses.get(), record->trackBegin())});
    }
    return tracks;
}

/// Divides the file at `path`, or its samples in the file at `samplesPath`.
Result<std::vector<Track>> divideSamples(const std::string& path, const std::string& samplesPath,
                                         const DivideOptions& options, Progress& progress, double done)
{
    const DefinerTurn turn(options.stop);
    if (!turn.isTaken() || !progress.report(done))
        return fileError(cancelledStatus, path);
    const DefinerSettings settings(options, progress, done);
    const auto found = define(samplesPath, options);
    if (progress.isCancelled())
        return fileError(cancelledStatus, path);
    if (Definer::lastStatus() != noErr)
        return fileError(Definer::lastStatus(), path);
    if (!found)
        return memoryError();
    auto tracks = tracksFrom(found, options.search);
    progress.finish();
    return tracks;
}

/// Crossings are counted in uncompressed samples: those of a file in the system's folder for temporary files.
Result<std::vector<Track>> divideDecoded(const std::string& path, const DivideOptions& options, Progress& progress)
{
    constexpr double partOfDecoding = 0.5;
    std::error_code error;
    const auto folder = std::filesystem::temp_directory_path(error);
    if (error)
        return Error(dirNFErr, "The folder for temporary files (TMPDIR): " + error.message());
    const auto copy = OutputFile::at((folder / "decoded.caf").string(), true);
    if (!copy)
        return copy.error();
    const auto decoded =
        convert(path, copy->temporaryPath(), Format::caf(0, 16),
                {.progress = [&](float done) { return progress.report(partOfDecoding * static_cast<double>(done)); }});
    if (progress.isCancelled())
        return fileError(cancelledStatus, path);
    if (!decoded)
        return decoded.error();
    return divideSamples(path, copy->temporaryPath(), options, progress, partOfDecoding);
}

Result<std::vector<Track>> divideFile(const std::string& path, const DivideOptions& options)
{
    if (auto objection = objectionToSettings(options))
        return *std::move(objection);
    if (DefinerTurn::isOfThisThread)
        return Error(fBsyErr, path + ": It was asked for from within another division", path);
    const auto file = openFile(path);
    if (!file)
        return file.error();
    if ((*file)->lengthInFrames() == 0)
        return std::vector<Track>();
    Progress progress(options.progress, options.stop);
    if (options.search == TrackSearch::noiseFloor)
        return divideSamples(path, path, options, progress, 0);
    if (auto objection =
            objectionToLength(path, (*file)->lengthInFrames(), (*file)->sampleRate(), options.numberOfTracks))
        return *std::move(objection);
    const bool isCompressed = (*file)->bytesPerFrame() == 0;
    return isCompressed ? divideDecoded(path, options, progress) : divideSamples(path, path, options, progress, 0);
}

} // namespace

Result<std::vector<Track>> divide(const std::string& path, const DivideOptions& options)
{
    return orNoMemory([&] { return divideFile(path, options); });
}

} // namespace qmx
