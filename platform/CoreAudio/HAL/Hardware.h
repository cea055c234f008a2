// SPDX-License-Identifier: MIT
// The core of the hardware layer: the tables of devices and streams. It connects a backend to the calls of
// AudioHardware.h.
#pragma once

#include "CoreAudio/HAL/Backend.h"
#include "CoreAudio/HAL/DeviceIO.h"
#include "CoreAudio/HAL/DeviceView.h"
#include "CoreAudio/HAL/Listeners.h"
#include "Foundation/Memory.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace qmx
{

/// One device as the core keeps it: alive until its backend reports it removed, and kept after that while a procedure
/// is registered.
struct HardwareDevice {
    AudioDeviceID id = kAudioDeviceUnknown;
    std::shared_ptr<BackendDevice> backend;
    std::shared_ptr<DeviceIO> io;
    DeviceView view;       // guarded by the tables' lock; its record is replaced, never changed
    bool isAlive = true;   // guarded by the tables' lock
    bool isListed = true;  // guarded by the tables' lock; see Hardware::devicesChanged
    std::mutex startMutex; // orders start and stop of the backend's I/O
    bool ioRuns = false;   // guarded by startMutex
};

/// The device and the place that a stream ID stands for.
struct FoundStream {
    DeviceView view;
    std::shared_ptr<BackendDevice> backend;
    StreamPlace place;
};

/// The IDs in 'dev#', and the number of changes of the list when they were read.
struct DeviceList {
    std::vector<AudioDeviceID> ids;
    std::uint64_t changes = 0;
};

class Hardware final : public HardwareSink
{
public:
    /// The only object; its first use chooses and starts the backend. Never destroyed.
    static Hardware& shared();
    /// See qmx::setAudioBackend.
    static OSStatus choose(AudioBackend backend);
    /// See qmx::audioBackendFailure.
    static std::string failure();

    Backend& backend() { return backend_; }
    Listeners& listeners() { return listeners_; }

    /// The start of each call: 0 if the backend lets it go on.
    OSStatus admit(HardwareOperation operation, UInt32 object, const PropertyAddress& address = {});
    /// Removes even if the backend makes the call fail: the caller may free what was registered afterwards.
    template <class Remove>
    OSStatus removeAnyway(HardwareOperation operation, UInt32 object, const PropertyAddress& address, Remove remove)
    {
        const OSStatus refusal = withinMemory(noErr, [&] { return admit(operation, object, address); });
        const OSStatus status = remove();
        return refusal ? refusal : status;
    }

    // --- For the platform's calls
    std::shared_ptr<HardwareDevice> device(AudioDeviceID id);
    /// The same, and also a device that is gone but has procedures.
    std::shared_ptr<HardwareDevice> deviceOrRemains(AudioDeviceID id);
    std::optional<DeviceView> view(AudioDeviceID id);
    std::optional<FoundStream> stream(AudioStreamID id);
    void forgetRemains(HardwareDevice& device);
    DeviceList devices();
    /// Notes that a caller has read all entries of `list`.
    void noteRead(const DeviceList& list);
    bool devicesChangedSinceRead();
    std::optional<AudioDeviceID> deviceForUID(const std::string& uid);
    DefaultDevices defaults();
    std::optional<VolumeControl> bootChime();

    /// Starts the backend's I/O for the first procedure; 0 if it runs already.
    OSStatus startDevice(const std::shared_ptr<HardwareDevice>& device);
    /// Stops the backend's I/O if no procedure runs any more.
    void stopDeviceIfIdle(const std::shared_ptr<HardwareDevice>& device);

    // --- For the backend
    AudioDeviceID makeID() override { return nextID_.fetch_add(1); }
    /// A change that removes and adds devices is announced as two. The added devices are in the tables at once, but in
    /// 'dev#' only after all listeners were called for the removed ones, so that no listener sees both.
    void devicesChanged(std::span<const AudioDeviceID> removed,
                        std::span<const std::pair<AudioDeviceID, NewDevice>> added,
                        const DefaultDevices& defaults) override;
    void waitForRemoved(std::span<const AudioDeviceID> removed) override;
    void deviceChanged(AudioDeviceID device, const DeviceDescription& description) override;
    void bootChimeChanged(const std::optional<VolumeControl>& volume) override;
    void announce(AudioDeviceID device, const PropertyAddress& address) override;
    void announceHardware(AudioHardwarePropertyID property) override;

private:
    explicit Hardware(Backend& backend) : backend_(backend) {}
    ~Hardware() override = default;
    std::shared_ptr<HardwareDevice> takeOut(AudioDeviceID id);
    void putIn(AudioDeviceID id, const NewDevice& newDevice, bool isListed);
    void list(std::span<const AudioDeviceID> newcomers);
    void end(const std::shared_ptr<HardwareDevice>& device);
    void numberStreams(DeviceView& view);
    void setRunning(HardwareDevice& device, bool runs);
    void announceChanges(const DeviceView& before, const DeviceView& after);

    Backend& backend_;
    Listeners& listeners_ = *new Listeners;
    std::atomic<AudioDeviceID> nextID_{256};
    std::mutex mutex_; // of the tables; with it held this class calls nothing but the listeners' queue
    std::vector<std::shared_ptr<HardwareDevice>> devices_;
    std::map<AudioDeviceID, std::shared_ptr<HardwareDevice>> remains_;
    DefaultDevices defaults_;
    std::optional<VolumeControl> bootChime_;
    std::uint64_t listChanges_ = 0;
    std::uint64_t listChangesRead_ = 0;
};

} // namespace qmx
