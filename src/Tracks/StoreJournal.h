// SPDX-License-Identifier: MIT
// What keeps a stored record whole when the process is killed in the middle of a store. Internal to the track store.
//
// Before a chunk is overwritten, what will stand there is appended to the file as a journal, an application chunk of its own
// behind the form; when the chunk has been written the journal is cut off again. Whoever opens the file next finds one of
//
//   nothing behind the form               the file is settled
//   a journal or an appended chunk, whole the store is completed from it
//   the beginning of either               nothing was overwritten yet: it is ignored, and cut off before the next store
//
//     0  "APPL"             4  size of what follows
//     8  "tRaJ"            12  position of the journal
//    20  position of the chunk that is overwritten
//    28  its bytes         36  the file's length afterwards
//    44  the chunk's bytes up to its filler, and a pad byte
//        checksum of all before (8), bytes of the journal (4), "tRaJ"
#pragma once

#include "Foundation/ByteFields.h"
#include "Foundation/FileHandle.h"

namespace qmx
{

/// A chunk's new bytes. It begins inside the file and may end behind it.
struct ChunkOverwrite {
    SInt64 position = 0;
    Bytes bytes;
    SInt64 fileEnd = 0; ///< the file's length when the bytes stand there
};

/// What is appended to a file of `fileEnd` bytes before the chunk is overwritten.
Bytes journalOf(const ChunkOverwrite& overwrite, SInt64 fileEnd);

/// The bytes at position 4 of a form that is a file of `fileEnd` bytes.
Bytes formSizeField(SInt64 fileEnd);

/// Whether the file ends in the beginning of a store that was cut off.
bool endsInUnfinishedStore(FileHandle& file);
/// The file's length without such a beginning.
SInt64 settledEnd(FileHandle& file);

/// Completes a store that can be completed, in a file that is open for reading, where it can also be opened for writing; a file that is
/// settled is not touched.
void completeStoreAtPath(const std::string& path, FileHandle& openForReading);
/// Completes a store, or cuts off what was begun of it. Whether there was anything to be done.
bool settleStore(FileHandle& file);

} // namespace qmx
