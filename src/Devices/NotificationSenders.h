// SPDX-License-Identifier: MIT
// The notifications that an object's real-time threads hand to the main thread.
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/MainThread/RealTimeNotification.h"

#include <atomic>
#include <deque>
#include <initializer_list>
#include <memory>
#include <string_view>

/// Made after the sender has its owner. Everything else from any thread, real-time ones included.
class NotificationSenders
{
public:
    /// `deliver` posts on the main thread.
    NotificationSenders(const std::weak_ptr<qmx::Object>& sender, std::initializer_list<const char*> states,
                        const char* frame, const qmx::RealTimeNotification::Delivery& deliver);

    /// The frame notification is sent at the first of every `interval` requests; 0 counts as 1.
    void setInterval(UInt32 interval) { interval_ = interval; }
    UInt32 interval() const { return interval_; }
    /// Names that are not among them are ignored.
    void send(std::string_view name) noexcept;

private:
    struct Entry {
        Entry(const char* posted, const std::weak_ptr<qmx::Object>& sender, qmx::RealTimeNotification::Kind kind,
              const qmx::RealTimeNotification::Delivery& deliver)
            : name(posted), notification(posted, sender, kind, deliver)
        {
        }
        std::string_view name;
        qmx::RealTimeNotification notification;
    };

    std::deque<Entry> entries_; ///< the frame notification is the last one
    std::atomic<UInt32> requests_{0};
    std::atomic<UInt32> interval_{1};
};
