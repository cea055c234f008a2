// SPDX-License-Identifier: MIT
// One run of an output unit on a device, from a start to the next stop.
#pragma once

#include "AudioUnit/Units/CycleClient.h"
#include "AudioUnit/Units/SliceBuffers.h"
#include "Foundation/Threads/Publication.h"
#include "Foundation/Threads/Retirement.h"

#include <atomic>
#include <memory>
#include <optional>

namespace qmx
{

/// A registration of the device's I/O, together with everything that its cycles use. It keeps the client alive.
/// Destroying it waits for the cycle in flight; threads that may not wait retire it instead.
class DeviceRun final : public Retirable
{
public:
    /// The frames between those of an earlier run and its own are told as lost.
    DeviceRun(const UsedDevice& device, std::shared_ptr<CycleClient> client, UInt32 maximumFrames,
              const RunEnds& earlier);
    ~DeviceRun() override;

    /// Registers with the device; cycles come only after `start`.
    OSStatus enroll();
    /// Starts the cycles. Static because a stop on another thread may destroy the run meanwhile; then it fails.
    static OSStatus start(AudioDeviceID device, DeviceRun* run);
    /// No later slice calls the client. The run stays a reader of `stops` until it is destroyed. Real-time safe.
    void end(const Publication& stops) noexcept;

private:
    static OSStatus cycle(AudioDeviceID device, const AudioTimeStamp* now, const AudioBufferList* input,
                          const AudioTimeStamp* inputTime, AudioBufferList* output, const AudioTimeStamp* outputTime,
                          void* self);
    UInt32 framesLostBefore(const AudioTimeStamp& time, std::optional<Float64> expected, UInt64 earlierEnd) const;
    void capture(const AudioBufferList& input, const AudioTimeStamp& time, UInt32 first, UInt32 frames);
    void render(AudioBufferList& output, const AudioTimeStamp& time, UInt32 first, UInt32 frames);

    const UsedDevice device_;
    const UInt32 maximumFrames_;
    const std::shared_ptr<CycleClient> client_; ///< released last: it may own the publication of stops
    std::optional<Publication::Reader> stop_;
    // of the directions that are used
    std::optional<SliceBuffers> captured_, rendered_;
    const RunEnds earlier_;
    std::optional<Float64> nextInputTime_, nextOutputTime_; ///< none before the first cycle
    std::atomic<bool> hasEnded_ = false;
};

} // namespace qmx
