// SPDX-License-Identifier: MIT
#pragma once

#include "support/CommandLine.h"

#include <QMXCoreAudio/Tracks/QMXTrackAndProcessingInfo.h>

#include <optional>
#include <string>

class QMXAudioFile;

namespace example
{

/// Writes tracks of a recording into files of their own.
class TrackExport
{
public:
    /// Reads `--export DIR` and `--type CODE` from a command line; a Failure for an unknown type.
    explicit TrackExport(const CommandLine& line);

    bool isAsked() const { return !folder_.empty(); }
    /// Writes each track as "NN Title" into the folder, which is made if it is missing: the samples byte for byte in
    /// the recording's own format and type, or converted to another type. A compressed recording is decoded, into WAVE
    /// files unless a type was given, and one line on standard error says so. A Failure, before any file is written, if
    /// one exists already.
    void write(QMXAudioFile& recording, const QMXTrackAndProcessingInfo::TrackList& tracks) const;

private:
    std::string folder_;
    std::optional<std::string> typeCode_;
};

} // namespace example
