// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/AudioBuffers.h>
#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Tracks/QMXAudioPause.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

class QMXAudioFile;
class QMXAudioTrackInfo;

/// Receives the progress of an auto-definer's run, and the sound that it reads. Operations that are not overridden do
/// nothing.
class QMX_EXPORT QMXAudioTrackAutoDefinerDelegate
{
public:
    virtual ~QMXAudioTrackAutoDefinerDelegate();

    /// `progress` rises within a run, to about 0.5 while the file is read; the last report of a run, cancelled or not,
    /// is 1. Called on the thread of the run, once per block read and once per step of the search.
    virtual void autoDefineProgress(float progress);
    /// What the search by noise floor reads, block by block from the first frame to the last: interleaved, in frames of
    /// `channels` samples, full scale at 1. Called on the thread of the run, before the block's progress. A drawing of
    /// the recording needs no second pass over it. `samples` are valid during the call.
    virtual void autoDefineReadSamples(std::span<const Float32> samples, UInt32 channels);
};

/// Settings of the search by crossings, at first its defaults.
struct QMXAutoDefinerSettings {
    SInt16 sensitivity = 71;
    Float32 lengthOfSilence = 1400; ///< milliseconds
    SInt16 zeroOffset = 500;
};

/// Divides a recording into tracks. The file is read once, in blocks of a fifth of a second; for each block the
/// crossings of a level are counted, which are few in quiet blocks. Boundaries lie either where a run of quiet blocks
/// is followed by a run of loud ones or, when a number of tracks is given, at the quietest places.
///
/// The state is shared by the process: only one run at a time, on any thread but the real-time ones. A run blocks until
/// the file is read.
class QMX_EXPORT QMXAudioTrackAutoDefiner
{
public:
    /// The tracks in order, without gaps, as inactive records with placeholder titles and bounds in frames. Null after
    /// a cancelled run, and when memory runs out. A file that cannot be opened has no frames, and one that cannot be
    /// read to its end is divided as far as it could be read: lastStatus() reports both.
    using Tracks = std::shared_ptr<std::vector<std::shared_ptr<QMXAudioTrackInfo>>>;

    QMXAudioTrackAutoDefiner() = delete;

    /// `sensitivity`: a block with fewer crossings of the level is quiet (default 71). `lengthOfSilence`: minimum
    /// milliseconds of a quiet stretch and of the loud stretch after it, in steps of 200 (default 1400). `zeroOffset`:
    /// the level, a 16-bit sample value (default 500). `numberOfTracks`: 0 divides at silences into at most 98 tracks;
    /// otherwise into that many tracks (default 0). A negative number gives an empty list.
    static Tracks autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        const std::string& path, SInt16 sensitivity, float lengthOfSilence, SInt16 zeroOffset, SInt16 numberOfTracks);
    /// The same in a file that the caller has opened for reading; it is read from its start and stays open.
    static Tracks autoDefineTracksInAudioFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        QMXAudioFile& file, SInt16 sensitivity, float lengthOfSilence, SInt16 zeroOffset, SInt16 numberOfTracks);
    // The same by path, with the defaults above for arguments left out.
    static Tracks autoDefineTracksInFile(const std::string& path);
    static Tracks autoDefineTracksInFile_lengthOfSilence(const std::string& path, float lengthOfSilence);
    static Tracks autoDefineTracksInFile_sensitivity(const std::string& path, SInt16 sensitivity);
    static Tracks autoDefineTracksInFile_sensitivity_lengthOfSilence(const std::string& path, SInt16 sensitivity,
                                                                     float lengthOfSilence);
    static Tracks autoDefineTracksInFile_sensitivity_zeroOffset(const std::string& path, SInt16 sensitivity,
                                                                SInt16 zeroOffset);
    static Tracks autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset(const std::string& path,
                                                                                SInt16 sensitivity,
                                                                                float lengthOfSilence,
                                                                                SInt16 zeroOffset);

    /// The same by another search, which follows the noise floor of the recording: it divides where all of the sound,
    /// in every band of frequency, sinks to that floor, deep and long beside the other such places. It needs no
    /// settings, and takes files of any length, rate, number of channels and coding that the library reads. It keeps
    /// levels only: half a megabyte per hour, six at most. Boundaries lie in the middle of pauses, as those of the
    /// other search do: farthest from both the end of one piece and the start of the next. `numberOfTracks`: 0 for as
    /// many as there are; otherwise that many, or fewer if the recording has fewer pauses. A negative number gives an
    /// empty list.
    static Tracks autoDefineTracksByNoiseFloorInFile(const std::string& path);
    static Tracks autoDefineTracksByNoiseFloorInFile_numberOfTracks(const std::string& path, SInt16 numberOfTracks);
    /// In a file that the caller has opened for reading, which stays open.
    static Tracks autoDefineTracksByNoiseFloorInAudioFile_numberOfTracks(QMXAudioFile& file, SInt16 numberOfTracks);
    /// What the last search by noise floor found; null if it was cancelled or memory ran out. Any thread but the
    /// real-time ones.
    static std::shared_ptr<const QMXAudioPauses> lastPauses();
    /// The settings with which the search by crossings comes nearest to the cuts of the last search by noise floor, for
    /// applications that show them. Reads that search's file again by its path, as a run with progress that can be
    /// cancelled. Nothing if it was cancelled, if no search has found anything, or if the search by crossings cannot
    /// read the file (a compressed one, say): lastStatus() reports the last two.
    static std::optional<QMXAutoDefinerSettings> suggestedSettings();
    /// How long before the next track's first sound the search by noise floor puts boundaries, but never before the
    /// middle of the pause. Any negative number, as by default: in the middle. Any thread.
    static void setSecondsBeforeNextTrack(double seconds) noexcept;
    static double secondsBeforeNextTrack() noexcept;

    /// The status of the first failure in the last run: opening, reading or converting the file, or memory; noErr if
    /// nothing failed, also in a cancelled run. Any thread but the real-time ones.
    static OSStatus lastStatus();
    /// The same as a sentence for people that names the file; empty if nothing failed.
    static std::string lastError();

    /// The receiver of the progress, kept until replaced; null for none. Not while a run is in progress on another
    /// thread.
    static void setDelegate(std::shared_ptr<QMXAudioTrackAutoDefinerDelegate> delegate);

    /// Ends the run in progress at its next block. Any thread; safe in a signal handler. A run that starts clears the
    /// request.
    static void cancel() noexcept;

    /// Sends the delegate `progress`.
    static void autoDefineProgress(float progress);

    /// Whether 16-bit files of other than two channels are converted to two before they are examined, so that their
    /// bounds lie where the pauses are. Off by default: their samples are then taken as if they were stereo. Any
    /// thread.
    static void setConvertsFilesOfOtherChannelCounts(bool converts) noexcept;
    static bool convertsFilesOfOtherChannelCounts() noexcept;
};

/// Reads an opened file and finds its splits: at silences of `runLength` blocks if `*trackCount` is 0, else for the
/// number of tracks in its lower 16 bits, signed. `splits` has room for 99 entries, or that number + 2 when that is
/// more; on return it holds the first frame of each track and then the file's length, and `*trackCount` the number of
/// tracks. A cancelled run and a negative number leave both as they are. 0, or -1 when memory runs out. `level` is the
/// `zeroOffset` of the class above, `sensitivity` its own; the class's state is used too.
[[nodiscard]] QMX_EXPORT SInt32 zeroCrossingSplitFile(QMXAudioFile& file, UInt16 sensitivity, SInt16 runLength,
                                                      SInt16 level, UInt32* splits, UInt32* trackCount);
