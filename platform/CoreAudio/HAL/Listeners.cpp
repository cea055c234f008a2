// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/Listeners.h"

#include "Foundation/RealTime.h"

#include <algorithm>

namespace qmx
{
namespace
{

thread_local bool isOnNotificationThread = false;

} // namespace

bool Listener::wants(const PropertyAddress& address) const
{
    return (property == kAudioPropertyWildcardPropertyID || property == address.property) &&
           (channel == kAudioPropertyWildcardChannel || channel == address.channel) &&
           (section == kAudioPropertyWildcardSection || (section != 0) == address.isInput);
}

bool Listeners::isNotificationThread()
{
    return isOnNotificationThread;
}

bool Listeners::hasAnnouncements()
{
    const std::scoped_lock lock(mutex_);
    return !queue_.empty();
}

bool Listeners::add(UInt32 object, const Listener& listener, bool announcesNow, const PropertyAddress& announced)
{
    thread_.start();
    const std::scoped_lock lock(mutex_);
    auto& registrations = registrations_[object];
    if (std::ranges::any_of(registrations, [&](const auto& each) { return each->listener == listener; }))
        return false;
    registrations.push_back(std::make_shared<Registration>(Registration{listener, nextOrder_++}));
    if (announcesNow) {
        queue_.push_back({object, announced, registrations.back(), {}, nextOrder_++});
        announced_.notify_one();
    }
    return true;
}

bool Listeners::remove(UInt32 object, const Listener& listener)
{
    std::unique_lock lock(mutex_);
    const auto entry = registrations_.find(object);
    if (entry == registrations_.end())
        return false;
    auto& registrations = entry->second;
    const auto found =
        std::ranges::find_if(registrations, [&](const auto& each) { return each->listener == listener; });
    if (found == registrations.end())
        return false;
    const std::shared_ptr<Registration> removed = *found;
    removed->isActive = false;
    registrations.erase(found);
    if (registrations.empty())
        registrations_.erase(entry);
    if (!isOnNotificationThread && !isInsideCallback())
        returned_.wait(lock, [&] { return called_ != removed.get(); });
    return true;
}

void Listeners::announce(UInt32 object, const PropertyAddress& address, std::function<void()> before)
{
    thread_.start();
    const std::scoped_lock lock(mutex_);
    queue_.push_back({object, address, nullptr, std::move(before), nextOrder_++});
    announced_.notify_one();
}

void Listeners::run()
{
    isOnNotificationThread = true;
    for (;;) {
        const Announcement announcement = waitForAnnouncement();
        if (announcement.before)
            announcement.before();
        for (const auto& registration : registrationsFor(announcement))
            call(registration, announcement);
    }
}

Listeners::Announcement Listeners::waitForAnnouncement()
{
    {
        const Worker::Wait wait(thread_.worker());
        std::unique_lock lock(mutex_);
        announced_.wait(lock, [this] { return !queue_.empty(); });
    }
    const std::scoped_lock lock(mutex_);
    Announcement announcement = std::move(queue_.front());
    queue_.pop_front();
    return announcement;
}

std::vector<std::shared_ptr<Listeners::Registration>> Listeners::registrationsFor(const Announcement& announcement)
{
    std::vector<std::shared_ptr<Registration>> wanting;
    if (announcement.only) {
        wanting.push_back(announcement.only);
        return wanting;
    }
    const std::scoped_lock lock(mutex_);
    if (const auto entry = registrations_.find(announcement.object); entry != registrations_.end())
        std::ranges::copy_if(entry->second, std::back_inserter(wanting), [&](const auto& each) {
            const bool cameInTime = announcement.before || each->order < announcement.order;
            return cameInTime && each->listener.wants(announcement.address);
        });
    return wanting;
}

void Listeners::call(const std::shared_ptr<Registration>& registration, const Announcement& announcement)
{
    {
        const std::scoped_lock lock(mutex_);
        if (!registration->isActive)
            return;
        called_ = registration.get();
    }
    const Listener& listener = registration->listener;
    const PropertyAddress& address = announcement.address;
    if (const auto* system = std::get_if<AudioHardwarePropertyListenerProc>(&listener.procedure))
        (*system)(address.property, listener.clientData);
    else if (const auto* device = std::get_if<AudioDevicePropertyListenerProc>(&listener.procedure))
        (*device)(announcement.object, address.channel, address.isInput, address.property, listener.clientData);
    else if (const auto* stream = std::get_if<AudioStreamPropertyListenerProc>(&listener.procedure))
        (*stream)(announcement.object, address.channel, address.property, listener.clientData);
    const std::scoped_lock lock(mutex_);
    called_ = nullptr;
    returned_.notify_all();
}

} // namespace qmx
