// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

/// Makes, copies, clears and frees lists of sample buffers on the heap. A list is one block, each entry's data another.
/// The caller owns a list made here and frees it with destroyBuffers(). Any thread; making and freeing allocate,
/// copying and clearing do not.
class QMX_EXPORT QMXAudioBufferList : public qmx::Object
{
public:
    /// A list of `count` buffers of `channels` interleaved channels and `bytes` zeroed bytes each. Null when there
    /// is no memory for all of it.
    static AudioBufferList* allocateBuffers_channelsPerBuffer_dataByteSize(UInt32 count, UInt32 channels, UInt32 bytes);
    /// A list with as many buffers as `list`, each shaped like its first one and zeroed: data are not copied.
    static AudioBufferList* duplicate(const AudioBufferList* list);
    /// Copies the samples when both lists have the same number of buffers and first buffers of the same size and
    /// channel count; otherwise does nothing. Never writes past a destination buffer's size.
    static void copyBuffer_toBuffer(const AudioBufferList* source, AudioBufferList* destination);
    /// Zeroes all samples.
    static void clear(AudioBufferList* list);
    /// Frees the list and its data. Null is ignored.
    static void destroyBuffers(AudioBufferList* list);
};

/// The bytes of a list block for `count` buffers, their data not counted; UINT32_MAX if that exceeds 32 bits.
QMX_EXPORT UInt32 calculateByteSize(UInt32 count);
