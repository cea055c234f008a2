// SPDX-License-Identifier: MIT
// The resource fork of a Sound Designer II file, which states the format of its samples. Here it is a file of its own
// beside the samples: an AppleDouble file, or the bare fork.
#pragma once

#include "Foundation/ByteFields.h"

#include <optional>
#include <span>
#include <string>

namespace qmx
{

struct SoundDesignerFormat {
    UInt32 sampleBytes = 0;
    Float64 sampleRate = 0;
    UInt32 channels = 0;
};

/// Reads either form; empty if it does not state all three.
std::optional<SoundDesignerFormat> parseSidecar(std::span<const UInt8> bytes);
/// An AppleDouble file with plain Finder info and the fork.
Bytes makeSidecar(const SoundDesignerFormat& format);

} // namespace qmx
