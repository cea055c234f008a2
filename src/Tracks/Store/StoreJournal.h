// SPDX-License-Identifier: MIT
// What keeps a stored record whole when the process is killed in the middle of a store. Internal to the track store.
//
// Before a chunk is overwritten, its new bytes are appended to the file as a journal, an application chunk of its own
// after the form; when the chunk has been written, the journal is cut off again. The next opener of the file finds one
// of
//
//   nothing after the form                the file is settled
//   a journal or an appended chunk, whole the store is completed from it
//   the start of either                   nothing was overwritten yet: it is ignored, and cut off before the next store
//
// Only the file's lock distinguishes these from a store that is under way.
//
//     0  "APPL"             4  size of what follows
//     8  "tRaJ"            12  position of the journal
//    20  position of the chunk that is overwritten
//    28  its bytes         36  the file's length afterwards
//    44  the chunk's bytes up to its filler, and a pad byte
//        checksum of all before (8), bytes of the journal (4), "tRaJ"
#pragma once

#include "Foundation/ByteFields.h"
#include "Foundation/Files/FileHandle.h"

#include <optional>
#include <vector>

namespace qmx
{

/// A chunk's new bytes. It starts inside the file and may end past it.
struct ChunkOverwrite {
    SInt64 position = 0;
    Bytes bytes;
    SInt64 fileEnd = 0; ///< the file's length once the bytes are written
};

/// What is appended to a file of `fileEnd` bytes before the chunk is overwritten.
Bytes journalOf(const ChunkOverwrite& overwrite, SInt64 fileEnd);

/// The bytes of the form's size field, at position 4, in a file of `fileEnd` bytes.
Bytes formSizeField(SInt64 fileEnd);

/// Whether it is an AIFF or AIFF-C file by its first twelve bytes.
bool isAIFF(FileHandle& file);

/// Bytes for a place in a file.
struct FilePatch {
    SInt64 position = 0;
    Bytes bytes;
};

/// What completes a store that was cut off, or undoes its start.
struct Settlement {
    std::vector<FilePatch> patches; ///< in the order in which they are written
    SInt64 fileEnd = 0;             ///< the file's length afterwards
};

/// None for a settled file, for one that is not AIFF or AIFF-C, and for one that does not end in a store.
std::optional<Settlement> settlementOf(FileHandle& file);
/// Writes the settlement into a file that is locked and open for writing. If the disk refuses it, the next opening
/// tries again.
void settle(FileHandle& file, const Settlement& settlement);
/// The file as it will be once it is settled, for reading only. It reads through `file`, which stays open as long.
FileHandle settledView(FileHandle& file, Settlement settlement);

} // namespace qmx
