// SPDX-License-Identifier: MIT
// Types of audio files as people name them, and the sample formats that go with them.
#pragma once

#include "AudioToolbox/AudioFile.h"

#include <optional>
#include <string>

namespace example
{

/// The type that a four-character code names; a Failure with exit status 2 for none that can be written.
AudioFileTypeID typeFromCode(const std::string& code);
/// The type that a path's extension stands for; a Failure with exit status 2 where it says nothing.
AudioFileTypeID typeFromExtension(const std::string& path);
/// The extension of files of a type, with its dot.
std::string extensionOf(AudioFileTypeID type);

/// What is wanted of a sample format; what is left out is the source's.
struct RequestedFormat {
    std::optional<Float64> sampleRate; ///< Hz
    std::optional<UInt32> channels;
    std::optional<UInt32> bits; ///< of integers; in MPEG-4 files it asks for the lossless coding
    bool isFloat = false;
};

/// The format for a file of a type made from one in `source`. May turn AIFF into AIFF-C, which alone holds floats. A
/// Failure for a request that the type does not fulfil.
AudioStreamBasicDescription formatFor(AudioFileTypeID& type, const AudioStreamBasicDescription& source,
                                      const RequestedFormat& request);

} // namespace example
