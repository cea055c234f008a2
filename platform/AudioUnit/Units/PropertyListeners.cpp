// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/PropertyListeners.h"

namespace qmx
{
namespace
{

thread_local int listenersInside = 0; ///< that the calling thread is inside of

} // namespace

void PropertyListeners::add(AudioUnitPropertyID property, AudioUnitPropertyListenerProc listener, void* refCon)
{
    const std::scoped_lock lock(mutex_);
    entries_.push_back(std::make_shared<Entry>(property, listener, refCon));
}

template <class Matches> void PropertyListeners::removeIf(Matches matches)
{
    const std::scoped_lock lock(mutex_);
    std::erase_if(entries_, [&](const std::shared_ptr<Entry>& entry) {
        const bool isRemoved = matches(*entry);
        if (isRemoved)
            entry->isRemoved = true;
        return isRemoved;
    });
}

void PropertyListeners::remove(AudioUnitPropertyID property, AudioUnitPropertyListenerProc listener)
{
    removeIf([&](const Entry& entry) { return entry.property == property && entry.listener == listener; });
    waitForCalls();
}

void PropertyListeners::clear()
{
    removeIf([](const Entry&) { return true; });
}

void PropertyListeners::waitForCalls() const
{
    if (listenersInside == 0)
        calls_.waitForReaders();
}

void PropertyListeners::tell(AudioUnit unit, const UnitPropertyAddress& address) const
{
    const Publication::Reader call(calls_);
    std::vector<std::shared_ptr<Entry>> entries;
    {
        const std::scoped_lock lock(mutex_);
        entries = entries_;
    }
    ++listenersInside;
    for (const std::shared_ptr<Entry>& entry : entries)
        if (entry->property == address.id && !entry->isRemoved)
            entry->listener(entry->refCon, unit, address.id, address.scope, address.element);
    --listenersInside;
}

} // namespace qmx
