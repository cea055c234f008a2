// SPDX-License-Identifier: MIT
#pragma once

#include "support/CommandLine.h"
#include "support/TrackStore.h"

#include <map>
#include <string>

class QMXAudioFile;

namespace example
{

/// What a command line asks to be done with the tracks that a recording keeps. Made before any work, so that wrong
/// options are known first.
class StoreJob
{
public:
    /// A Failure for options that do not go together.
    StoreJob(const CommandLine& line, const std::string& path);

    /// The file that is worked on.
    const std::string& path() const { return path_; }
    /// Whether the recording is to be divided, after which `finish` is called; otherwise `run` does it all.
    bool divides() const { return stores_ || !(lists_ || history_ || repairs_ || edits()); }
    /// Lists, repairs, or changes the tracks that are kept. Gives those that it listed.
    QMXTrackAndProcessingInfo::TrackList run();
    /// Before a recording is divided: a Failure where tracks are to be stored and cannot be. Reads what the recording
    /// keeps, and makes the copy of --output.
    void prepare(const QMXAudioFile& recording);
    /// Prints the tracks found, and stores them if asked for. Gives them as they are then.
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
