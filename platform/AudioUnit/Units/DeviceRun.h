// SPDX-License-Identifier: MIT
// One run of an output unit on a device, from a start to the stop that follows.
#pragma once

#include "AudioUnit/Units/OutputHardware.h"
#include "AudioUnit/Units/SliceBuffers.h"
#include "Foundation/Threads/Publication.h"
#include "Foundation/Threads/Retirement.h"

#include <atomic>
#include <memory>
#include <optional>

namespace qmx
{

/// A registration of the device's I/O, together with all that its cycles use. It keeps the client; destroying it waits
/// for the cycle in flight, so that it is retired where nobody may wait.
class DeviceRun final : public Retirable
{
public:
    DeviceRun(const OutputDevice& device, std::shared_ptr<OutputClient> client, UInt32 maximumFrames);
    ~DeviceRun() override;

    /// Not yet with cycles.
    OSStatus enroll();
    /// Cycles begin. Static, because a stop elsewhere may end and destroy the run meanwhile: then it fails.
    static OSStatus start(AudioDeviceID device, DeviceRun* run);
    /// The client is called no more. Until the run is destroyed it is inside `stops`. Real-time safe.
    void end(const Publication& stops) noexcept;

private:
    static OSStatus cycle(AudioDeviceID device, const AudioTimeStamp* now, const AudioBufferList* input,
                          const AudioTimeStamp* inputTime, AudioBufferList* output, const AudioTimeStamp* outputTime,
                          void* self);
    void render(AudioBufferList& output, const AudioTimeStamp& time);

    const OutputDevice device_;
    const std::shared_ptr<OutputClient> client_; ///< let go last: it may own what the stop is inside
    std::optional<Publication::Reader> stop_;
    SliceBuffers slice_;
    std::atomic<bool> hasEnded_ = false;
};

} // namespace qmx
