// SPDX-License-Identifier: MIT
#include "Devices/NotificationSenders.h"

#include <algorithm>

NotificationSenders::NotificationSenders(const std::weak_ptr<qmx::Object>& sender,
                                         std::initializer_list<const char*> states, const char* frame,
                                         const qmx::RealTimeNotification::Delivery& deliver)
{
    for (const char* const name : states)
        entries_.emplace_back(name, sender, qmx::RealTimeNotification::Kind::state, deliver);
    entries_.emplace_back(frame, sender, qmx::RealTimeNotification::Kind::frame, deliver);
}

void NotificationSenders::send(std::string_view name) noexcept
{
    const auto found = std::ranges::find(entries_, name, &Entry::name);
    if (found == entries_.end())
        return;
    const bool isFrame = &*found == &entries_.back();
    if (!isFrame || requests_++ % std::max<UInt32>(interval_, 1) == 0)
        found->notification.send();
}
