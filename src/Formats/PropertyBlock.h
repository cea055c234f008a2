// SPDX-License-Identifier: MIT
// Values of the hardware layer's properties, read with their sizes.
#pragma once

#include "CoreAudio/AudioHardware.h"
#include "Foundation/HeapBlock.h"

#include <cstring>
#include <vector>

namespace qmx
{

/// One value in a block of its own, followed by zeros (64 bytes at least).
struct PropertyBlock {
    HeapBlock block = nullptr; ///< null: there is none
    UInt32 size = 0;           ///< bytes of the value
    OSStatus status = noErr;

    /// The first entry, all zeros when there is none.
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
};

/// A zero-filled block for a value of `size` bytes; null when there is no memory.
PropertyBlock allocatePropertyBlock(UInt32 size);
/// Reads a device's value, as QMXAudioDeviceUtils::anyProperty_propertyID_forChannel_isInput does.
PropertyBlock readDeviceProperty(AudioDeviceID device, AudioDevicePropertyID propertyID, UInt32 channel, bool isInput);
/// Sets `*size` to the bytes of a value of the hardware as a whole, 0 on failure, which is logged.
[[nodiscard]] OSStatus hardwarePropertySize(AudioHardwarePropertyID propertyID, UInt32* size);
/// Reads such a value; failures are logged.
PropertyBlock readHardwareProperty(AudioHardwarePropertyID propertyID);
/// Sets a device's value; refusals are logged. The status, kAudioHardwareUnsupportedOperationError for a value that
/// cannot be set.
[[nodiscard]] OSStatus setDeviceProperty(AudioDeviceID device, AudioDevicePropertyID propertyID, UInt32 channel,
                                         bool isInput, UInt32 size, const void* data);

/// Keeps `status` as the last reported one and returns it.
OSStatus reported(OSStatus status);

} // namespace qmx
