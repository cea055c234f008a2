// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/Files/FileHandle.h"

#include <vector>

namespace qmx
{

/// Writes to a file that can be undone. Internal to the track store.
class FileEdit
{
public:
    /// The file stays open and is not used by others while the edit lasts.
    explicit FileEdit(FileHandle& file) : file_(file), oldEnd_(file.seekToEndOfFile()) {}

    /// One write of all bytes at `offset`, after the bytes in their place have been saved. Returns the error, or 0.
    SystemError write(SInt64 offset, std::span<const UInt8> bytes);
    /// Restores the file's bytes, then its length. If the disk refuses the bytes, what was appended (perhaps a journal)
    /// stays.
    void undo();

private:
    struct Saved {
        SInt64 offset;
        std::vector<UInt8> bytes;
    };

    FileHandle& file_;
    SInt64 oldEnd_;
    std::vector<Saved> saved_;
};

} // namespace qmx
