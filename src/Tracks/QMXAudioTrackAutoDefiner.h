// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/Export.h"

#include <memory>
#include <string>
#include <vector>

class QMXAudioFile;
class QMXAudioTrackInfo;

/// Hears how far a run of the auto-definer is. Operations left out do nothing.
class QMX_EXPORT QMXAudioTrackAutoDefinerDelegate
{
public:
    virtual ~QMXAudioTrackAutoDefinerDelegate();

    /// `progress` rises within a run, to about 0.5 while the file is read; the last report of a run, cancelled or not,
    /// is 1. Called on the thread of the run, once per block read and once per step of the search.
    virtual void autoDefineProgress(float progress);
};

/// Divides a recording into tracks. The file is read once, in blocks of a fifth of a second; for each block it is
/// counted how often the signal crosses a level, which quiet blocks hardly do. Boundaries lie either where a run of
/// quiet blocks is followed by a run of loud ones or, when a number of tracks is given, at the quietest places.
///
/// The state is one per process: only one run at a time, on any thread but the real-time ones. It blocks until the file
/// is read.
class QMX_EXPORT QMXAudioTrackAutoDefiner
{
public:
    /// The tracks in order, without gaps, as inactive records with placeholder titles and bounds in frames. Null after
    /// a cancelled run, and where memory runs out. A file that cannot be opened has no frames, and one that cannot be
    /// read to its end is divided as far as it could be read: lastStatus() tells.
    using Tracks = std::shared_ptr<std::vector<std::shared_ptr<QMXAudioTrackInfo>>>;

    QMXAudioTrackAutoDefiner() = delete;

    /// `sensitivity`: a block with fewer crossings of the level is quiet (71 unless given).
    /// `lengthOfSilence`: milliseconds that quiet and the loud stretch behind it must last at least, in steps of 200
    /// (1400). `zeroOffset`: the level, a 16-bit sample value (500). `numberOfTracks`: 0 divides at silences, at most
    /// 98 tracks; else that many tracks (0). A negative number gives an empty list.
    static Tracks autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        const std::string& path, SInt16 sensitivity, float lengthOfSilence, SInt16 zeroOffset, SInt16 numberOfTracks);
    /// The same in a file that the caller has opened for reading, which is read from its beginning and stays open.
    static Tracks autoDefineTracksInAudioFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
        QMXAudioFile& file, SInt16 sensitivity, float lengthOfSilence, SInt16 zeroOffset, SInt16 numberOfTracks);
    // On the path alone, with what is left out as above.
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

    /// What failed first in the last run: opening, reading or converting the file, or memory; noErr where
    /// nothing did, also in a cancelled run. Any thread but the real-time ones.
    static OSStatus lastStatus();
    /// The same as a sentence for people that names the file; empty where nothing failed.
    static std::string lastError();

    /// Who hears of the progress, kept until replaced; null for nobody. Not while a run is in progress on another
    /// thread.
    static void setDelegate(std::shared_ptr<QMXAudioTrackAutoDefinerDelegate> delegate);

    /// Ends the run in progress at its next block. Any thread; safe in a signal handler. A run clears it when it
    /// begins.
    static void cancel() noexcept;

    /// Sends the delegate `progress`.
    static void autoDefineProgress(float progress);

    /// Whether 16-bit files of other than two channels are converted to two before they are examined, so that their
    /// bounds come out where the pauses are. Off at first: their samples are then taken as if they were stereo. Any
    /// thread.
    static void setConvertsFilesOfOtherChannelCounts(bool converts) noexcept;
    static bool convertsFilesOfOtherChannelCounts() noexcept;
};

/// Reads an opened file and finds its splits: at silences of `runLength` blocks where `*trackCount` is 0, else as many
/// tracks as its lower 16 bits say, with a sign. `splits` has room for 99 entries, or that number + 2 when that is
/// more; on return it holds the first frame of each track and then the file's length, and `*trackCount` the number of
/// tracks. A cancelled run and a negative number leave both as they are. 0, or -1 when memory runs out.
/// The counts of crossings take `level` and `sensitivity` as in the class above; its state is used too.
[[nodiscard]] QMX_EXPORT SInt32 zeroCrossingSplitFile(QMXAudioFile& file, UInt16 sensitivity, SInt16 runLength,
                                                      SInt16 level, UInt32* splits, UInt32* trackCount);
