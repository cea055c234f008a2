// SPDX-License-Identifier: MIT
#pragma once

#include "Devices/QMXCoreAudioIOSubscriber.h"
#include "Foundation/Export.h"
#include "Foundation/HeapBlock.h"
#include "Foundation/Object.h"

#include <memory>
#include <string>

class QMXAudioDevice;
class QMXVUMeterData;

/// Sent by the provider.
QMX_EXPORT extern const char* const QMXVUMeterDataProviderDidStartNotification;
QMX_EXPORT extern const char* const QMXVUMeterDataProviderDidStopNotification;
/// Sent by the QMXVUMeterData that holds the new levels. One waits for the main thread at most; those that come
/// meanwhile are not posted by themselves.
QMX_EXPORT extern const char* const QMXVUMeterDataProviderNewDataIsAvailableNotification;

/// The level meter of a device's input: the largest positive sample of each of the first 8 channels of the first input
/// stream in one cycle, every n-th cycle. A device's output meter, too, meters its input, as intended. While it
/// provides it keeps the device alive, and the device keeps it. Main thread, where nothing else is said; notifications
/// come there. The factories alone make meters: nothing else derives from this class.
class QMX_EXPORT QMXVUMeterDataProvider : public qmx::Object,
                                          public QMXCoreAudioIOSubscriber,
                                          public std::enable_shared_from_this<QMXVUMeterDataProvider>
{
public:
    /// What description() of an object begins with.
    static std::string classDescription() { return "QMXVUMeterDataProvider"; }

    /// Idle, without a device.
    static std::shared_ptr<QMXVUMeterDataProvider> init();
    /// Idle, for a device that it keeps.
    static std::shared_ptr<QMXVUMeterDataProvider> initWithAudioDevice(std::shared_ptr<QMXAudioDevice> device);
    /// The same for a device that keeps the meter itself: while idle the device is held weakly.
    static std::shared_ptr<QMXVUMeterDataProvider> initForOwner(const std::shared_ptr<QMXAudioDevice>& device);

    /// Turns to another device; when it provides, it stops and starts again there. Null for none.
    virtual void setAudioDevice(std::shared_ptr<QMXAudioDevice> device) = 0;
    /// Null where there is none, or it is gone.
    virtual std::shared_ptr<QMXAudioDevice> audioDevice() const = 0;

    /// The status of what failed in the last start(), stop() or setAudioDevice(); 0 when nothing did. A meter whose
    /// device did not start provides all the same, as soon as the device runs. Any thread.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people that names the device, empty when nothing failed. Any thread.
    virtual std::string lastError() const = 0;

    /// Starts the device and meters it. Does nothing when it provides already, and without a device.
    virtual void start() = 0;
    /// Ends that; the cycle in flight has ended then. Does nothing when idle.
    virtual void stop() = 0;
    /// Every how many cycles levels are published; 0 counts as 1. The count of cycles goes on. Any thread.
    virtual void setNotificationInterval(unsigned long interval) = 0;

    /// The peaks of `length` bytes of interleaved samples, one Float32 per channel; null when there is no memory. Any
    /// thread but the real-time ones.
    static qmx::HeapBlock findMaxValues_numChannels_length(const Float32* samples, unsigned long channels,
                                                           unsigned long length);

    /// Meters a cycle. I/O threads. Always 0.
    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& device, const AudioTimeStamp* inNow, const AudioBufferList* inInputData,
        const AudioTimeStamp* inInputTime, AudioBufferList* outOutputData, const AudioTimeStamp* inOutputTime,
        QMXAudioDevice& inClientData) override = 0;

    /// Posts the notification that the levels name, from them.
    void threadCallback(const std::shared_ptr<QMXVUMeterData>& levels);
    /// Posts a notification from the provider.
    void startStopCallback(const std::string& notificationName);

private:
    class Implementation;
    QMXVUMeterDataProvider() = default;
};
