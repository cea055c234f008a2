// SPDX-License-Identifier: MIT
// Buffer lists for the planes of a layout: made once, aimed at memory as often as needed.
#pragma once

#include "AudioToolbox/Conversion/PcmLayout.h"

#include <vector>

namespace qmx
{

/// A list with one buffer per plane of a layout. Aiming allocates nothing.
class PlaneList
{
public:
    explicit PlaneList(const PcmLayout& layout);
    PlaneList(const PlaneList&) = delete;
    PlaneList& operator=(const PlaneList&) = delete;

    /// At `count` frames from `first` on in a block whose planes lie `planeBytes` bytes apart.
    AudioBufferList& aimAt(std::byte* block, std::size_t planeBytes, UInt32 first, UInt32 count);
    /// At `count` frames from `first` on of another list of the same layout.
    AudioBufferList& aimAt(const AudioBufferList& other, UInt32 first, UInt32 count);

private:
    PcmLayout layout_;
    std::vector<std::byte> memory_;
    AudioBufferList* list_;
};

/// Whole frames that all buffers of a list have room for; 0 if buffers or their data are missing.
UInt32 wholeFrames(const AudioBufferList& list, const PcmLayout& layout);

/// Sets the byte sizes of the first buffers of a list to `frames` frames.
void setFrames(AudioBufferList& list, const PcmLayout& layout, UInt32 frames);

/// Copies the bytes that the buffers of `to` state, plane by plane. `from` has at least as many.
void copyFrames(const AudioBufferList& from, const AudioBufferList& to);

} // namespace qmx
