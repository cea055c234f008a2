// SPDX-License-Identifier: MIT
#include "Tracks/Store/QMXAIFCommon.h"

bool QMXAIFCommon::isSupportedVersion(UInt32 version)
{
    return version == 2 || version == 3;
}

// Both sizes are compared with the whole file's length, not with the chunk's position, which is intended.
void QMXAIFCommon::validateZNTHApplicationChunk_fileLength(QMXApplicationChunkDescriptor& chunk, UInt64 fileLength)
{
    chunk.mSeemsValid = UInt64{chunk.mChunkSize} + 8 <= fileLength && fileLength >= UInt64{chunk.mDataSize} + 16;
    chunk.mCompatible = isSupportedVersion(chunk.mVersion);
}
