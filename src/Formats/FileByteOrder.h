// SPDX-License-Identifier: MIT
// The byte order of samples where a caller names a file type only.
#pragma once

#include "AudioToolbox/AudioFile.h"

namespace qmx
{

/// The format with the byte order that programs expect in files of `type`: linear PCM in WAVE is little-endian,
/// whatever `format` says. Other codings and types keep what they have. The audio file service itself accepts every
/// format unchanged.
AudioStreamBasicDescription inByteOrderOfType(AudioStreamBasicDescription format, AudioFileTypeID type);

} // namespace qmx
