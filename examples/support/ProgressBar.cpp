// SPDX-License-Identifier: MIT
#include "support/ProgressBar.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace example
{

ProgressBar::ProgressBar() : isTerminal_(isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar()
{
    wipe();
}

void ProgressBar::show(const std::string& label, double fraction)
{
    constexpr std::size_t width = 40;
    const auto percent = static_cast<std::size_t>(std::clamp(fraction, 0.0, 1.0) * 100);
    const std::size_t filled = percent * width / 100;
    showText(label + " [" + std::string(filled, '#') + std::string(width - filled, '-') + "] " +
             std::to_string(percent) + " %");
}

void ProgressBar::showText(const std::string& text)
{
    if (!isTerminal_ || text == drawn_)
        return;
    std::fprintf(stderr, "\r%s\033[K", text.c_str());
    drawn_ = text;
}

void ProgressBar::wipe()
{
    if (!drawn_.empty())
        std::fputs("\r\033[K", stderr);
    drawn_.clear();
}

} // namespace example
