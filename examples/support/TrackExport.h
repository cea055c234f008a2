// SPDX-License-Identifier: MIT
#pragma once

#include "Tracks/QMXTrackAndProcessingInfo.h"
#include "support/CommandLine.h"

#include <optional>
#include <string>

class QMXAudioFile;

namespace example
{

/// Writes tracks of a recording into files of their own.
class TrackExport
{
public:
    /// Takes `--export DIR` and `--type CODE` from a command line; a Failure for a type that is not known.
    explicit TrackExport(const CommandLine& line);

    bool isAsked() const { return !folder_.empty(); }
    /// Writes each track as "NN Title" into the folder, which is made where it is missing: the samples byte for byte in
    /// the recording's own format and type, or converted to another type. Of a compressed recording they are decoded,
    /// into WAVE files unless a type was given, which one line on standard error says. A Failure when a file exists
    /// already, before any is written.
    void write(QMXAudioFile& recording, const QMXTrackAndProcessingInfo::TrackList& tracks) const;

private:
    std::string folder_;
    std::optional<std::string> typeCode_;
};

} // namespace example
