// SPDX-License-Identifier: MIT
// The auto-definer's search by noise floor.
#include "FileRelated/QMXAudioFile.h"
#include "Tracks/DefinerRun.h"
#include "Tracks/NoiseFloorSearch.h"
#include "Tracks/QMXAudioTrackAutoDefiner.h"
#include "Tracks/SettingsSuggestion.h"

#include <atomic>
#include <functional>
#include <mutex>

namespace
{

using Tracks = QMXAudioTrackAutoDefiner::Tracks;

std::atomic<double> secondsToStart{-1};

/// What the last search found, kept for whoever asks, and the path of its file.
struct Found {
    std::shared_ptr<const QMXAudioPauses> pauses;
    std::string path;
};

class Findings
{
public:
    void set(Found found)
    {
        const std::scoped_lock lock(lock_);
        found_ = std::move(found);
    }
    Found get()
    {
        const std::scoped_lock lock(lock_);
        return found_;
    }

private:
    std::mutex lock_;
    Found found_;
};

Findings& lastFindings()
{
    static auto& findings = *new Findings; // never destroyed: a thread may still ask at the end of the process
    return findings;
}

Tracks tracksBetween(const qmx::NoiseFloorFindings& findings)
{
    auto tracks = std::make_shared<Tracks::element_type>();
    UInt64 begin = 0;
    const auto endTrack = [&](UInt64 end) {
        tracks->push_back(qmx::definerRun::untitledTrack(tracks->size(), begin, end));
        begin = end;
    };
    for (const QMXAudioPause& pause : findings.pauses.pauses)
        if (pause.divides)
            endTrack(pause.cut);
    endTrack(findings.frames);
    return tracks;
}

Tracks define(QMXAudioFile& file, SInt16 numberOfTracks)
{
    qmx::definerRun::start();
    if (numberOfTracks < 0)
        return std::make_shared<Tracks::element_type>();
    qmx::NoiseFloorWish wish;
    if (numberOfTracks > 0)
        wish.cuts = static_cast<UInt64>(numberOfTracks - 1);
    if (const double seconds = secondsToStart.load(std::memory_order_relaxed); seconds >= 0)
        wish.secondsToStart = seconds;
    auto findings = qmx::searchByNoiseFloor(file, wish);
    if (qmx::definerRun::isCancelled())
        return nullptr;
    auto tracks = tracksBetween(findings);
    lastFindings().set(
        {std::make_shared<const QMXAudioPauses>(std::move(findings.pauses)), file.path().value_or(std::string())});
    return tracks;
}

Tracks run(const std::function<Tracks()>& define)
{
    lastFindings().set({});
    return qmx::definerRun::run(define);
}

} // namespace

Tracks QMXAudioTrackAutoDefiner::autoDefineTracksByNoiseFloorInFile(const std::string& path)
{
    return autoDefineTracksByNoiseFloorInFile_numberOfTracks(path, 0);
}

Tracks QMXAudioTrackAutoDefiner::autoDefineTracksByNoiseFloorInFile_numberOfTracks(const std::string& path,
                                                                                   SInt16 numberOfTracks)
{
    return run([&] { return define(*qmx::definerRun::openedFile(path), numberOfTracks); });
}

Tracks QMXAudioTrackAutoDefiner::autoDefineTracksByNoiseFloorInAudioFile_numberOfTracks(QMXAudioFile& file,
                                                                                        SInt16 numberOfTracks)
{
    return run([&] { return define(file, numberOfTracks); });
}

std::shared_ptr<const QMXAudioPauses> QMXAudioTrackAutoDefiner::lastPauses()
{
    return lastFindings().get().pauses;
}

std::optional<QMXAutoDefinerSettings> QMXAudioTrackAutoDefiner::suggestedSettings()
{
    return qmx::definerRun::run([]() -> std::optional<QMXAutoDefinerSettings> {
        const auto found = lastFindings().get();
        if (!found.pauses) {
            qmx::definerRun::failure().keepFirst(paramErr, "The last search", "has nothing to suggest settings for");
            return {};
        }
        qmx::definerRun::start();
        const auto file = qmx::definerRun::openedFile(found.path);
        const auto settings = qmx::suggestSettings(*file, *found.pauses);
        if (qmx::definerRun::isCancelled() || lastStatus() != noErr)
            return {};
        return settings;
    });
}

void QMXAudioTrackAutoDefiner::setSecondsBeforeNextTrack(double seconds) noexcept
{
    secondsToStart.store(seconds, std::memory_order_relaxed);
}

double QMXAudioTrackAutoDefiner::secondsBeforeNextTrack() noexcept
{
    return secondsToStart.load(std::memory_order_relaxed);
}
