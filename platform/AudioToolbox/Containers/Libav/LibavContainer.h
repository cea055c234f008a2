// SPDX-License-Identifier: MIT
// The files that libavformat reads and writes for us: MPEG-4, ADTS, MP3 and FLAC.
#pragma once

#include "AudioToolbox/Codings/CodingsModule.h"

namespace qmx::libav
{

/// See CodingsModule::files.
std::span<const CodedFiles> codedFiles();

} // namespace qmx::libav
