// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/PlaneList.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace qmx
{

PlaneList::PlaneList(const PcmLayout& layout)
    : layout_(layout), memory_(offsetof(AudioBufferList, mBuffers) + layout.planes() * sizeof(AudioBuffer)),
      list_(new (memory_.data()) AudioBufferList)
{
    list_->mNumberBuffers = layout.planes();
}

AudioBufferList& PlaneList::aimAt(std::byte* block, std::size_t planeBytes, UInt32 first, UInt32 count)
{
    const std::size_t frameBytes = layout_.planeFrameBytes();
    AudioBuffer* buffer = list_->mBuffers;
    for (UInt32 plane = 0; plane < layout_.planes(); ++plane)
        *buffer++ = {layout_.channelsPerPlane(), static_cast<UInt32>(count * frameBytes),
                     block + plane * planeBytes + first * frameBytes};
    return *list_;
}

AudioBufferList& PlaneList::aimAt(const AudioBufferList& other, UInt32 first, UInt32 count)
{
    const std::size_t frameBytes = layout_.planeFrameBytes();
    AudioBuffer* buffer = list_->mBuffers;
    const AudioBuffer* from = other.mBuffers;
    for (UInt32 plane = 0; plane < layout_.planes(); ++plane, ++from)
        *buffer++ = {layout_.channelsPerPlane(), static_cast<UInt32>(count * frameBytes),
                     static_cast<std::byte*>(from->mData) + first * frameBytes};
    return *list_;
}

UInt32 wholeFrames(const AudioBufferList& list, const PcmLayout& layout)
{
    if (list.mNumberBuffers < layout.planes())
        return 0;
    std::size_t frames = std::numeric_limits<UInt32>::max();
    const AudioBuffer* buffer = list.mBuffers;
    for (UInt32 plane = 0; plane < layout.planes(); ++plane, ++buffer)
        frames = std::min(frames, buffer->mData ? buffer->mDataByteSize / layout.planeFrameBytes() : 0);
    return static_cast<UInt32>(frames);
}

void setFrames(AudioBufferList& list, const PcmLayout& layout, UInt32 frames)
{
    AudioBuffer* buffer = list.mBuffers;
    for (UInt32 plane = 0; plane < std::min(list.mNumberBuffers, layout.planes()); ++plane, ++buffer)
        buffer->mDataByteSize = static_cast<UInt32>(frames * layout.planeFrameBytes());
}

void copyFrames(const AudioBufferList& from, const AudioBufferList& to)
{
    const AudioBuffer* source = from.mBuffers;
    const AudioBuffer* target = to.mBuffers;
    for (UInt32 plane = 0; plane < to.mNumberBuffers; ++plane, ++source, ++target)
        std::memcpy(target->mData, source->mData, target->mDataByteSize);
}

} // namespace qmx
