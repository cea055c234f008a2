// SPDX-License-Identifier: MIT
// The registered listeners, and the one thread that calls them.
#pragma once

#include "CoreAudio/AudioHardware.h"
#include "CoreAudio/DeviceDescription.h"
#include "Foundation/Threads/LastingThread.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <variant>
#include <vector>

namespace qmx
{

/// One listener: its procedure, the changes it is registered for, and the caller's data.
struct Listener {
    using Procedure = std::variant<AudioHardwarePropertyListenerProc, AudioDevicePropertyListenerProc,
                                   AudioStreamPropertyListenerProc>;
    UInt32 property = kAudioPropertyWildcardPropertyID;
    UInt32 channel = kAudioPropertyWildcardChannel;
    UInt8 section = kAudioPropertyWildcardSection;
    Procedure procedure;
    void* clientData = nullptr;

    bool operator==(const Listener&) const = default;
    bool wants(const PropertyAddress& address) const;
};

/// Registrations by object (0 is the system) and the queue of changes. The notification thread calls, with no lock
/// held, the listeners that were registered before a change and still are when its turn comes. Never destroyed; its
/// thread is never waited for.
class Listeners
{
public:
    Listeners() = default;
    ~Listeners() = delete;

    /// False if it is registered already. With `announcesNow` this listener alone is called for `announced`.
    bool add(UInt32 object, const Listener& listener, bool announcesNow = false, const PropertyAddress& announced = {});
    /// False if it is not registered. Waits for a call of this listener in progress, except on the notification thread
    /// and inside callbacks.
    bool remove(UInt32 object, const Listener& listener);
    /// Puts a change in the queue. The notification thread calls `before` when the change's turn has come, with no lock
    /// held, and then calls the listeners: also those that came after the announcement, as `before` makes the change.
    void announce(UInt32 object, const PropertyAddress& address, std::function<void()> before = {});
    /// Whether the calling thread is the notification thread.
    static bool isNotificationThread();

private:
    struct Registration {
        Listener listener;
        UInt64 order;
        bool isActive = true; // guarded by the lock
    };
    struct Announcement {
        UInt32 object;
        PropertyAddress address;
        std::shared_ptr<Registration> only; // null: all registrations
        std::function<void()> before;
        UInt64 order;
    };
    [[noreturn]] void run();
    Announcement waitForAnnouncement();
    std::vector<std::shared_ptr<Registration>> registrationsFor(const Announcement& announcement);
    void call(const std::shared_ptr<Registration>& registration, const Announcement& announcement);
    bool hasAnnouncements();

    std::mutex mutex_;
    std::condition_variable announced_;
    std::condition_variable returned_;
    std::unordered_map<UInt32, std::vector<std::shared_ptr<Registration>>> registrations_;
    std::deque<Announcement> queue_;
    UInt64 nextOrder_ = 0; ///< of registrations and announcements together
    const Registration* called_ = nullptr;
    LastingThread thread_{"qmx-notify", [this] { run(); }, [this] { return hasAnnouncements(); }};
};

} // namespace qmx
