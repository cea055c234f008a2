// SPDX-License-Identifier: MIT
// How bounds and samples are kept apart without a lock, on machines that reorder memory too:
//
// Publishing writes a record that nobody reads any more, then advances the counter. That is a release, so a reader that
// sees the counter (acquire) sees the record and all samples stored before it. A release fence follows: whoever sees a
// byte written later, and has an acquire fence after that, also sees the counter at least as far.
//
// A reader therefore looks twice. Having copied a record it looks at the counter again: 31 publications later the
// writer may have begun to write over the record, before that it has not. Having copied samples it looks at the bounds
// again: frames are taken out of the bounds before they are written over, so if they are still inside, and the writer
// has not gone back in time, the copy is what was stored.
#include "PlayThru/AudioRingBuffer.h"

#include "PlayThru/RacingCopy.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <limits>
#include <memory>

namespace
{

constexpr SInt32 stored = 1;
constexpr int readAttempts = 8;
constexpr UInt64 areaLimit = UInt64{1} << 31;
constexpr std::size_t cacheLine = 64; ///< bytes; areas begin on one, which copies are faster from
constexpr long long latestFrame = std::numeric_limits<long long>::max();

/// The end of a range, as late as 64 bits allow.
long long endOf(long long startFrame, unsigned long frames)
{
    const auto start = static_cast<UInt64>(startFrame);
    const UInt64 end = start + std::min<UInt64>(frames, static_cast<UInt64>(latestFrame) - start);
    return static_cast<long long>(end);
}

/// Huge if `startFrame` is after `endFrame`.
UInt64 length(long long startFrame, long long endFrame)
{
    return static_cast<UInt64>(endFrame) - static_cast<UInt64>(startFrame);
}

std::size_t roomOf(const AudioBuffer& buffer)
{
    return buffer.mData ? buffer.mDataByteSize : 0;
}

} // namespace

SInt32 AudioRingBuffer::Bounds::classify(long long requestStart, long long requestEnd) const
{
    if (start <= requestStart) {
        if (requestEnd <= end)
            return kRingOK;
        return requestStart <= end ? kRingAhead : kRingFarAhead;
    }
    if (requestEnd > end)
        return kRingTooLarge;
    return requestEnd >= start ? kRingBehind : kRingFarBehind;
}

AudioRingBuffer::Bounds AudioRingBuffer::BoundsRecord::load() const
{
    return {startFrame.load(std::memory_order_relaxed), endFrame.load(std::memory_order_relaxed),
            cuts.load(std::memory_order_relaxed)};
}

void AudioRingBuffer::Allocate(int channels, unsigned long bytesPerFrame, unsigned long frames)
{
    Deallocate();
    for (BoundsRecord& record : mBoundsRing) {
        record.startFrame.store(0, std::memory_order_relaxed);
        record.endFrame.store(0, std::memory_order_relaxed);
        record.stamp.store(0, std::memory_order_relaxed);
        record.cuts.store(0, std::memory_order_relaxed);
    }
    mBoundsCounter.store(0);

    if (channels <= 0 || bytesPerFrame == 0 || bytesPerFrame >= areaLimit || frames >= areaLimit)
        return;
    const UInt64 capacity = std::bit_ceil(UInt64{frames});
    if (capacity > (areaLimit - 1) / bytesPerFrame)
        return;
    const UInt64 areaBytes = capacity * bytesPerFrame;
    const auto count = static_cast<std::size_t>(channels);
    // not cleared: frames are stored before they are held
    mChannelData.reset(static_cast<std::byte**>(std::malloc(count * (sizeof(std::byte*) + areaBytes) + cacheLine)));
    if (!mChannelData)
        return;
    void* areas = mChannelData.get() + count;
    std::size_t room = count * areaBytes + cacheLine;
    std::align(cacheLine, count * areaBytes, areas, room);
    for (std::size_t channel = 0; channel < count; ++channel)
        mChannelData[channel] = static_cast<std::byte*>(areas) + channel * areaBytes;
    mChannelCount = channels;
    mBytesPerFrame = static_cast<UInt32>(bytesPerFrame);
    mFrameCapacity = static_cast<UInt32>(capacity);
    mFrameMask = mFrameCapacity - 1;
    mByteCapacity = static_cast<UInt32>(areaBytes);
}

