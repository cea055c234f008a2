// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace example
{

/// A bar on standard error, shown only where that is a terminal, and wiped when done.
class ProgressBar
{
public:
    ProgressBar();
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// Draws the bar anew when the whole percent or the label changed. `fraction` is from 0 to 1.
    void show(const std::string& label, double fraction);
    void wipe();

private:
    bool isTerminal_;
    std::string drawn_;
};

} // namespace example
