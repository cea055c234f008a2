// SPDX-License-Identifier: MIT
// The listeners to a unit's property changes.
#pragma once

#include "AudioUnit/AudioUnit.h"

#include <mutex>
#include <vector>

namespace qmx
{

struct UnitPropertyAddress {
    AudioUnitPropertyID id;
    AudioUnitScope scope;
    AudioUnitElement element;
};

/// Any thread but the real-time ones. Adding and removing inside a listener is allowed.
class PropertyListeners
{
public:
    void add(AudioUnitPropertyID property, AudioUnitPropertyListenerProc listener, void* refCon);
    void clear();
    void remove(AudioUnitPropertyID property, AudioUnitPropertyListenerProc listener);
    /// Calls the listeners to the property, with no lock held.
    void tell(AudioUnit unit, const UnitPropertyAddress& address) const;

private:
    struct Entry {
        AudioUnitPropertyID property;
        AudioUnitPropertyListenerProc listener;
        void* refCon;
    };
    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
};

} // namespace qmx
