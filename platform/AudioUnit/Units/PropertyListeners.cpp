// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/PropertyListeners.h"

namespace qmx
{

void PropertyListeners::add(AudioUnitPropertyID property, AudioUnitPropertyListenerProc listener, void* refCon)
{
    const std::scoped_lock lock(mutex_);
    entries_.push_back({property, listener, refCon});
}

void PropertyListeners::remove(AudioUnitPropertyID property, AudioUnitPropertyListenerProc listener)
{
    const std::scoped_lock lock(mutex_);
    std::erase_if(entries_, [&](const Entry& e) { return e.property == property && e.listener == listener; });
}

void PropertyListeners::clear()
{
    const std::scoped_lock lock(mutex_);
    entries_.clear();
}

void PropertyListeners::tell(AudioUnit unit, const UnitPropertyAddress& address) const
{
    std::vector<Entry> entries;
    {
        const std::scoped_lock lock(mutex_);
        entries = entries_;
    }
    for (const Entry& entry : entries)
        if (entry.property == address.id)
            entry.listener(entry.refCon, unit, address.id, address.scope, address.element);
}

} // namespace qmx
