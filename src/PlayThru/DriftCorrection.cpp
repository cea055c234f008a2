// SPDX-License-Identifier: MIT
#include "PlayThru/DriftCorrection.h"

#include <algorithm>
#include <cmath>

namespace qmx
{
namespace
{

// Critically damped: a difference of 400 ppm that begins at once moves the distance by half a millisecond.
constexpr Float64 proportional = 0.6; // per second
constexpr Float64 integral = proportional * proportional / 4;
constexpr Float64 settling = 1; // seconds
constexpr Float64 nanoseconds = 1e9;

} // namespace

/// Begins anew after a restart.
void DriftCorrection::renew(Side& side) const
{
    const UInt32 epoch = epoch_.load();
    if (side.epoch == epoch)
        return;
    side.epoch = epoch;
    side.clock.restart(rate_.load());
}

void DriftCorrection::addInput(Float64 frame, UInt64 hostTime)
{
    renew(input_);
    input_.clock.add(frame, hostTime);
    const ClockFilter::Stamp& stamp = input_.clock.stamp();
    const UInt32 count = published_.load(std::memory_order_relaxed);
    published_.store(count + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    stamp_[0].store(stamp.frame, std::memory_order_relaxed);
    stamp_[1].store(stamp.host, std::memory_order_relaxed);
    stamp_[2].store(stamp.period, std::memory_order_relaxed);
    stampEpoch_.store(input_.epoch, std::memory_order_relaxed);
    published_.store(count + 2, std::memory_order_release);
}

/// False where there is none of this epoch, or it is being changed: the next call finds it.
bool DriftCorrection::readInput(ClockFilter::Stamp& stamp) const
{
    const UInt32 count = published_.load(std::memory_order_acquire);
    stamp = {stamp_[0].load(std::memory_order_relaxed), stamp_[1].load(std::memory_order_relaxed),
             stamp_[2].load(std::memory_order_relaxed)};
    const UInt32 epoch = stampEpoch_.load(std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_acquire);
    return count % 2 == 0 && published_.load(std::memory_order_relaxed) == count && epoch == output_.epoch;
}

Float64 DriftCorrection::factorAt(Float64 frame, UInt64 hostTime)
{
    const UInt32 lastEpoch = output_.epoch;
    renew(output_);
    if (output_.epoch != lastEpoch) {
        hasTarget_ = false;
        sum_ = correction_ = 0;
        lastAsked_ = hostTime; // this may be in the middle of a cycle: the next one is the first
    }
    if (hostTime == lastAsked_)
        return 1 + correction_; // more frames for the same cycle
    lastAsked_ = hostTime;
    output_.clock.add(frame, hostTime);
    ClockFilter::Stamp input;
    if (!readInput(input))
        return 1 + correction_;

    const ClockFilter::Stamp& output = output_.clock.stamp();
    const Float64 distance = (input.frameAt(output.host) - output.frame) * input.period / nanoseconds;
    if (!hasTarget_) {
        hasTarget_ = true;
        target_ = distance;
        lastHost_ = output.host;
        age_ = 0;
        return 1;
    }
    const Float64 seconds = std::clamp((output.host - lastHost_) / nanoseconds, 0.0, 1.0);
    lastHost_ = output.host;
    if (age_ < settling) { // the mean of the first distances, for each of them jitters
        age_ += seconds;
        target_ += (distance - target_) * (age_ > 0 ? seconds / age_ : 0);
        return 1;
    }
    const Float64 error = distance - target_;
    sum_ = std::clamp(sum_ + integral * error * seconds, -largest, largest);
    const Float64 wanted = std::clamp(sum_ + proportional * error, -largest, largest);
    const Float64 step = fastestChange * seconds;
    correction_ = std::clamp(wanted, correction_ - step, correction_ + step);
    return 1 + correction_;
}

} // namespace qmx
