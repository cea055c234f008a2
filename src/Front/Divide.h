// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/AudioBuffers.h>
#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Result.h>

#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

class QMXAudioTrackInfo;

namespace qmx
{

/// A part of a recording. A plain value.
struct Track {
    SInt64 first = 0; ///< its first frame
    SInt64 end = 0;   ///< the frame after its last one
    std::string title{};
    /// How much the place before it looks like a pause between tracks, 0 to 1; 0 for the first, and where that is not
    /// known.
    float strength = 0;
    /// All that a file keeps of the track: artist, album, cover and the rest; null for a track without a record. The
    /// parts of a divided track may share it: each is stored with a copy that has its own bounds and title.
    std::shared_ptr<QMXAudioTrackInfo> record{};
};

enum class TrackSearch {
    noiseFloor, ///< where all of the sound sinks to the noise floor of the recording; needs no settings
    crossings,  ///< where a fixed level is crossed seldom for long enough
};

struct DivideOptions {
    /// Receives the part that is done, from 0 to exactly 1; false before that cancels. Called on the dividing thread.
    std::function<bool(float)> progress{};
    std::stop_token stop{}; ///< cancels from any thread
    TrackSearch search = TrackSearch::noiseFloor;
    /// 0: as many as there are; otherwise that many, or fewer if the recording has fewer pauses. At most 32767.
    int numberOfTracks = 0;
    /// By noise floor: boundaries lie that long before the next track's first sound; negative: in the middle of pauses.
    double secondsBeforeNextTrack = -1;
    // By crossings:
    int sensitivity = 71;         ///< a fifth of a second with fewer crossings is quiet; 0 to 32767
    float lengthOfSilence = 1400; ///< milliseconds, of a quiet stretch and of the loud one after it at least
    int level = 500;              ///< that is crossed, a 16-bit sample value; -32768 to 32767
    /// By noise floor: receives what is read, from the first frame to the last, as interleaved floats, so that a
    /// drawing takes no second pass. Called on the dividing thread; `samples` are valid during the call.
    std::function<void(std::span<const float> samples, UInt32 channels)> samples{};
};

/// Divides the recording at `path`, of any type and coding, into tracks: in order, without gaps, titled "Track 1" and
/// so on; none if it has no frames. Blocks until it is read; any thread but the real-time ones. Divisions by several
/// threads, which share the described QMXAudioTrackAutoDefiner and its settings, wait for each other.
///
/// Errors: a file that is missing, unreadable, no audio file, or that cannot be read to its end; wrong settings
/// (paramErr). By crossings also, before any work (paramErr): more than 858,993,459 frames; with a number of tracks, a
/// recording longer than 1 h 49 min, and one of fewer fifths of a second than tracks. A call from within a function
/// that another division calls (fBsyErr).
[[nodiscard]] QMX_EXPORT Result<std::vector<Track>> divide(const std::string& path, const DivideOptions& options = {});

} // namespace qmx
