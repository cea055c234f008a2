// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Files/FileHandle.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <string>
#include <string_view>

/// Looks at an AIFF file as a list of chunks. Positions and lengths are bytes of the file. What cannot be read counts
/// as not found. Any thread, one at a time per file handle, whose position is moved. Operations on a path wait
/// indefinitely while another thread or process stores into the file or extends it.
class QMX_EXPORT QMXAIFFUtility : public qmx::Object
{
public:
    /// The position of the first chunk called `chunkId` (4 characters) among the chunks that start at `start` (0: after
    /// the form's header) and before `end`; `end` when there is none.
    static SInt64 findOffsetForChunkId_inFile_startingAtOffset_endingOffset(std::string_view chunkId,
                                                                            qmx::FileHandle& file, SInt64 start,
                                                                            SInt64 end);
    /// The same for application chunks that carry the signature `creator`.
    static SInt64 findOffsetForApplicationChunkWithCreator_inFile_startingAtOffset_endingOffset(UInt32 creator,
                                                                                                qmx::FileHandle& file,
                                                                                                SInt64 start,
                                                                                                SInt64 end);
    /// Compares the form's size with the length of the open file. 1: they agree. 4: no form at all. 0: they differ, and
    /// nothing was done. 2: they differed and, as `shouldRepair` asks, the size was rewritten; when that fails, or the
    /// file is too large for a form, 0.
    [[nodiscard]] static SInt32 checkFileAtPath_shouldRepair(qmx::FileHandle& file, bool shouldRepair);
    /// Whether the file is a form of the right size.
    [[nodiscard]] static bool validateFileAtPath(const std::string& path);
    /// Checks the file and rewrites a wrong form size; returns the code of the check, 0 if the file cannot be opened. A
    /// store of tracks that was cut off is completed or undone first.
    [[nodiscard]] static SInt32 repairFileAtPath(const std::string& path);
    /// Completes or undoes a store of tracks whose process was killed; returns whether there was one. Readers and
    /// writers of tracks do this by themselves.
    static bool settleStoreInFileAtPath(const std::string& path);
    /// The number of a chunk id in the list of known ids, counted from 1; 0 for others.
    static SInt32 getNextChunkId(std::string_view chunkId);
};
