// SPDX-License-Identifier: MIT
// Named notifications within the process.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <functional>
#include <memory>
#include <string>

namespace qmx
{

/// What happened, and the object that reports it.
struct Notification {
    std::string name;
    std::shared_ptr<Object> sender; ///< may be null
};

/// Delivers notifications to observers. All operations: any thread but the real-time ones (those use
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

    /// Calls `handler` for each notification with this name (empty: any) from this sender (null: any). The observer is
    /// held weakly, and strongly during a call; its registrations end with it. The sender is held weakly, too.
    void addObserver(const std::shared_ptr<Object>& observer, const std::string& name,
                     const std::shared_ptr<Object>& sender, Handler handler);
    /// The same without an observer object: the registration ends with the result.
    [[nodiscard]] std::shared_ptr<Object> observe(const std::string& name, const std::shared_ptr<Object>& sender,
                                                  Handler handler);
    /// Ends the observer's registrations with this name (empty: all names) and this sender (null: all senders). A post
    /// in progress does not call them any more.
    void removeObserver(const Object& observer, const std::string& name = {}, const Object* sender = nullptr);

    /// Calls the observers now.
    void postNotification(const std::string& name, const std::shared_ptr<Object>& sender);
    /// Runs postNotification on the main thread, in the order of the calls, without waiting. The sender is kept alive
    /// until then.
    void postNotificationOnMainThread(const std::string& name, const std::shared_ptr<Object>& sender);

private:
    struct Registrations;
    std::shared_ptr<Registrations> registrations_;
};

} // namespace qmx
