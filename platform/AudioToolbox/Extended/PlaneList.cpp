// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/PlaneList.h"

#include "CoreAudioTypes/AudioBuffers.h"

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
    for (std::size_t plane = 0; AudioBuffer & buffer : buffersOf(*list_))
        buffer = {layout_.channelsPerPlane(), static_cast<UInt32>(count * frameBytes),
                  block + plane++ * planeBytes + first * frameBytes};
    return *list_;
}

AudioBufferList& PlaneList::aimAt(const AudioBufferList& other, UInt32 first, UInt32 count)
{
    const std::size_t frameBytes = layout_.planeFrameBytes();
    const auto planes = buffersOf(other);
    for (std::size_t plane = 0; AudioBuffer & buffer : buffersOf(*list_))
        buffer = {layout_.channelsPerPlane(), static_cast<UInt32>(count * frameBytes),
                  static_cast<std::byte*>(planes[plane++].mData) + first * frameBytes};
    return *list_;
}

UInt32 wholeFrames(const AudioBufferList& list, const PcmLayout& layout)
{
    if (list.mNumberBuffers < layout.planes())
        return 0;
    std::size_t frames = std::numeric_limits<UInt32>::max();
    for (const AudioBuffer& buffer : buffersOf(list).first(layout.planes()))
        frames = std::min(frames, buffer.mData ? buffer.mDataByteSize / layout.planeFrameBytes() : 0);
    return static_cast<UInt32>(frames);
}

void setFrames(AudioBufferList& list, const PcmLayout& layout, UInt32 frames)
{
    for (AudioBuffer& buffer : buffersOf(list).first(std::min(list.mNumberBuffers, layout.planes())))
        buffer.mDataByteSize = static_cast<UInt32>(frames * layout.planeFrameBytes());
}

void copyFrames(const AudioBufferList& from, const AudioBufferList& to)
{
    const auto planes = buffersOf(from);
    for (std::size_t plane = 0; const AudioBuffer& target : buffersOf(to))
        std::memcpy(target.mData, planes[plane++].mData, target.mDataByteSize);
}

} // namespace qmx
