// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudio/HAL/Backend.h"
#include "CoreAudio/HAL/PipeWire/Descriptions.h"
#include "CoreAudio/HAL/PipeWire/FilterRun.h"

#include <mutex>

namespace qmx::pipewire
{

/// Settings that programs requested of a device; kept under its UID while it is unplugged.
struct RequestedSettings {
    std::optional<UInt32> rate;
    std::optional<UInt32> frames;
};

/// What devices need from the backend.
class Housekeeping
{
public:
    virtual ~Housekeeping() = default;
    /// Makes the housekeeper look at the server's state and report it soon. Any thread but the cycles'.
    virtual void wake() = 0;
    /// Ends a run, on a thread that no procedure waits for.
    virtual void dispose(std::shared_ptr<FilterRun> run) = 0;
};

class PipeWireDevice final : public BackendDevice
{
public:
    PipeWireDevice(Connection& connection, Housekeeping& housekeeping, std::string key, RequestedSettings& requested);

    OSStatus perform(const DeviceRequest& request) override;
    OSStatus startIO(const std::shared_ptr<DeviceIO>& io, const DeviceDescription& description) override;
    void stopIO() override;
    OSStatus currentTime(AudioTimeStamp& time) override;

    // --- For the housekeeper
    /// Replaces the server's usual values with the requested and the running ones. With the connection's lock held.
    void complete(DeviceDescription& description) const;
    /// Starts a new run if the device's ports differ from those that the current run is linked to, or if the server
    /// removed links; false if that failed and has to be tried again.
    bool mend();
    /// The directions (input: true) whose cycles were missed or late since the last call, also before a stop.
    std::vector<bool> takeOverload();

private:
    OSStatus setRate(Float64 rate);
    OSStatus setFrames(UInt32 frames);
    OSStatus setLevels(bool isInput, UInt32 channel, const std::function<void(Levels&, UInt32 channels)>& edit);
    OSStatus setSource(bool isInput, UInt32 id);
    OSStatus setFormat(const SetPhysicalFormat& request);
    std::optional<FoundDevice> find() const;
    Float64 rateFor(const DeviceDescription& description) const;
    std::optional<RunRequest> runRequest() const;
    void askRun();
    void take(std::shared_ptr<FilterRun> run);

    Connection& connection_;
    Housekeeping& housekeeping_;
    const std::string key_;
    const std::shared_ptr<RunSignals> signals_ = std::make_shared<RunSignals>();
    // guarded by the connection's lock
    RequestedSettings& requested_;
    std::shared_ptr<FilterRun> run_;        ///< also null while mend() replaces it
    std::shared_ptr<DeviceIO> io_;          ///< from start to stop, otherwise null
    UInt32 channels_[2] = {};               ///< output and input, as announced at the start
    UInt64 startCount_ = 0;                 ///< counts starts and stops
    std::mutex clockMutex_;                 // nothing is waited for with it held
    std::shared_ptr<const RunClock> clock_; // of the latest run until the stop; changed with both locks held
};

} // namespace qmx::pipewire
