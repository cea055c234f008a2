// SPDX-License-Identifier: MIT
#include "Foundation/FailureLine.h"

#include "Foundation/Format.h"
#include "Foundation/RealTime.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <utility>
#include <vector>

namespace qmx
{
namespace
{

struct FailureLine {
    const char* title = nullptr;
    OSStatus status = noErr;
    const char* file = nullptr;
    unsigned line = 0;
    UInt64 number = 0; ///< in the order of their happening
};

/// A place for one line: free, being filled, or waiting to be printed.
struct Place {
    enum State : int { free, claimed, waiting };
    std::atomic<int> state{free};
    FailureLine line;
};

std::array<Place, 64> places;
std::atomic<UInt64> lineCount{0};

std::mutex& printing()
{
    static auto* const mutex = new std::mutex; // objects with static lifetimes may fail too
    return *mutex;
}

FailureLineHandler& handler()
{
    static auto* const current = new FailureLineHandler;
    return *current;
}

void keep(const FailureLine& line) noexcept
{
    for (Place& place : places) {
        int expected = Place::free;
        if (!place.state.compare_exchange_strong(expected, Place::claimed, std::memory_order_acquire))
            continue;
        place.line = line;
        place.line.number = lineCount.fetch_add(1, std::memory_order_relaxed);
        place.state.store(Place::waiting, std::memory_order_release);
        return;
    }
}

void print(const FailureLine& line)
{
    const std::string text =
        format("%s Error: %ld ->  %s:  %d", line.title, static_cast<long>(line.status), line.file, line.line);
    if (handler())
        return handler()(line.status, text);
    std::fprintf(stderr, "%s\n", text.c_str());
    std::fflush(stdout);
}

void printWaiting()
{
    std::vector<FailureLine> lines;
    for (Place& place : places) {
        if (place.state.load(std::memory_order_acquire) != Place::waiting)
            continue;
        lines.push_back(place.line);
        place.state.store(Place::free, std::memory_order_release);
    }
    std::ranges::sort(lines, {}, &FailureLine::number);
    for (const FailureLine& line : lines)
        print(line);
}

} // namespace

void printFailure(const char* title, OSStatus status, const char* file, unsigned line) noexcept
{
    const FailureLine failure{title, status, file, line, 0};
    if (isRealTime())
        return keep(failure);
    const std::scoped_lock lock(printing());
    printWaiting();
    print(failure);
}

void printWaitingFailures()
{
    const std::scoped_lock lock(printing());
    printWaiting();
}

void setFailureLineHandler(FailureLineHandler receive)
{
    const std::scoped_lock lock(printing());
    handler() = std::move(receive);
}

} // namespace qmx
