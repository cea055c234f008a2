// SPDX-License-Identifier: MIT
// Named notifications within the process.
#pragma once

#include "Foundation/Export.h"
#include "Foundation/Object.h"

#include <functional>
#include <memory>
#include <string>

namespace qmx
{

/// What happened, and to whom.
struct Notification {
    std::string name;
    std::shared_ptr<Object> sender; ///< null when nobody in particular
};

/// Brings notifications to those who asked for them. All operations: any thread but the real-time ones (those use
/// RealTimeNotification). Observers are called on the posting thread, in the order in which they were added, with no
/// lock held: they may add, remove and post. The library posts on the main thread only.
class QMX_EXPORT NotificationCenter
{
public:
    using Handler = std::function<void(const Notification&)>;

    /// The process's centre; never destroyed.
    static NotificationCenter& defaultCenter();

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// Has `handler` called for each notification of that name (empty: any) from that sender (null: any). The observer
    /// is held weakly, and strongly during a call; with its end the registration ends. The sender is held weakly too.
    void addObserver(const std::shared_ptr<Object>& observer, const std::string& name,
                     const std::shared_ptr<Object>& sender, Handler handler);
    /// The same for whoever has no object: observes as long as the result lives.
    [[nodiscard]] std::shared_ptr<Object> observe(const std::string& name, const std::shared_ptr<Object>& sender,
                                                  Handler handler);
    /// Ends the observer's registrations made with that name (empty: all names) and that sender (null: all senders).
    /// Calls that a post still has ahead are not made.
    void removeObserver(const Object& observer, const std::string& name = {}, const Object* sender = nullptr);

    /// Calls the observers now.
    void postNotification(const std::string& name, const std::shared_ptr<Object>& sender);
    /// Has postNotification run on the main thread, in the order of the calls, and does not wait. The sender lives
    /// until then.
    void postNotificationOnMainThread(const std::string& name, const std::shared_ptr<Object>& sender);

private:
    struct Registrations;
    std::shared_ptr<Registrations> registrations_;
};

} // namespace qmx
