// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/SliceBuffers.h"

#include "AudioToolbox/Conversion/SampleKernels.h"
#include "CoreAudioTypes/AudioBuffers.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace qmx
{

SliceBuffers::SliceBuffers(const PcmLayout& layout, UInt32 frames)
    : layout_(layout), room_(frames), memory_(layout.planes() * planeBytes()),
      listMemory_(offsetof(AudioBufferList, mBuffers) + layout.planes() * sizeof(AudioBuffer)),
      list_(new (listMemory_.data()) AudioBufferList)
{
    constexpr SInt32 zero = 0;
    if (layout.sample.coding != SampleCoding::floating)
        SampleEncoder<SInt32>(layout.sample)(reinterpret_cast<const std::byte*>(&zero), silentSample_.data(), 1);
}

AudioBufferList& SliceBuffers::silentList(UInt32 frames)
{
    const std::size_t bytes = frames * layout_.planeFrameBytes();
    list_->mNumberBuffers = layout_.planes();
    for (std::size_t i = 0; AudioBuffer & buffer : buffersOf(*list_)) {
        buffer = {layout_.channelsPerPlane(), static_cast<UInt32>(bytes), plane(i++)};
        silence(static_cast<std::byte*>(buffer.mData), bytes);
    }
    return *list_;
}

void SliceBuffers::silence(std::byte* bytes, std::size_t count) const
{
    const auto* const sample = silentSample_.data();
    const std::size_t size = layout_.sample.bytes;
    if (std::all_of(sample, sample + size, [sample](std::byte value) { return value == *sample; }))
        std::memset(bytes, std::to_integer<int>(*sample), count);
    else
        for (std::size_t at = 0; at + size <= count; at += size)
            std::memcpy(bytes + at, sample, size);
}

} // namespace qmx
