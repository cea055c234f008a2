// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/Files/FileHandle.h"

#include <vector>

namespace qmx
{

/// Writes to a file that can be taken back. Internal to the track store.
class FileEdit
{
public:
    /// The file stays open and is not used by others while the edit lasts.
    explicit FileEdit(FileHandle& file) : file_(file), oldEnd_(file.seekToEndOfFile()) {}

    /// One write of all bytes at `offset`, after what stands there has been read. The error, or 0.
    SystemError write(SInt64 offset, std::span<const UInt8> bytes);
    /// Gives the file the bytes that it had back, and then its length. Where the disk refuses the bytes, what was
    /// appended (a journal of them, it may be) stays.
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
