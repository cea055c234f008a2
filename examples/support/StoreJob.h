// SPDX-License-Identifier: MIT
#pragma once

#include "support/CommandLine.h"
#include "support/TrackStore.h"

#include <map>
#include <string>

class QMXAudioFile;

namespace example
{

/// What the command line wants to do with the tracks stored in a recording. Made before any work, so that wrong options
/// are reported first.
class StoreJob
{
public:
    /// A Failure for options that do not go together.
    StoreJob(const CommandLine& line, const std::string& path);

    /// The file to work on.
    const std::string& path() const { return path_; }
    /// Whether to divide the recording and then call `finish`; otherwise `run` does everything.
    bool divides() const { return stores_ || !(lists_ || history_ || repairs_ || edits()); }
    /// Lists, repairs or changes the stored tracks. Returns those that it listed.
    QMXTrackAndProcessingInfo::TrackList run();
    /// Called before a recording is divided. Reads the stored record and makes the copy for --output. A Failure if
    /// tracks are to be stored but cannot be.
    void prepare(const QMXAudioFile& recording);
    /// Prints the tracks found, stores them if asked for, and returns them as they are then.
    QMXTrackAndProcessingInfo::TrackList finish(const QMXTrackAndProcessingInfo::TrackList& tracks) const;

private:
    bool edits() const { return !titles_.empty() || artist_ || album_ || !coverPath_.empty(); }
    void edit(QMXTrackAndProcessingInfo::TrackList& tracks) const;
    void copyToOutput();
    Record kept() const;
    void store(const Record& record) const;

    std::string path_;
    bool stores_, lists_, history_, repairs_, force_;
    std::map<std::size_t, std::string> titles_; // by track, from 1
    std::optional<std::string> output_, artist_, album_;
    std::string coverPath_;
    std::shared_ptr<qmx::Image> cover_;
    Record record_;
};

} // namespace example
