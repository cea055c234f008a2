// SPDX-License-Identifier: MIT
#include "Formats/QMXAudioBufferList.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr UInt32 kTooLarge = UINT32_MAX;

// Only the first buffers are compared; further ones are assumed to match, which is intended.
bool haveSameShape(const AudioBufferList* a, const AudioBufferList* b)
{
    return a && b && a->mNumberBuffers == b->mNumberBuffers && a->mNumberBuffers > 0 &&
           a->mBuffers[0].mDataByteSize == b->mBuffers[0].mDataByteSize &&
           a->mBuffers[0].mNumberChannels == b->mBuffers[0].mNumberChannels;
}

} // namespace

UInt32 calculateByteSize(UInt32 count)
{
    const UInt64 bytes = offsetof(AudioBufferList, mBuffers) + UInt64{count} * sizeof(AudioBuffer);
    return static_cast<UInt32>(std::min<UInt64>(bytes, kTooLarge));
}

AudioBufferList* QMXAudioBufferList::allocateBuffers_channelsPerBuffer_dataByteSize(UInt32 count, UInt32 channels,
                                                                                    UInt32 bytes)
{
    const UInt32 listSize = calculateByteSize(count);
    if (listSize == kTooLarge)
        return nullptr;
    auto* list = static_cast<AudioBufferList*>(std::calloc(1, listSize));
    if (!list)
        return nullptr;
    list->mNumberBuffers = count;
    for (UInt32 i = 0; i < count; ++i) {
        list->mBuffers[i] = {.mNumberChannels = channels, .mDataByteSize = bytes, .mData = std::calloc(1, bytes)};
        if (!list->mBuffers[i].mData) {
            destroyBuffers(list);
            return nullptr;
        }
    }
    return list;
}

AudioBufferList* QMXAudioBufferList::duplicate(const AudioBufferList* list)
{
    if (!list)
        return nullptr;
    if (list->mNumberBuffers == 0)
        return allocateBuffers_channelsPerBuffer_dataByteSize(0, 0, 0);
    const AudioBuffer& first = list->mBuffers[0];
    return allocateBuffers_channelsPerBuffer_dataByteSize(list->mNumberBuffers, first.mNumberChannels,
                                                          first.mDataByteSize);
}

void QMXAudioBufferList::copyBuffer_toBuffer(const AudioBufferList* source, AudioBufferList* destination)
{
    if (!haveSameShape(source, destination))
        return;
    for (UInt32 i = 0; i < source->mNumberBuffers; ++i) {
        const AudioBuffer& from = source->mBuffers[i];
        const AudioBuffer& to = destination->mBuffers[i];
        if (from.mData && to.mData)
            std::memcpy(to.mData, from.mData, std::min(from.mDataByteSize, to.mDataByteSize));
    }
}

void QMXAudioBufferList::clear(AudioBufferList* list)
{
    if (!list)
        return;
    for (UInt32 i = 0; i < list->mNumberBuffers; ++i)
        if (list->mBuffers[i].mData)
            std::memset(list->mBuffers[i].mData, 0, list->mBuffers[i].mDataByteSize);
}

void QMXAudioBufferList::destroyBuffers(AudioBufferList* list)
{
    if (!list)
        return;
    for (UInt32 i = 0; i < list->mNumberBuffers; ++i)
        std::free(list->mBuffers[i].mData);
    std::free(list);
}
