// SPDX-License-Identifier: MIT
// The listeners to a unit's property changes.
#pragma once

#include "AudioUnit/AudioUnit.h"
#include "Foundation/Threads/Publication.h"

#include <atomic>
#include <memory>
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
    /// Removes all, without waiting.
    void clear();
    /// Waits for calls in progress, except inside a listener.
    void waitForCalls() const;
    /// Waits as waitForCalls() does.
    void remove(AudioUnitPropertyID property, AudioUnitPropertyListenerProc listener);
    /// Calls the listeners to the property, with no lock held.
    void tell(AudioUnit unit, const UnitPropertyAddress& address) const;

private:
    struct Entry {
        Entry(AudioUnitPropertyID ofProperty, AudioUnitPropertyListenerProc procedure, void* reference)
            : property(ofProperty), listener(procedure), refCon(reference)
        {
        }
        const AudioUnitPropertyID property;
        const AudioUnitPropertyListenerProc listener;
        void* const refCon;
        std::atomic<bool> isRemoved = false; ///< while a call goes through a copy of the entries
    };
    template <class Matches> void removeIf(Matches matches);
    mutable std::mutex mutex_;
    Publication calls_; ///< each is inside while it calls listeners
    std::vector<std::shared_ptr<Entry>> entries_;
};

} // namespace qmx
