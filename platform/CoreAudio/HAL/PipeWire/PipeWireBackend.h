// SPDX-License-Identifier: MIT
// The sound server's devices as a backend. One thread, the housekeeper, reports the differences between the server's
// state and the last report, ends runs, and looks for the server while there is none.
#pragma once

#include "CoreAudio/HAL/PipeWire/PipeWireDevice.h"
#include "Foundation/Threads/LastingThread.h"

#include <condition_variable>

namespace qmx::pipewire
{

class PipeWireBackend final : public Backend, private Housekeeping
{
public:
    /// The only object; never destroyed.
    static PipeWireBackend& shared();

    void begin(HardwareSink& sink) override;
    OSStatus setDefaultDevice(AudioHardwarePropertyID which, AudioDeviceID device) override;
    OSStatus setBootChimeVolume(Float32 scalar) override;
    UInt64 hostTime() override;
    OSStatus admit(HardwareOperation operation, UInt32 object, const PropertyAddress& address) override;
    std::string failure() override;

private:
    struct Reported {
        AudioDeviceID id = kAudioDeviceUnknown;
        std::string uid;
        std::shared_ptr<PipeWireDevice> device;
    };
    struct Present {
        std::vector<FoundDevice> devices;
        std::set<std::string> keys;              ///< of these devices and of those without ports for now
        std::string defaultInput, defaultOutput; ///< UIDs
    };

    PipeWireBackend();
    ~PipeWireBackend() override = default;
    void wake() override;
    void dispose(std::shared_ptr<FilterRun> run) override;

    void keepHouse();
    void waitForWork();
    bool keepConnected();
    bool keepRunning();
    void report();
    std::optional<Present> present();
    std::vector<AudioDeviceID> dropAbsent(const Present& present);
    std::vector<std::pair<AudioDeviceID, NewDevice>> addNew(const Present& present);
    void reportDevice(const FoundDevice& found);
    AudioDeviceID idOf(const std::string& uid);
    std::vector<Reported> reported();

    HardwareSink* sink_ = nullptr;
    Connection connection_;
    std::map<std::string, RequestedSettings> requested_; // by UID; guarded by the connection's lock
    std::mutex reportedMutex_;
    std::map<std::string, Reported> reported_; // by key; guarded by reportedMutex_, changed by the housekeeper only
    std::mutex workMutex_;                     // guards the members below; nothing is called with it held
    std::condition_variable workCame_;
    bool hasWork_ = false;
    bool looksAgain_ = false; ///< whether the housekeeper looks again soon without being woken
    std::vector<std::shared_ptr<FilterRun>> disposed_;
    LastingThread housekeeper_{"qmx-pw-keeper", [this] { keepHouse(); }};
};

} // namespace qmx::pipewire
