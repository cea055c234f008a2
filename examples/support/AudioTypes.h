// SPDX-License-Identifier: MIT
// Audio file types by the names that people use, and the sample formats that fit them.
#pragma once

#include <QMXCoreAudio/AudioToolbox/AudioFile.h>

#include <optional>
#include <string>

namespace example
{

/// The type with a four-character code; a Failure with exit status 2 if it cannot be written.
AudioFileTypeID typeFromCode(const std::string& code);
/// The type for a path's extension; a Failure with exit status 2 if there is none.
AudioFileTypeID typeFromExtension(const std::string& path);
/// The extension of files of a type, with its dot.
std::string extensionOf(AudioFileTypeID type);

/// The wanted sample format; values that are missing are the source's.
struct RequestedFormat {
    std::optional<Float64> sampleRate; ///< Hz
    std::optional<UInt32> channels;
    std::optional<UInt32> bits; ///< of integers; selects the lossless coding in MPEG-4 files
    bool isFloat = false;
};

/// The format for a file of `type` made from one in `source`. Changes AIFF to AIFF-C for floats. A Failure for wishes
/// that the type does not support.
AudioStreamBasicDescription formatFor(AudioFileTypeID& type, const AudioStreamBasicDescription& source,
                                      const RequestedFormat& request);

} // namespace example
