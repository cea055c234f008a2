// SPDX-License-Identifier: MIT
// Carries audio from one real-time thread to others whose devices run on clocks of their own. A frame is addressed by
// its sample time on the writer's time line. The ring says which times it holds, its time bounds, and replaces them
// without a lock.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/HeapBlock.h>

#include <array>
#include <atomic>
#include <cstddef>

// Where a range of frames lies against the time bounds: results of Fetch() and CheckTimeBounds().
inline constexpr SInt32 kRingFarBehind = -2; ///< wholly before the bounds
inline constexpr SInt32 kRingBehind = -1;    ///< begins before the bounds and ends inside
inline constexpr SInt32 kRingOK = 0;         ///< wholly inside
inline constexpr SInt32 kRingAhead = 1;      ///< begins inside and ends after the bounds
inline constexpr SInt32 kRingFarAhead = 2;   ///< wholly after the bounds
inline constexpr SInt32 kRingTooLarge = 3;   ///< begins before and ends after the bounds, or more than the ring holds
inline constexpr SInt32 kRingBoundsBusy = 4; ///< no bounds could be read, or what was held was thrown away meanwhile

/// Channels lie apart, in areas of one block; buffer i of a list is channel i. One thread stores and sets the bounds,
/// any number of others fetch and ask for them at the same time, in real time or not: none of these allocates, locks or
/// enters the system. Allocate() and Deallocate() run while no other operation does.
class QMX_EXPORT AudioRingBuffer
{
public:
    /// A ring without memory: Store() answers kRingTooLarge and Fetch() kRingBoundsBusy.
    AudioRingBuffer() = default;
    AudioRingBuffer(const AudioRingBuffer&) = delete;
    AudioRingBuffer& operator=(const AudioRingBuffer&) = delete;

    /// Takes memory for `channels` channels of at least `frames` frames, raised to a power of two, of `bytesPerFrame`
    /// bytes each. What was held is gone, and the bounds are [0, 0). The ring is empty, as after Deallocate(), where
    /// memory is short, a channel would take 2 GiB or more, or nothing is asked for.
    void Allocate(int channels, unsigned long bytesPerFrame, unsigned long frames);
    void Deallocate();

    /// Stores `frames` frames of `source`, which begin at sample time `startFrame`, and drops the oldest ones that are
    /// in their way. A gap since the last end is filled with silence. Going back in time throws away all that is held.
    /// Gives 1, not 0; kRingTooLarge for more frames than the ring holds or times that 64 bits do not: then nothing has
    /// changed. Channels without a buffer are left as they are; a buffer that is too short is made up with silence. For
    /// the writer only.
    [[nodiscard]] SInt32 Store(const AudioBufferList* source, unsigned long frames, long long startFrame);
    /// Copies `frames` frames from sample time `startFrame` on to the buffers of `destination`, as far as each has
    /// room; the buffers' sizes stay. Anything but kRingOK is no sound: a range that is not held is not copied, and one
    /// that was overwritten during the copy may have been copied in part. For readers.
    [[nodiscard]] SInt32 Fetch(AudioBufferList* destination, unsigned long frames, long long startFrame) const;

    /// The sample times that are held: from `startFrame` up to but not including `endFrame`. kRingOK or
    /// kRingBoundsBusy, which leaves both as they were. For readers.
    [[nodiscard]] SInt32 GetTimeBounds(long long& startFrame, long long& endFrame) const;
    /// Publishes other bounds. False, and nothing has changed, where they are longer than the capacity or the end lies
    /// before the start. For the writer only.
    bool SetTimeBounds(long long startFrame, long long endFrame);
    /// Where [startFrame, endFrame) lies against the bounds. For readers.
    [[nodiscard]] SInt32 CheckTimeBounds(long long startFrame, long long endFrame) const;

private:
    static constexpr UInt32 kBoundsRingSize = 32;

    struct Bounds {
        long long start = 0, end = 0;
        UInt32 cuts = 0;

        SInt32 classify(long long requestStart, long long requestEnd) const;
    };
    struct BoundsRecord {
        std::atomic<long long> startFrame = 0, endFrame = 0;
        std::atomic<UInt32> stamp = 0; ///< the counter's value under which the record was published
        std::atomic<UInt32> cuts = 0;  ///< how often bounds were published that took back what was held

        Bounds load() const;
    };
    /// Where a range of frames lies in each channel's area.
    struct Runs {
        std::size_t offset; ///< of the first run
        std::size_t first;  ///< bytes from there on
        std::size_t second; ///< bytes from the area's beginning on
    };

    std::size_t byteOffset(long long frame) const;
    Runs runs(long long startFrame, std::size_t frames) const;
    UInt32 usedBuffers(const AudioBufferList& list) const;
    Bounds held() const;
    bool readBounds(Bounds& bounds) const;
    void makeRoom(Bounds& bounds, long long startFrame, long long endFrame);
    bool publish(const Bounds& bounds);
    void clear(const Runs& runs, UInt32 channel);
    void store(const AudioBuffer& source, const Runs& runs, UInt32 channel);
    void fetch(AudioBuffer& destination, const Runs& runs, UInt32 channel) const;

    qmx::HeapArray<std::byte*> mChannelData; ///< the block begins with a pointer to each channel's area
    SInt32 mChannelCount = 0;
    UInt32 mBytesPerFrame = 0;
    UInt32 mFrameCapacity = 0; ///< a power of two
    UInt32 mFrameMask = 0;     ///< takes a sample time to the place of its frame
    UInt32 mByteCapacity = 0;  ///< of one channel
    std::array<BoundsRecord, kBoundsRingSize> mBoundsRing;
    std::atomic<UInt32> mBoundsCounter = 0; ///< publications so far; its low bits are the place of the current record
};