void AudioRingBuffer::Deallocate()
{
    mChannelData.reset();
    mChannelCount = 0;
    mByteCapacity = 0;
    mFrameCapacity = 0;
}

/// The current bounds, for readers. False where the writer was always faster.
bool AudioRingBuffer::readBounds(Bounds& bounds) const
{
    for (int attempt = 0; attempt < readAttempts; ++attempt) {
        const UInt32 counter = mBoundsCounter.load(std::memory_order_acquire);
        const BoundsRecord& record = mBoundsRing[counter % kBoundsRingSize];
        bounds = record.load();
        const UInt32 stamp = record.stamp.load(std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_acquire);
        const UInt32 published = mBoundsCounter.load(std::memory_order_relaxed) - counter;
        if (stamp == counter && published < kBoundsRingSize - 1)
            return true;
    }
    return false;
}

SInt32 AudioRingBuffer::Store(const AudioBufferList* source, unsigned long frames, long long startFrame)
{
    const long long endFrame = endOf(startFrame, frames);
    if (mFrameCapacity == 0 || frames > mFrameCapacity || length(startFrame, endFrame) < frames)
        return kRingTooLarge;
    if (frames == 0)
        return stored;
    Bounds bounds = held();
    makeRoom(bounds, startFrame, endFrame);
    const Runs target = runs(startFrame, frames);
    const AudioBuffer* const buffers = source->mBuffers;
    const UInt32 used = usedBuffers(*source);
    for (UInt32 channel = 0; channel < used; ++channel)
        store(buffers[channel], target, channel);
    bounds.end = endFrame;
    publish(bounds);
    return stored;
}

/// Takes out of the bounds what the new frames write over, and silences the gap in front of them.
void AudioRingBuffer::makeRoom(Bounds& bounds, long long startFrame, long long endFrame)
{
    if (startFrame < bounds.end) {
        bounds = {startFrame, startFrame, bounds.cuts + 1};
        publish(bounds);
    } else if (length(bounds.start, endFrame) > mFrameCapacity) {
        bounds.start = endFrame - mFrameCapacity;
        bounds.end = std::max(bounds.end, bounds.start);
        publish(bounds);
    }
    if (startFrame > bounds.end) {
        const Runs gap = runs(bounds.end, static_cast<std::size_t>(startFrame - bounds.end));
        for (UInt32 channel = 0; channel < static_cast<UInt32>(mChannelCount); ++channel)
            clear(gap, channel);
    }
}

SInt32 AudioRingBuffer::Fetch(AudioBufferList* destination, unsigned long frames, long long startFrame) const
{
    const long long endFrame = endOf(startFrame, frames);
    Bounds before, after;
    if (mFrameCapacity == 0 || !readBounds(before))
        return kRingBoundsBusy;
    if (const SInt32 code = before.classify(startFrame, endFrame); code != kRingOK)
        return code;
    if (length(startFrame, endFrame) < frames)
        return kRingAhead; // 64 bits hold no times so late
    const Runs source = runs(startFrame, frames);
    AudioBuffer* const buffers = destination->mBuffers;
    const UInt32 used = usedBuffers(*destination);
    for (UInt32 channel = 0; channel < used; ++channel)
        fetch(buffers[channel], source, channel);

    std::atomic_thread_fence(std::memory_order_acquire);
    if (!readBounds(after))
        return kRingBoundsBusy;
    const SInt32 code = after.classify(startFrame, endFrame);
    // frames thrown away and stored anew under the same times may be a mixture of both
    return code == kRingOK && after.cuts != before.cuts ? kRingBoundsBusy : code;
}

