// SPDX-License-Identifier: MIT
#include "Formats/QMXAudioBufferList.h"

#include "CoreAudioTypes/AudioBuffers.h"

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
    for (AudioBuffer& buffer : qmx::buffersOf(*list)) {
        buffer = {.mNumberChannels = channels, .mDataByteSize = bytes, .mData = std::calloc(1, bytes)};
        if (!buffer.mData) {
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
    const auto targets = qmx::buffersOf(*destination);
    for (std::size_t i = 0; const AudioBuffer& from : qmx::buffersOf(*source)) {
        const AudioBuffer& to = targets[i++];
        if (from.mData && to.mData)
            std::memcpy(to.mData, from.mData, std::min(from.mDataByteSize, to.mDataByteSize));
    }
}

void QMXAudioBufferList::clear(AudioBufferList* list)
{
    if (!list)
        return;
    for (const AudioBuffer& buffer : qmx::buffersOf(*list))
        if (buffer.mData)
            std::memset(buffer.mData, 0, buffer.mDataByteSize);
}

void QMXAudioBufferList::destroyBuffers(AudioBufferList* list)
{
    if (!list)
        return;
    for (const AudioBuffer& buffer : qmx::buffersOf(*list))
        std::free(buffer.mData);
    std::free(list);
}
