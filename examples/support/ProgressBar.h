// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace example
{

/// A bar on standard error, shown only if that is a terminal, and cleared when done.
class ProgressBar
{
public:
    ProgressBar();
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// Redraws the bar if the whole percent or the label has changed. `fraction` is from 0 to 1.
    void show(const std::string& label, double fraction);
    /// Shows a text in its place.
    void showText(const std::string& text);
    void wipe();

private:
    bool isTerminal_;
    std::string drawn_;
};

} // namespace example
