// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/AudioBuffers.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Format.h>
#include <QMXCoreAudio/Front/FrameRange.h>
#include <QMXCoreAudio/Front/Result.h>

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

class QMXAudioProcessingRangeInfo;

namespace qmx
{

/// Changes interleaved samples in place, in blocks of at most 4096 frames; false cancels. Called on the processing
/// thread, with the blocks in order.
using FrameProcessor = std::function<bool(std::span<float> samples, UInt32 channels)>;

struct ProcessOptions {
    /// Receives the part that is done, from 0 to exactly 1 when the file is complete; false before that cancels. Called
    /// on the processing thread.
    std::function<bool(float)> progress{};
    std::stop_token stop{}; ///< cancels from any thread
    std::string output{};   ///< the file to make of the range; empty: the file itself is changed
    bool replace = false;   ///< an existing `output`; it stays as it is until the new one is complete
    /// Of `output`; none: by its extension, or as the source is if that is of the same or an unknown type.
    std::optional<Format> format{};
    /// Stored in the file with what it keeps already, as the record of what was done, and its range is set; AIFF and
    /// AIFF-C only, an error before any work for others.
    std::shared_ptr<QMXAudioProcessingRangeInfo> record{};
};

/// Passes a range of an audio file through `processor`: in the file itself, of which nothing else is changed, or into a
/// new file that has the range alone. Both are made under a hidden name beside their own, which they get when they are
/// complete: a run that fails or is cancelled changes nothing. Other names of a file that is changed (hard links) keep
/// the old samples. Blocks; any thread but the real-time ones.
///
/// Errors: an empty range (paramErr), a compressed file to be changed itself, one that cannot be read to the range's
/// end, an existing output that may not be replaced (dupFNErr), the input itself as output, a full disk, which in place
/// has to have room for a copy, and in place a file that others change meanwhile (fBsyErr), which keeps their change.
[[nodiscard]] QMX_EXPORT Result<void> process(const std::string& path, const FrameRange& range,
                                              const FrameProcessor& processor, const ProcessOptions& options = {});

} // namespace qmx
