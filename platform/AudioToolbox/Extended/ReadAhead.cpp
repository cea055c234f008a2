// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/ReadAhead.h"

#include "Foundation/RealTime.h"

#include <algorithm>
#include <utility>

namespace qmx
{
namespace
{

constexpr Float64 secondsHeld = 4;
constexpr std::size_t leastBytes = 1U << 17, mostBytes = 1U << 24;

/// Frames that are read at once.
constexpr UInt32 pieceFrames = 8192;

} // namespace

std::shared_ptr<ReadAhead> ReadAhead::make(const PcmLayout& layout, Float64 rate, Source source)
{
    const UInt32 capacity = FrameRing::capacityFor(layout, rate, secondsHeld, leastBytes, mostBytes);
    auto ahead = std::make_shared<ReadAhead>(layout, capacity, std::move(source));
    return BackgroundThread::reader().add(ahead) ? ahead : nullptr;
}

ReadAhead::ReadAhead(const PcmLayout& layout, UInt32 capacity, Source source)
    : ring_(layout, capacity), part_(layout), source_(std::move(source))
{
}

ConditionLockTurn ReadAhead::turn()
{
    return {turn_, !isRealTime()};
}

OSStatus ReadAhead::take(const AudioBufferList& data, UInt32& count)
{
    const UInt32 wanted = std::exchange(count, 0);
    bool hasEnded = false;
    while (count < wanted) {
        hasEnded = hasEnded_.load(std::memory_order_acquire); // before the count: nothing follows it
        const UInt32 length = std::min(wanted - count, ring_.ready());
        ring_.copyOut(part_.aimAt(data, count, length), length);
        count += length;
        if (length > 0)
            continue;
        if (hasEnded || isRealTime())
            break;
        const std::scoped_lock lock(adderMutex_);
        readSome();
    }
    if (count < wanted && !hasEnded)
        countMissed(wanted - count);
    const OSStatus failure = hasEnded && count < wanted ? failure_.load(std::memory_order_relaxed) : noErr;
    if (failure != noErr) // reported once; then reading goes on
        hasEnded_.store(false, std::memory_order_release);
    // a disk that stalls finds three seconds read, at least; after a failure only who cannot read itself asks for more
    if ((failure != noErr && isRealTime()) || (ring_.room() > ring_.capacity() / 4 && !hasEnded))
        BackgroundThread::reader().wake();
    return failure;
}

/// Reads a piece if there is room; false when there is nothing more to do.
bool ReadAhead::readSome()
{
    if (!source_ || hasEnded_.load(std::memory_order_relaxed))
        return false;
    UInt32 room = pieceFrames;
    AudioBufferList& frames = ring_.ahead(room);
    if (room == 0)
        return false;
    UInt32 count = room;
    const OSStatus status = source_(frames, count);
    ring_.add(count);
    if (status == noErr && count == room)
        return true;
    failure_.store(status, std::memory_order_relaxed);
    hasEnded_.store(true, std::memory_order_release);
    return false;
}

void ReadAhead::work()
{
    for (bool mayGoOn = true; mayGoOn;) {
        const std::scoped_lock lock(adderMutex_);
        mayGoOn = readSome();
    }
}

void ReadAhead::restart(const std::function<void()>& move)
{
    {
        const ConditionLockTurn turn = this->turn(); // before the lock, as in `take`
        const std::scoped_lock lock(adderMutex_);
        ring_.clear();
        hasEnded_ = false;
        failure_ = noErr;
        move();
        readSome();
    }
    BackgroundThread::reader().wake();
}

void ReadAhead::finish()
{
    const ConditionLockTurn turn = this->turn();
    const std::scoped_lock lock(adderMutex_);
    source_ = nullptr;
}

} // namespace qmx
