// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <array>

/// An application chunk with the library's signature as its file states it, and whether that is usable.
struct QMXApplicationChunkDescriptor {
    std::array<char, 4> mChunkHeader{}; ///< the id
    UInt32 mChunkSize = 0;              ///< bytes after the size field
    std::array<char, 4> mAppName{};     ///< the signature
    UInt32 mVersion = 0;
    UInt32 mDataSize = 0;   ///< bytes of the archive
    SInt64 mFileOffset = 0; ///< position of the id in the file
    bool mCompatible = false;
    bool mSeemsValid = false;
};

/// Rules for application chunks that readers and writers of AIFF files share. Any thread.
class QMX_EXPORT QMXAIFCommon : public qmx::Object
{
public:
    /// Versions 2 and 3.
    static bool isSupportedVersion(UInt32 version);
    /// Sets the descriptor's two marks. The sizes are compared with the whole file's length (bytes).
    static void validateZNTHApplicationChunk_fileLength(QMXApplicationChunkDescriptor& chunk, UInt64 fileLength);
};
