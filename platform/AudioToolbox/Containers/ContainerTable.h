// SPDX-License-Identifier: MIT
// The containers that the audio file service knows.
#pragma once

#include "AudioToolbox/Containers/Container.h"
#include "Foundation/Files/FileSystem.h"

#include <array>
#include <string>

namespace qmx
{

inline constexpr std::size_t recognitionBytes = 12;

/// An open file, and where it is: some kinds keep a part of themselves beside it.
struct PlacedFile {
    std::unique_ptr<File> file;
    std::string path;
};

/// How a kind is recognised.
struct FileSigns {
    std::array<UInt8, recognitionBytes> head; ///< the first bytes, zeros past the end of a shorter file
    std::string path;
    File& file;
    AudioFileTypeID hint = 0; ///< what the caller takes it for; 0: unknown
    bool mustBeSure = false;  ///< a likeness, or something beside the file, is not enough
};

/// One kind of audio file: how it is recognised, opened and made.
struct ContainerKind {
    AudioFileTypeID type = 0;
    bool (*matches)(const FileSigns& signs) = nullptr;
    OSStatus (*open)(PlacedFile file, bool forWriting, std::unique_ptr<Container>& container) = nullptr;
    /// Whether such a file holds the format exactly. Null for kinds that are only read.
    bool (*holds)(const AudioStreamBasicDescription& format) = nullptr;
    /// Makes the (new or old) file an empty one of a format that it holds.
    OSStatus (*create)(PlacedFile file, const AudioStreamBasicDescription& format,
                       std::unique_ptr<Container>& container) = nullptr;
    bool keepsFork = false; ///< a part of such a file is its fork
};

/// The kind of a file; null for an unknown one. What the contents surely are outranks a fork beside them, and the fork
/// outranks a likeness of the contents.
const ContainerKind* kindForContents(FileSigns signs);
/// The kind that is made for a type; null for an unknown type.
const ContainerKind* kindForType(AudioFileTypeID type);

} // namespace qmx
