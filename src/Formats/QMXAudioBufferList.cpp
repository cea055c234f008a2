// SPDX-License-Identifier: MIT
#include "Formats/QMXAudioBufferList.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <span>

namespace
{

constexpr UInt32 kTooLarge = UINT32_MAX;

std::span<AudioBuffer> buffersOf(AudioBufferList* list)
{
    return list ? std::span(list->mBuffers, list->mNumberBuffers) : std::span<AudioBuffer>();
}

std::span<const AudioBuffer> buffersOf(const AudioBufferList* list)
{
    return list ? std::span(list->mBuffers, list->mNumberBuffers) : std::span<const AudioBuffer>();
}

// Only the first buffers are compared; further ones are taken to match, which is intended.
bool haveSameShape(std::span<const AudioBuffer> a, std::span<const AudioBuffer> b)
{
    return a.size() == b.size() && !a.empty() && a.front().mDataByteSize == b.front().mDataByteSize &&
           a.front().mNumberChannels == b.front().mNumberChannels;
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
    for (AudioBuffer& buffer : buffersOf(list))
        buffer = {.mNumberChannels = channels, .mDataByteSize = bytes, .mData = std::calloc(1, bytes)};
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
    const std::span<const AudioBuffer> from = buffersOf(source);
    const std::span<AudioBuffer> to = buffersOf(destination);
    if (!haveSameShape(from, to))
        return;
    for (std::size_t i = 0; i < from.size(); ++i)
        if (from[i].mData && to[i].mData)
            std::memcpy(to[i].mData, from[i].mData, std::min(from[i].mDataByteSize, to[i].mDataByteSize));
}

void QMXAudioBufferList::clear(AudioBufferList* list)
{
    for (const AudioBuffer& buffer : buffersOf(list))
        if (buffer.mData)
            std::memset(buffer.mData, 0, buffer.mDataByteSize);
}

void QMXAudioBufferList::destroyBuffers(AudioBufferList* list)
{
    for (const AudioBuffer& buffer : buffersOf(list))
        std::free(buffer.mData);
    std::free(list);
}
