// SPDX-License-Identifier: MIT
// One run of a device's I/O, from start to stop: a filter in the server's graph, which this class links to the device's
// ports.
#pragma once

#include "CoreAudio/HAL/DeviceIO.h"
#include "CoreAudio/HAL/PipeWire/Connection.h"
#include "Foundation/Threads/ConditionLock.h"

#include <atomic>
#include <memory>
#include <pipewire/filter.h>
#include <vector>

namespace qmx::pipewire
{

/// The latest reading of a device's clock.
struct ClockReading {
    UInt64 hostTime = 0;
    Float64 sampleTime = 0;
    Float64 rate = 0;
};

/// The parameters of a run.
struct RunRequest {
    std::string name; ///< of the device; other programs show it
    /// One port for each channel; 0 for a channel that the device no longer has.
    std::vector<std::uint32_t> capturePorts, playbackPorts;
    UInt32 inputLatency = 0, outputLatency = 0; ///< frames
    UInt32 rate = 0;
    bool forcesRate = false; ///< a program chose the rate
    UInt32 frames = 0;
    UInt32 mostFrames = 0;               ///< maximum frames of a cycle
    std::optional<ClockReading> resumed; ///< of the run that this one replaces
};

/// The clock of the latest cycle, written by one thread in real time and read by any thread without a lock.
class RunClock
{
public:
    void write(const ClockReading& reading) noexcept;
    /// The rate is 0 before the first cycle.
    ClockReading read() const noexcept;

private:
    std::atomic<UInt64> version_{0}; ///< odd while being written
    std::atomic<UInt64> hostTime_{0};
    std::atomic<Float64> sampleTime_{0}, rate_{0};
};

/// What the runs of one device share.
struct RunSignals {
    ConditionLock cycle; ///< held during a cycle, so that a closed run and its successor never overlap
    std::atomic<bool> isOverloaded{false}; ///< a cycle was missed or ended too late
};

/// Each run has its own context, and so its own thread for cycles: a slow procedure delays no other device.
class FilterRun
{
public:
    FilterRun(Connection& connection, std::shared_ptr<DeviceIO> io, std::shared_ptr<RunSignals> signals,
              std::function<void()> changed);
    /// Waits for the cycle in flight, then takes the connection's lock. Not on a thread that a procedure may wait for.
    ~FilterRun();
    FilterRun(const FilterRun&) = delete;
    FilterRun& operator=(const FilterRun&) = delete;

    /// Waits until the server runs cycles; 'what' if it does not, or runs them at another rate than requested.
    OSStatus start(const RunRequest& request);
    /// Runs no further procedure. Does not wait for the cycle in flight.
    void close() { isOpen_ = false; }
    /// Asks the server for another cycle size or rate. With the connection's lock held.
    void ask(const RunRequest& request);
    /// Whether the ports in `request` are linked and the server has removed no link. With the connection's lock held.
    bool serves(const RunRequest& request) const;

    const std::shared_ptr<const RunClock>& clock() const { return readableClock_; }

private:
    /// One direction: a port for each channel, and their frames interleaved.
    struct Side {
        std::vector<void*> ports;
        std::vector<float*> buffers;
        std::vector<Float32> frames;
        std::vector<IOBlock> blocks;
        bool isLinked() const;
    };
    struct Link;
    static void process(void* self, spa_io_position* position);
    static void stateChanged(void* self, pw_filter_state old, pw_filter_state state, const char* error);
    static void cycleEvent(void* self, std::uint64_t count);
    static void cycleEnded(void* self);

    OSStatus startLocked(const RunRequest& request);
    bool watchCycles();
    bool makeFilter(const RunRequest& request);
    bool addPorts(Side& side, bool isInput, std::size_t channels, UInt32 mostFrames);
    bool portsAreThere(const RunRequest& request) const;
    bool makeLinks(const RunRequest& request);
    bool makeLink(std::uint32_t from, std::uint32_t to);
    void takeDown();

    bool runCycle(const spa_io_clock& clock) noexcept;
    bool keepTime(const spa_io_clock& clock) noexcept;
    void beginTime(const spa_io_clock& clock) noexcept;
    bool isRepeated(const spa_io_clock& clock) const noexcept;
    void runProcedures(UInt32 frames, const spa_io_clock& clock) noexcept;
    void writeOutput(UInt32 frames) noexcept;

    Connection& connection_;
    const std::shared_ptr<DeviceIO> io_;
    const std::shared_ptr<RunSignals> signals_;
    const std::function<void()> changed_; ///< called on the connection's thread
    // guarded by the connection's lock
    pw_context* context_ = nullptr;
    pw_core* core_ = nullptr;
    pw_filter* filter_ = nullptr;
    spa_hook filterHook_{}, loopHook_{};
    spa_source* event_ = nullptr; ///< lets a cycle wake the connection's thread
    std::vector<std::unique_ptr<Link>> links_;
    std::vector<std::uint32_t> capturePorts_, playbackPorts_; ///< the device's
    bool isBroken_ = false;
    // shared
    std::atomic<bool> isOpen_{false};
    std::atomic<bool> isSettled_{false}; ///< the first cycles have passed
    const std::shared_ptr<RunClock> clock_ = std::make_shared<RunClock>();
    const std::shared_ptr<const RunClock> readableClock_ = clock_;
    // the cycles' thread's once the filter runs
    Side input_, output_;
    UInt32 mostFrames_ = 0;
    UInt32 inputLatency_ = 0, outputLatency_ = 0;
    UInt32 lead_ = 0; ///< frames between a cycle's now and its sound, on either side
    UInt32 clockID_ = 0;
    UInt32 rate_ = 0;
    UInt64 position_ = 0;    ///< the latest cycle's, by the clock
    UInt64 expected_ = 0;    ///< the next cycle's
    SInt64 clockOffset_ = 0; ///< from the clock's positions to the device's sample times
    UInt32 cyclesSeen_ = 0;
    UInt64 due_ = 0; ///< when the cycle must have been handed to the server; 0 once it has been
    std::optional<ClockReading> resumed_;
};

} // namespace qmx::pipewire
