// SPDX-License-Identifier: MIT
#include "Foundation/Text/FailureLine.h"

#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"
#include "Foundation/Text/Format.h"

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

struct Failure {
    const char* title = nullptr;
    OSStatus status = noErr;
    const char* file = nullptr;
    unsigned line = 0;
    UInt64 number = 0; ///< in the order of occurrence
};

/// A place for one line: free, being filled, or waiting to be printed.
struct Place {
    enum State : int { free, claimed, waiting };
    std::atomic<int> state{free};
    Failure failure;
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

void keep(const Failure& failure) noexcept
{
    for (Place& place : places) {
        int expected = Place::free;
        if (!place.state.compare_exchange_strong(expected, Place::claimed, std::memory_order_acquire))
            continue;
        place.failure = failure;
        place.failure.number = lineCount.fetch_add(1, std::memory_order_relaxed);
        place.state.store(Place::waiting, std::memory_order_release);
        return;
    }
}

void print(const Failure& failure)
{
    const std::string text = format("%s Error: %ld ->  %s:  %d", failure.title, static_cast<long>(failure.status),
                                    failure.file, failure.line);
    if (handler())
        return handler()(failure.status, text);
    std::fprintf(stderr, "%s\n", text.c_str());
    std::fflush(stdout);
}

void printWaiting()
{
    std::vector<Failure> failures;
    for (Place& place : places) {
        if (place.state.load(std::memory_order_acquire) != Place::waiting)
            continue;
        failures.push_back(place.failure);
        place.state.store(Place::free, std::memory_order_release);
    }
    std::ranges::sort(failures, {}, &Failure::number);
    for (const Failure& failure : failures)
        print(failure);
}

} // namespace

OSStatus FailureLine::operator()(OSStatus status, unsigned line) const noexcept
{
    if (status == noErr)
        return status;
    const Failure failure{title_, status, file_, line, 0};
    if (isRealTime()) {
        keep(failure);
        return status;
    }
    (void)withinMemory([&] { // if memory runs out, the line is dropped
        const std::scoped_lock lock(printing());
        printWaiting();
        print(failure);
    });
    return status;
}

void printWaitingFailures()
{
    (void)withinMemory([] { // likewise
        const std::scoped_lock lock(printing());
        printWaiting();
    });
}

void setFailureLineHandler(FailureLineHandler receive)
{
    const std::scoped_lock lock(printing());
    handler() = std::move(receive);
}

} // namespace qmx
