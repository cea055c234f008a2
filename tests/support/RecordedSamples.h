// SPDX-License-Identifier: MIT
#pragma once

#include "platform/AudioToolbox/ExtAudioFileHelpers.h"

namespace qmx::test
{

/// All samples of a file as floats, interleaved.
inline std::vector<Float32> recordedSamples(const std::string& path)
{
    const ExtendedFile file(path);
    const auto format = extendedValue<AudioStreamBasicDescription>(file, kExtAudioFileProperty_FileDataFormat);
    setClient(file, floats(format.mChannelsPerFrame, format.mSampleRate));
    return readFloats(file, format.mChannelsPerFrame, static_cast<std::size_t>(lengthOf(file)));
}

} // namespace qmx::test
