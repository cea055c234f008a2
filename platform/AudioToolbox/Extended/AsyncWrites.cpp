// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/AsyncWrites.h"

#include "AudioToolbox/ExtAudioFile.h"
#include "Foundation/RealTime.h"

#include <algorithm>
#include <utility>

namespace qmx
{
namespace
{

constexpr Float64 secondsHeld = 4;
constexpr Float64 secondsBeforeWake = 0.25; // what a killed process may lose here
constexpr std::size_t leastBytes = 1U << 18, mostBytes = 1U << 24;

/// Frames that are written at once: enough to be cheap, few enough that other files get their turn.
constexpr UInt32 pieceFrames = 32768;

} // namespace

std::shared_ptr<AsyncWrites> AsyncWrites::make(const PcmLayout& layout, Float64 rate, Sink sink)
{
    const UInt32 capacity = FrameRing::capacityFor(layout, rate, secondsHeld, leastBytes, mostBytes);
    const auto wake = std::min(capacity / 8, static_cast<UInt32>(rate * secondsBeforeWake));
    auto writes = std::make_shared<AsyncWrites>(layout, capacity, wake, std::move(sink));
    return BackgroundThread::writer().add(writes) ? writes : nullptr;
}

AsyncWrites::AsyncWrites(const PcmLayout& layout, UInt32 capacity, UInt32 wakeAfter, Sink sink)
    : ring_(layout, capacity), part_(layout), wakeAfter_(wakeAfter), sink_(std::move(sink))
{
}

OSStatus AsyncWrites::add(const AudioBufferList& frames, UInt32 count)
{
    if (isRealTime()) {
        if (count > ring_.capacity())
            return kExtAudioFileError_AsyncWriteTooLarge;
        if (count > ring_.room())
            return kExtAudioFileError_AsyncWriteBufferOverflow;
    }
    for (UInt32 done = 0; done < count;) {
        const UInt32 length = std::min(count - done, ring_.room());
        if (length == 0) {
            waitForRoom();
            continue;
        }
        const bool wasWorthAWake = isWorthAWake();
        ring_.copyIn(part_.aimAt(frames, done, length), length);
        done += length;
        if (!wasWorthAWake && isWorthAWake())
            BackgroundThread::writer().wake();
    }
    return noErr;
}

/// The writing thread is woken once a part of the memory is full, and then writes until it finds nothing more. Less
/// than that waits for more or for the end.
bool AsyncWrites::isWorthAWake() const
{
    return ring_.ready() > wakeAfter_;
}

/// Waits for the writing thread, or writes in its place.
void AsyncWrites::waitForRoom()
{
    const std::scoped_lock lock(takerMutex_);
    if (ring_.room() == 0)
        writeSome();
}

bool AsyncWrites::writeSome()
{
    UInt32 count = pieceFrames;
    const AudioBufferList& frames = ring_.next(count);
    if (count == 0 || !sink_)
        return false;
    sink_(frames, count);
    ring_.take(count);
    return true;
}

void AsyncWrites::work()
{
    for (bool wrote = true; wrote;) {
        const std::scoped_lock lock(takerMutex_);
        wrote = writeSome();
    }
}

void AsyncWrites::drain()
{
    const std::scoped_lock lock(takerMutex_);
    while (writeSome()) {
    }
}

void AsyncWrites::finish()
{
    drain();
    const std::scoped_lock lock(takerMutex_);
    sink_ = nullptr;
}

} // namespace qmx
