// SPDX-License-Identifier: MIT
// Memory for one slice of frames in a given layout, and buffer lists over it.
#pragma once

#include "AudioToolbox/Conversion/PcmLayout.h"

#include <array>
#include <cstddef>
#include <span>
#include <vector>

namespace qmx
{

inline std::span<AudioBuffer> buffersOf(AudioBufferList& list)
{
    AudioBuffer* const first = list.mBuffers;
    return {first, list.mNumberBuffers};
}

/// Only the constructor allocates; everything else may run on a render thread.
class SliceBuffers
{
public:
    /// Room for `frames` frames.
    SliceBuffers(const PcmLayout& layout, UInt32 frames);

    const PcmLayout& layout() const { return layout_; }
    UInt32 room() const { return room_; }
    std::byte* plane(std::size_t index) { return memory_.data() + index * planeBytes(); }

    /// A list of the first `frames` frames, all silent.
    AudioBufferList& silentList(UInt32 frames);

    /// Fills `bytes` bytes of one plane, or of memory of the same layout, with silence.
    void silence(std::byte* bytes, std::size_t count) const;

private:
    std::size_t planeBytes() const { return room_ * layout_.planeFrameBytes(); }

    PcmLayout layout_;
    UInt32 room_;
    std::array<std::byte, 8> silentSample_{}; ///< not all zero in unsigned and companded formats
    std::vector<std::byte> memory_, listMemory_;
    AudioBufferList* list_;
};

} // namespace qmx
