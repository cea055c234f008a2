// SPDX-License-Identifier: MIT
// The auto-definer's run: one per process. What its searches have in common.
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Formats/LastFailure.h"
#include "Foundation/Memory.h"

#include <memory>

class QMXAudioFile;
class QMXAudioTrackInfo;

namespace qmx::definerRun
{

inline constexpr const char* cannotBeDivided = "cannot be divided";

/// What failed first in the last run. Any thread but the real-time ones.
LastFailure& failure();
/// Keeps the first failure of the run.
void fail(OSStatus status, const QMXAudioFile& file, const char* what);

/// A run starts: nobody has cancelled it.
void start() noexcept;
/// Any thread; safe in a signal handler.
void cancel() noexcept;
bool isCancelled() noexcept;

/// A track as both searches give it, with a placeholder for its title.
std::shared_ptr<QMXAudioTrackInfo> untitledTrack(std::size_t index, UInt64 begin, UInt64 end);

/// The file of a path, open for reading; where that fails it has no frames, and the failure is kept.
std::shared_ptr<QMXAudioFile> openedFile(const std::string& path);

/// What `define` gives as one run, whose failures are kept; nothing where memory runs out.
template <class Define> auto run(Define define) -> decltype(define())
{
    failure().clear();
    decltype(define()) result;
    if (!withinMemory([&] { result = define(); }))
        failure().keepFirst(memFullErr, "The recording", cannotBeDivided);
    return result;
}

} // namespace qmx::definerRun
