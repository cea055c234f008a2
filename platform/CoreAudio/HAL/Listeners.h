// SPDX-License-Identifier: MIT
// Who wants to hear of which changes, and the one thread that calls them.
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

/// One listener: its procedure, what it wants to hear of, and the caller's data.
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

/// Registrations by object (0 is the system) and the queue of changes. Listeners run on the notification thread, from
/// what was registered when a change's turn came, with no lock held. Never destroyed; its thread is never waited for.
class Listeners
{
public:
    Listeners() = default;
    ~Listeners() = delete;

    /// False when it is registered already. `announcesNow`: calls this one, and no other, of `announced`.
    bool add(UInt32 object, const Listener& listener, bool announcesNow = false, const PropertyAddress& announced = {});
    /// False when it is not there. Waits for a call of this listener that goes on, except on the notification thread
    /// and inside callbacks.
    bool remove(UInt32 object, const Listener& listener);
    /// Puts a change in the queue. The notification thread calls `before` when the change's turn has come, with no lock
    /// held, and then calls the listeners.
    void announce(UInt32 object, const PropertyAddress& address, std::function<void()> before = {});
    /// Of the thread that calls.
    static bool isNotificationThread();

private:
    struct Registration {
        Listener listener;
        bool isActive = true; // guarded by the lock
    };
    struct Announcement {
        UInt32 object;
        PropertyAddress address;
        std::shared_ptr<Registration> only; // null: everybody
        std::function<void()> before;
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
    const Registration* called_ = nullptr;
    LastingThread thread_{"qmx-notify", [this] { run(); }, [this] { return hasAnnouncements(); }};
};

} // namespace qmx
