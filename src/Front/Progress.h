// SPDX-License-Identifier: MIT
// The progress of an operation of the front, and its cancelling. Internal to the front.
#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <stop_token>

namespace qmx
{

/// Reports progress that rises from 0 to exactly 1, whatever the operation reports. Both arguments stay the caller's.
class Progress
{
public:
    Progress(const std::function<bool(float)>& receiver, const std::stop_token& stop) : receiver_(receiver), stop_(stop)
    {
    }

    /// Reports a part of the whole that is done. False: cancel, now and at every later report.
    [[nodiscard]] bool report(double done)
    {
        const float next = std::clamp(static_cast<float>(done), 0.0F, std::nextafter(1.0F, 0.0F));
        isCancelled_ = isCancelled_ || stop_.stop_requested();
        if (!isCancelled_ && receiver_ && next > last_) {
            last_ = next;
            isCancelled_ = !receiver_(next);
        }
        return !isCancelled_;
    }
    bool isCancelled() const { return isCancelled_; }

    /// Everything is done: it is too late to cancel.
    void finish() const
    {
        if (receiver_)
            (void)receiver_(1.0F);
    }

private:
    const std::function<bool(float)>& receiver_;
    const std::stop_token& stop_;
    float last_ = -1;
    bool isCancelled_ = false;
};

} // namespace qmx
