// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

/// Reverses the byte order of words in place, whatever the host's own order is. Any thread; neither allocates nor
/// locks.
class QMX_EXPORT ByteUtility : public qmx::Object
{
public:
    /// Reverses each word of `wordLength` bytes from `bytes` until `length` bytes are reached or passed: a last word
    /// that starts before `length` is reversed whole, so callers pass whole words. A word length of 0 does nothing.
    static void toNetworkByteOrder_wordLength_length(UInt8* bytes, UInt32 wordLength, UInt32 length);
    /// Reverses one word of 4 bytes.
    static void toNetworkByteOrder32bit(void* word);
    /// Reverses one word of 8 bytes.
    static void toNetworkByteOrder64bit(void* word);
};