SInt32 AudioRingBuffer::GetTimeBounds(long long& startFrame, long long& endFrame) const
{
    Bounds bounds;
    if (!readBounds(bounds))
        return kRingBoundsBusy;
    startFrame = bounds.start;
    endFrame = bounds.end;
    return kRingOK;
}

bool AudioRingBuffer::SetTimeBounds(long long startFrame, long long endFrame)
{
    if (length(startFrame, endFrame) > mFrameCapacity)
        return false;
    const Bounds before = held();
    const bool isCut = startFrame < before.start || endFrame < before.end;
    return publish({startFrame, endFrame, before.cuts + (isCut ? 1 : 0)});
}

/// Gives whether the counter went on, as it does with one writer.
bool AudioRingBuffer::publish(const Bounds& bounds)
{
    UInt32 counter = mBoundsCounter.load(std::memory_order_relaxed);
    const UInt32 next = counter + 1;
    BoundsRecord& record = mBoundsRing[next % kBoundsRingSize];
    record.startFrame.store(bounds.start, std::memory_order_relaxed);
    record.endFrame.store(bounds.end, std::memory_order_relaxed);
    record.cuts.store(bounds.cuts, std::memory_order_relaxed);
    record.stamp.store(next, std::memory_order_relaxed);
    const bool isPublished = mBoundsCounter.compare_exchange_strong(counter, next);
    std::atomic_thread_fence(std::memory_order_release);
    return isPublished;
}

SInt32 AudioRingBuffer::CheckTimeBounds(long long startFrame, long long endFrame) const
{
    Bounds bounds;
    return readBounds(bounds) ? bounds.classify(startFrame, endFrame) : kRingBoundsBusy;
}

/// The current bounds, for the writer, who alone changes them.
AudioRingBuffer::Bounds AudioRingBuffer::held() const
{
    return mBoundsRing[mBoundsCounter.load(std::memory_order_relaxed) % kBoundsRingSize].load();
}

std::size_t AudioRingBuffer::byteOffset(long long frame) const
{
    return std::size_t{static_cast<UInt32>(frame) & mFrameMask} * mBytesPerFrame;
}

AudioRingBuffer::Runs AudioRingBuffer::runs(long long startFrame, std::size_t frames) const
{
    const std::size_t offset = byteOffset(startFrame), bytes = frames * mBytesPerFrame;
    const std::size_t first = std::min(bytes, mByteCapacity - offset);
    return {offset, first, bytes - first};
}

UInt32 AudioRingBuffer::usedBuffers(const AudioBufferList& list) const
{
    return std::min(list.mNumberBuffers, static_cast<UInt32>(mChannelCount));
}

void AudioRingBuffer::clear(const Runs& runs, UInt32 channel)
{
    qmx::clearRacing(mChannelData[channel] + runs.offset, runs.first);
    qmx::clearRacing(mChannelData[channel], runs.second);
}

void AudioRingBuffer::store(const AudioBuffer& source, const Runs& runs, UInt32 channel)
{
    const std::size_t room = roomOf(source), first = std::min(runs.first, room);
    const std::size_t second = std::min(runs.second, room - first);
    if (first + second < runs.first + runs.second)
        clear(runs, channel);
    const auto* const data = static_cast<const std::byte*>(source.mData);
    qmx::copyRacing(mChannelData[channel] + runs.offset, data, first);
    qmx::copyRacing(mChannelData[channel], data + first, second);
}

void AudioRingBuffer::fetch(AudioBuffer& destination, const Runs& runs, UInt32 channel) const
{
    const std::size_t room = roomOf(destination), first = std::min(runs.first, room);
    const std::size_t second = std::min(runs.second, room - first);
    auto* const data = static_cast<std::byte*>(destination.mData);
    qmx::copyRacing(data, mChannelData[channel] + runs.offset, first);
    qmx::copyRacing(data + first, mChannelData[channel], second);
}
