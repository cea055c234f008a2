// SPDX-License-Identifier: MIT
#include "Foundation/Text/FailureLine.h"

#include "CoreAudioTypes/FourCharCode.h"
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
    const char* title = nullptr; ///< or the whole text of a status line
    const char* word = nullptr;
    OSStatus status = noErr;
    const char* file = nullptr; ///< null for a status line
    unsigned line = 0;
    UInt64 number = 0; ///< in the order of occurrence

    std::string text() const
    {
        if (!file)
            return format(title, status, fourCharString(static_cast<UInt32>(status)).c_str());
        return format("%s %s: %ld ->  %s:  %d", title, word, static_cast<long>(status), file, line);
    }
};

/// A place for one line: free, being filled, or waiting to be printed.
struct Place {
    enum State : int { free, claimed, waiting };
    std::atomic<int> state{free};
    Failure failure;
};

thread_local int quietScopes = 0;

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
    const std::string text = failure.text();
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

OSStatus tell(const Failure& failure) noexcept
{
    if (failure.status == noErr)
        return noErr;
    if (isRealTime()) {
        keep(failure);
        return failure.status;
    }
    if (quietScopes > 0)
        return failure.status;
    (void)withinMemory([&] { // if memory runs out, the line is dropped
        const std::scoped_lock lock(printing());
        printWaiting();
        print(failure);
    });
    return failure.status;
}

} // namespace

OSStatus FailureLine::operator()(OSStatus status, unsigned line) const noexcept
{
    return tell({title_, word_, status, file_, line, 0});
}

OSStatus StatusLine::operator()(OSStatus status) const noexcept
{
    return tell({text_, nullptr, status, nullptr, 0, 0});
}

QuietFailureLines::QuietFailureLines()
{
    ++quietScopes;
}

QuietFailureLines::~QuietFailureLines()
{
    --quietScopes;
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
