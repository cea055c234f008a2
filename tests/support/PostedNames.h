// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/MainThread/RunLoop.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qmx::test
{

/// The names of what an object posts, where real time passes.
class PostedNames
{
public:
    void observe(const std::shared_ptr<Object>& sender)
    {
        names_.clear();
        observer_ = NotificationCenter::defaultCenter().observe("", sender, [this](const Notification& notification) {
            names_.push_back(notification.name);
            RunLoop::main().stop();
        });
    }
    /// Runs the main loop until `count` have been posted since the last call; fewer if they do not come.
    std::vector<std::string> next(std::size_t count)
    {
        while (names_.size() < count && !RunLoop::main().runFor(30))
            continue;
        while (RunLoop::main().runOnce())
            continue;
        return std::exchange(names_, {});
    }

private:
    std::vector<std::string> names_;
    std::shared_ptr<Object> observer_;
};

} // namespace qmx::test
