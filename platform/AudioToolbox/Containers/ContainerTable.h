// SPDX-License-Identifier: MIT
// The containers that the audio file service knows.
#pragma once

#include "AudioToolbox/Containers/Container.h"
#include "Foundation/FileSystem.h"

namespace qmx
{

inline constexpr std::size_t recognitionBytes = 12;

/// One kind of audio file: how it is recognised, opened and made.
struct ContainerKind {
    AudioFileTypeID type = 0;
    /// Whether a file that begins with these bytes (`recognitionBytes` of them, zeros where it is shorter) is one.
    bool (*matches)(const UInt8* head) = nullptr;
    OSStatus (*open)(std::unique_ptr<File> file, bool forWriting, std::unique_ptr<Container>& container) = nullptr;
    /// Whether such a file holds the format exactly. Null for kinds that are only read.
    bool (*holds)(const AudioStreamBasicDescription& format) = nullptr;
    /// Makes the (new or old) file an empty one of a format that it holds.
    OSStatus (*create)(std::unique_ptr<File> file, const AudioStreamBasicDescription& format,
                       std::unique_ptr<Container>& container) = nullptr;
};

/// The kind of a file that begins with these bytes; null where it is none that is known.
const ContainerKind* kindForContents(const UInt8* head);
/// The kind that is made for a type; null where it is not known.
const ContainerKind* kindForType(AudioFileTypeID type);

} // namespace qmx
