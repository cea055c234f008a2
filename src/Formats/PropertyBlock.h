// SPDX-License-Identifier: MIT
// Values of the hardware layer's properties, read with their sizes.
#pragma once

#include "CoreAudio/AudioHardware.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace qmx
{

/// One value in a block of its own, followed by zeros (64 bytes at least).
struct PropertyBlock {
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };
    std::unique_ptr<void, Free> block; ///< null: there is none
    UInt32 size = 0;                   ///< bytes that were given

    /// The entry at the beginning, all zeros when there is none.
    template <class Entry> Entry first() const
    {
        Entry entry{};
        if (block)
            std::memcpy(&entry, block.get(), sizeof entry);
        return entry;
    }
    /// The whole entries.
    template <class Entry> std::vector<Entry> entries() const
    {
        std::vector<Entry> all(block ? size / sizeof(Entry) : 0);
        if (!all.empty())
            std::memcpy(all.data(), block.get(), all.size() * sizeof(Entry));
        return all;
    }
    /// The block as the caller's own.
    template <class Entry> Entry* release() { return static_cast<Entry*>(block.release()); }
};

/// A zero-filled block for a value of `size` bytes; null when there is no memory.
PropertyBlock allocatePropertyBlock(UInt32 size);
/// Reads a device's value, as QMXAudioDeviceUtils::anyProperty_propertyID_forChannel_isInput does.
PropertyBlock readDeviceProperty(AudioDeviceID device, AudioDevicePropertyID propertyID, UInt32 channel, bool isInput);
/// The same for the hardware as a whole; failures are logged.
PropertyBlock readHardwareProperty(AudioHardwarePropertyID propertyID);

/// Keeps `status` as the last reported one and gives it back.
OSStatus reported(OSStatus status);

} // namespace qmx
