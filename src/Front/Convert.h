// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Format.h>
#include <QMXCoreAudio/Front/FrameRange.h>
#include <QMXCoreAudio/Front/Result.h>

#include <functional>
#include <stop_token>
#include <string>

namespace qmx
{

struct ConvertOptions {
    /// Receives the part that is done, from 0 to exactly 1 when the file is complete; false before that cancels. Called
    /// on the converting thread.
    std::function<bool(float)> progress{};
    std::stop_token stop{}; ///< cancels from any thread
    bool replace = false;   ///< an existing file; it stays as it is until the new one is complete
    FrameRange range{};     ///< of the source, all by default
    /// Stores the source's tracks in the new file, if that has all of the source and its type keeps tracks.
    bool keepTracks = true;
};

/// Writes a copy of the audio file `input` in another format, under a hidden name beside its own, which it gets when it
/// is complete: a conversion that fails or is cancelled makes no file. What `format` leaves open stays as it is in the
/// source, every bit of it (see Format::completedFrom); the frames are the same, or at another rate as many as last as
/// long; only ADTS files, which do not say where their sound starts and ends, are longer by the coding's padding.
/// Blocks; any thread but the real-time ones.
///
/// The tracks of AIFF files go along into AIFF files, their bounds at the new rate; tracks that cannot be read are an
/// error, before anything is made. Other errors: an existing file that may not be replaced (dupFNErr), the input itself
/// as output, a source that cannot be read to its end, a format that cannot be made, a full disk.
[[nodiscard]] QMX_EXPORT Result<void> convert(const std::string& input, const std::string& output, const Format& format,
                                              const ConvertOptions& options = {});
/// The same to the format that the extension of `output` stands for.
[[nodiscard]] QMX_EXPORT Result<void> convert(const std::string& input, const std::string& output,
                                              const ConvertOptions& options = {});

} // namespace qmx
