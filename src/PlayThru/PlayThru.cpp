// SPDX-License-Identifier: MIT
#include "PlayThru/PlayThru.h"

#include "Foundation/Memory.h"
#include "PlayThru/ComplexPlayThru.h"

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>

namespace
{

struct Process {
    std::mutex mutex;
    std::unique_ptr<ComplexPlayThru> engine;
    bool exitsOnFailure = false;
    OSStatus initStatus = noErr; ///< of an InitPlayThru() that failed
    std::string initError;
};

/// Never destroyed: the devices' threads may outlive what has a static lifetime.
Process& process()
{
    alignas(Process) static std::byte memory[sizeof(Process)];
    static auto* const shared = new (memory) Process;
    return *shared;
}

/// What `work` gives for the engine; 0 without one.
template <class Work> auto withEngine(Work work) -> decltype(work(std::declval<ComplexPlayThru&>()))
{
    const std::scoped_lock lock(process().mutex);
    return process().engine ? work(*process().engine) : decltype(work(*process().engine)){};
}

} // namespace

OSStatus InitPlayThru(unsigned long inputDevice, unsigned long outputDevice)
{
    OSStatus status = noErr;
    bool exits = false;
    {
        Process& shared = process();
        const std::scoped_lock lock(shared.mutex);
        shared.engine.reset();
        shared.initError.clear();
        shared.engine = ComplexPlayThru::make(inputDevice, outputDevice, shared.initStatus, &shared.initError);
        status = shared.initStatus;
        exits = shared.exitsOnFailure;
    }
    if (status != noErr && exits)
        std::exit(status); // NOLINT(concurrency-mt-unsafe)
    return status;
}

OSStatus StartPlayThru()
{
    return withEngine([](ComplexPlayThru& engine) { return engine.Start(); });
}

OSStatus StopPlayThru()
{
    return withEngine([](ComplexPlayThru& engine) { return engine.Stop(); });
}

bool PlayThruIsRunning()
{
    return withEngine([](const ComplexPlayThru& engine) { return engine.IsRunning(); });
}

OSStatus SetPlayThru(bool runs)
{
    return runs ? StartPlayThru() : StopPlayThru();
}

OSStatus SetInputDeviceAsCurrentForPlayThru(unsigned long device)
{
    return withEngine([device](ComplexPlayThru& engine) { return engine.SetInputDeviceAsCurrent(device); });
}

OSStatus SetOutputDeviceAsCurrentForPlayThru(unsigned long device)
{
    return withEngine([device](ComplexPlayThru& engine) { return engine.SetOutputDeviceAsCurrent(device); });
}

OSStatus SetVolumeForPlayThru(float volume)
{
    return withEngine([volume](ComplexPlayThru& engine) { return engine.SetVolume(volume); });
}

OSStatus GetVolumeForPlayThru(float* volume)
{
    return withEngine([volume](const ComplexPlayThru& engine) { return engine.GetVolume(volume); });
}

void SetExitsOnFailureForPlayThru(bool exits)
{
    const std::scoped_lock lock(process().mutex);
    process().exitsOnFailure = exits;
}

OSStatus SetDriftCorrectionForPlayThru(bool isOn)
{
    return withEngine([isOn](ComplexPlayThru& engine) {
        engine.SetDriftCorrection(isOn);
        return OSStatus{noErr};
    });
}

OSStatus GetLatencyForPlayThru(double* frames)
{
    return withEngine([frames](const ComplexPlayThru& engine) { return engine.GetLatency(frames); });
}

OSStatus GetRefusedFetchesForPlayThru(unsigned long* fetches)
{
    return withEngine([fetches](const ComplexPlayThru& engine) {
        *fetches = engine.GetRefusedFetches();
        return OSStatus{noErr};
    });
}

OSStatus GetRateForPlayThru(float* rate)
{
    return withEngine([rate](const ComplexPlayThru& engine) {
        *rate = engine.GetRate();
        return OSStatus{noErr};
    });
}

OSStatus LastStatusForPlayThru()
{
    const std::scoped_lock lock(process().mutex);
    return process().engine ? process().engine->lastStatus() : process().initStatus;
}

std::string LastErrorForPlayThru()
{
    const std::scoped_lock lock(process().mutex);
    return qmx::withinMemory(std::string(),
                             [] { return process().engine ? process().engine->lastError() : process().initError; });
}
