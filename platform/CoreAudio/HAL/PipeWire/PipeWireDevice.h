// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudio/HAL/Backend.h"
#include "CoreAudio/HAL/PipeWire/Descriptions.h"
#include "CoreAudio/HAL/PipeWire/FilterRun.h"

#include <mutex>

namespace qmx::pipewire
{

/// What programs asked of a device; kept under its UID while it is away.
struct RequestedSettings {
    std::optional<UInt32> rate;
    std::optional<UInt32> frames;
};

/// What devices need of the backend.
class Housekeeping
{
public:
    virtual ~Housekeeping() = default;
    /// Has the server's state looked at and reported soon. Any thread but the cycles'.
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
    /// Puts what was requested, and what runs, in place of the server's usual values. With the connection's lock held.
    void complete(DeviceDescription& description) const;
    /// Begins a new run where the device has other ports than the present one is linked to, or the server took links
    /// away; false when that is to be tried again.
    bool mend();
    /// The directions (input: true) whose cycles were missed or late since the last call, also before a stop.
    std::vector<bool> takeOverload();

private:
    OSStatus setRate(Float64 rate);
    OSStatus setFrames(UInt32 frames);
    OSStatus setLevels(bool isInput, const std::function<void(Levels&, UInt32 channels)>& edit);
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
    std::shared_ptr<FilterRun> run_;        ///< none while it is being mended, too
    std::shared_ptr<DeviceIO> io_;          ///< while it shall run
    UInt32 channels_[2] = {};               ///< output and input, as they were announced when it started
    UInt64 startCount_ = 0;                 ///< starts and stops
    std::mutex clockMutex_;                 // nothing is waited for with it held
    std::shared_ptr<const RunClock> clock_; // of the latest run until the stop; changed with both locks held
};

} // namespace qmx::pipewire
