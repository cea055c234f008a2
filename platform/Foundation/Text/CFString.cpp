// SPDX-License-Identifier: MIT
#include "Foundation/Text/CFString.h"

#include "Foundation/Memory.h"

#include <atomic>

struct CFString {
    std::string text;
    mutable std::atomic<long> references{1};
};

CFStringRef CFStringCreate(std::string_view text)
{
    return qmx::withinMemory(CFStringRef(), [&] { return new CFString{.text = std::string(text)}; });
}

CFStringRef CFRetain(CFStringRef string)
{
    if (string)
        string->references.fetch_add(1, std::memory_order_relaxed);
    return string;
}

void CFRelease(CFStringRef string)
{
    if (string && string->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete string;
}

std::string CFStringGetText(CFStringRef string)
{
    return string ? string->text : std::string();
}
