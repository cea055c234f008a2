// SPDX-License-Identifier: MIT
// One run of a virtual device's I/O, from start to stop: its buffers and its place in time.
#pragma once

#include "CoreAudio/HAL/DeviceIO.h"
#include "CoreAudio/HAL/Virtual/LoopbackRing.h"
#include "CoreAudio/HAL/Virtual/Timeline.h"
#include "CoreAudio/HAL/Virtual/VirtualClock.h"

#include <memory>
#include <vector>

namespace qmx
{

/// The frames that an output played, up to a maximum.
struct VirtualCapture {
    VirtualCapture(std::size_t maximumFrames, UInt32 channelCount)
        : channels(channelCount), samples(maximumFrames * channelCount)
    {
    }
    const UInt32 channels;
    std::vector<Float32> samples;
    std::atomic<std::size_t> used{0}; ///< samples
    void add(const Float32* from, std::size_t count);
};

/// Everything that one cycle needs, copied before it starts.
struct VirtualCycle {
    UInt32 frames = 0;
    Float64 now = 0; ///< sample time, as the two below
    Float64 inputSample = 0;
    Float64 outputSample = 0;
    VirtualClock clock;
    Float64 nominalRate = 0;
    std::vector<Float32> inputGains, outputGains;
    std::shared_ptr<VirtualInput> input;
    std::shared_ptr<VirtualOutput> output;
    std::shared_ptr<VirtualCapture> capture;
    std::shared_ptr<LoopbackRing> played; ///< the output's frames, for inputs looped to it
    std::shared_ptr<LoopbackRing> looped; ///< the frames that this input is looped to; null: none
    VirtualClock loopedClock;
};

class VirtualRun final : public Timeline::Seat
{
public:
    VirtualRun(std::shared_ptr<DeviceIO> io, const DeviceDescription& description);

    /// Fills the input, runs the procedures, and passes the output on. In real time.
    void runCycle(const VirtualCycle& cycle);
    /// Makes room for cycles of `frames` frames. Not in real time.
    void makeRoom(UInt32 frames);

    // guarded by the timeline's lock
    Float64 nextNow = 0;                  ///< sample time of the next cycle
    Float64 nextOutput = 0;               ///< its first output frame
    UInt32 nextFrames = 0;                ///< its number of frames
    bool isFinished = false;              ///< its thread runs no further cycle
    std::shared_ptr<VirtualRun> previous; ///< its last cycle has to end first

private:
    /// All channels of one direction together, and each stream by itself.
    struct Side {
        explicit Side(const SectionDescription& section);
        void makeRoom(UInt32 frames);
        void split(UInt32 frames);
        void join(UInt32 frames);
        void applyGains(const std::vector<Float32>& gains, UInt32 frames);
        UInt32 channels = 0;
        std::vector<Float32> all;
        std::vector<std::vector<Float32>> streams;
        std::vector<IOBlock> blocks;
    };
    void fillInput(const VirtualCycle& cycle);
    void readLoop(const VirtualCycle& cycle);
    void passOutputOn(const VirtualCycle& cycle);

    const std::shared_ptr<DeviceIO> io_;
    UInt32 room_ = 0;
    Side input_, output_;
};

} // namespace qmx
