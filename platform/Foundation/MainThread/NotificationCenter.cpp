// SPDX-License-Identifier: MIT
#include "Foundation/MainThread/NotificationCenter.h"

#include "Foundation/MainThread/RunLoop.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace qmx
{
namespace
{

struct Registration {
    const Object* observerAddress;
    std::weak_ptr<Object> observer;
    std::string name; // empty: any
    bool takesAnySender;
    const Object* senderAddress;
    std::weak_ptr<Object> sender;
    NotificationCenter::Handler handler;
    std::atomic<bool> isActive{true};

    bool wants(const Notification& notification) const
    {
        return isActive && (name.empty() || name == notification.name) &&
               (takesAnySender || (notification.sender && sender.lock() == notification.sender));
    }
};

using List = std::vector<std::shared_ptr<Registration>>;

} // namespace

// The list is replaced as a whole: a post keeps the one that it started with.
struct NotificationCenter::Registrations {
    std::mutex mutex;
    std::shared_ptr<const List> list = std::make_shared<const List>();

    std::shared_ptr<const List> snapshot()
    {
        const std::scoped_lock lock(mutex);
        return list;
    }

    void add(std::shared_ptr<Registration> registration)
    {
        std::shared_ptr<const List> old; // handlers are destroyed without the lock
        const std::scoped_lock lock(mutex);
        auto next = std::make_shared<List>();
        std::ranges::copy_if(*list, std::back_inserter(*next),
                             [](const auto& each) { return !each->observer.expired(); });
        next->push_back(std::move(registration));
        old = std::exchange(list, std::move(next));
    }

    template <class Predicate> void remove(Predicate leaves)
    {
        std::shared_ptr<const List> old;
        const std::scoped_lock lock(mutex);
        auto next = std::make_shared<List>();
        for (const auto& each : *list) {
            if (leaves(*each))
                each->isActive = false;
            else
                next->push_back(each);
        }
        old = std::exchange(list, std::move(next));
    }
};

namespace
{

// The observer for observe().
class Observation : public Object
{
public:
    explicit Observation(std::function<void(const Object&)> end) : end_(std::move(end)) {}
    ~Observation() override { end_(*this); }

private:
    std::function<void(const Object&)> end_;
};

} // namespace

NotificationCenter& NotificationCenter::defaultCenter()
{
    static auto* const center = new NotificationCenter;
    return *center;
}

NotificationCenter::NotificationCenter() : registrations_(std::make_shared<Registrations>()) {}
NotificationCenter::~NotificationCenter() = default;

void NotificationCenter::addObserver(const std::shared_ptr<Object>& observer, const std::string& name,
                                     const std::shared_ptr<Object>& sender, Handler handler)
{
    auto registration = std::make_shared<Registration>();
    registration->observerAddress = observer.get();
    registration->observer = observer;
    registration->name = name;
    registration->takesAnySender = !sender;
    registration->senderAddress = sender.get();
    registration->sender = sender;
    registration->handler = std::move(handler);
    registrations_->add(std::move(registration));
}

std::shared_ptr<Object> NotificationCenter::observe(const std::string& name, const std::shared_ptr<Object>& sender,
                                                    Handler handler)
{
    auto observation =
        std::make_shared<Observation>([registrations = std::weak_ptr(registrations_)](const Object& ended) {
            if (const auto list = registrations.lock())
                list->remove([&ended](const Registration& each) { return each.observerAddress == &ended; });
        });
    addObserver(observation, name, sender, std::move(handler));
    return observation;
}

void NotificationCenter::removeObserver(const Object& observer, const std::string& name, const Object* sender)
{
    registrations_->remove([&](const Registration& each) {
        return each.observerAddress == &observer && (name.empty() || each.name == name) &&
               (!sender || each.senderAddress == sender);
    });
}

void NotificationCenter::postNotification(const std::string& name, const std::shared_ptr<Object>& sender)
{
    const Notification notification{.name = name, .sender = sender};
    const std::shared_ptr<const List> list = registrations_->snapshot();
    for (const auto& registration : *list) {
        if (!registration->wants(notification))
            continue;
        if (const std::shared_ptr<Object> observer = registration->observer.lock())
            registration->handler(notification);
    }
}

void NotificationCenter::postNotificationOnMainThread(const std::string& name, const std::shared_ptr<Object>& sender)
{
    RunLoop::main().perform([this, name, sender] { postNotification(name, sender); });
}

} // namespace qmx
