// SPDX-License-Identifier: MIT
// Stereo sound whose every sample names the frame at which it is played, so that what was recorded of it can be placed.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>

namespace qmx::test
{

/// Noise, so that it is also found in what a lossy coding leaves of it. Exact in 24 bits. Frames repeat after almost
/// three minutes at 48000 Hz.
struct TimedSound {
    static constexpr SInt64 period = 1 << 23;

    static Float32 sample(SInt64 frame, SInt64 channel)
    {
        UInt32 word = static_cast<UInt32>(frame + channel * period / 2) & mask;
        for (int round = 0; round < 2; ++round)
            word = ((word ^ word >> 12) * factor) & mask;
        return (static_cast<Float32>(word) - half) / half;
    }
    /// The frame, below the period, at which a sample is played; of any other, one that has another sample.
    static SInt64 frameOf(Float32 sample, SInt64 channel)
    {
        UInt32 word = static_cast<UInt32>(std::lround(sample * half + half)) & mask;
        for (int round = 0; round < 2; ++round) {
            word = (word * inverse) & mask;
            word ^= word >> 12;
        }
        return (word + channel * period / 2) % period;
    }
    /// The way from one frame to another, which may be in the next period.
    static SInt64 distance(SInt64 from, SInt64 to)
    {
        return ((to - from + period / 2) % period + period) % period - period / 2;
    }
    static void fill(std::span<Float32> stereo, SInt64 frame)
    {
        for (std::size_t i = 0; i < stereo.size(); ++i)
            stereo[i] = sample(frame + static_cast<SInt64>(i / 2), i % 2);
    }

private:
    static constexpr UInt32 mask = period - 1;
    static constexpr UInt32 factor = 0x2C1B3D, inverse = 0x551415; // of each other
    static_assert((factor * inverse & mask) == 1);
    static constexpr Float32 half = period / 2;
};

/// The state in which the sound was recorded without loss of bits.
struct TimedTake {
    SInt64 frames = 0;          ///< in the file
    SInt64 right = 0;           ///< of them, those of the sound
    SInt64 first = 0, last = 0; ///< frames of the sound that the file starts and ends with
    SInt64 longest = 0;         ///< run without a break
    SInt64 missing = 0;         ///< frames of the sound that the file passes over
    SInt64 breaks = 0;          ///< places where the sound does not go on: skipped, repeated, silent
    SInt64 changed = 0; ///< samples that are neither silence nor of two or more of the sound that follow each other

    void add(std::span<const Float32> stereo)
    {
        for (std::size_t i = 0; i + 1 < stereo.size(); i += 2)
            add(stereo[i], stereo[i + 1]);
    }

private:
    void add(Float32 left, Float32 fellow)
    {
        const SInt64 place = frames++, frame = TimedSound::frameOf(left, 0);
        if (left != TimedSound::sample(frame, 0) ||
            fellow != TimedSound::sample(frame, 1)) { // silent, or the channels are of different cycles
            changed += strays_[0].add(left, 0) + strays_[1].add(fellow, 1);
            run_ = 0;
            return;
        }
        const SInt64 skipped = right == 0 ? 0 : TimedSound::distance(place + offset_, frame);
        breaks += right > 0 && (skipped != 0 || run_ == 0) ? 1 : 0;
        missing += skipped;
        run_ = skipped == 0 ? run_ + 1 : 1;
        offset_ = frame - place;
        first = right == 0 ? frame : first;
        last = frame;
        longest = std::max(longest, run_);
        ++right;
    }
    /// What a channel has where it is not of the same frame as the other: after a stall, parts of older cycles.
    struct Stray {
        SInt64 frame = -2;
        bool isAlone = false; ///< the latest is counted as changed until the next follows it

        SInt64 add(Float32 sample, SInt64 channel)
        {
            const SInt64 latest = std::exchange(frame, TimedSound::frameOf(sample, channel));
            const bool isOfSound = sample == TimedSound::sample(frame, channel);
            const bool follows = isOfSound && frame == (latest + 1) % TimedSound::period;
            const bool wasAlone = std::exchange(isAlone, sample != 0 && !follows);
            return follows ? (wasAlone ? -1 : 0) : (sample != 0 ? 1 : 0);
        }
    };
    Stray strays_[2];
    SInt64 offset_ = 0; ///< from frames of the file to those of the sound
    SInt64 run_ = 0;    ///< frames since the last break
};

} // namespace qmx::test
