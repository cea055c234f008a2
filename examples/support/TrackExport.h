// SPDX-License-Identifier: MIT
#pragma once

#include "support/CommandLine.h"

#include <QMXCoreAudio/qmx.h>

#include <optional>
#include <string>
#include <vector>

namespace example
{

/// Writes tracks of a recording into files of their own.
class TrackExport
{
public:
    /// Reads `--export DIR` and `--type CODE` from a command line; a Failure for an unknown type.
    explicit TrackExport(const CommandLine& line);

    /// Writes each track as "NN Title" into the folder, if one is given, which is made if it is missing: the samples as
    /// they are in the recording's own format and type, or converted to another type. A compressed recording is
    /// decoded, into WAVE files unless a type was given, and one line on standard error says so. A Failure, before any
    /// file is written, if one exists already.
    void write(const std::string& recording, const std::vector<qmx::Track>& tracks) const;

private:
    std::string folder_;
    std::optional<qmx::Format> wish_;
};

} // namespace example
