// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudio/VirtualHardware.h"

#include <string>
#include <vector>

namespace qmx
{

/// An input that plays interleaved samples of `channels` channels from its first call on, either repeatedly or once and
/// then silence.
VirtualInput inputOfSamples(std::vector<Float32> samples, UInt32 channels, bool repeats);

/// Samples of an audio file, decoded and converted to a rate.
struct FileSamples {
    std::vector<Float32> samples;
    UInt32 channels = 0;
};
OSStatus readAudioFile(const std::string& path, Float64 sampleRate, FileSamples& result);

} // namespace qmx
