// SPDX-License-Identifier: MIT
// The tracks of a file on their way into a copy of it. Internal to the front.
#pragma once

#include "Front/Format.h"
#include "Front/OutputFile.h"
#include "Front/Result.h"
#include "Front/StoredTracks.h"

#include <memory>
#include <optional>
#include <string>

namespace qmx
{

/// The record in the file at `path`; null if there is none.
Result<std::shared_ptr<QMXTrackAndProcessingInfo>> readStored(const std::string& path);
/// Stores a record in the file at `storePath`; an error names `path`.
std::optional<Error> storeInto(const std::string& storePath, const std::string& path,
                               const std::shared_ptr<QMXTrackAndProcessingInfo>& record);
/// What that would take.
Result<StoreCost> costOfStore(const std::string& path, const std::shared_ptr<QMXTrackAndProcessingInfo>& record);

/// The record in the file at `path`, with the bounds at the rate of `target`; null if there is none, if it is not
/// wanted, and if `target` keeps none.
Result<std::shared_ptr<QMXTrackAndProcessingInfo>> tracksToPass(const std::string& path, const Format& source,
                                                                const Format& target, bool isWanted);
/// Stores it, unless it is null, in the file that is being made.
std::optional<Error> storePassed(const std::shared_ptr<QMXTrackAndProcessingInfo>& record, const OutputFile& output);

} // namespace qmx
