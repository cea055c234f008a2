// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Devices/QMXCoreAudioIOSubscriber.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/HeapBlock.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>
#include <string>

class QMXAudioDevice;
class QMXVUMeterData;

/// Sent by the provider.
QMX_EXPORT extern const char* const QMXVUMeterDataProviderDidStartNotification;
QMX_EXPORT extern const char* const QMXVUMeterDataProviderDidStopNotification;
/// Sent by the QMXVUMeterData that holds the new levels. At most one waits for the main thread; levels that come
/// meanwhile are not announced separately.
QMX_EXPORT extern const char* const QMXVUMeterDataProviderNewDataIsAvailableNotification;

/// The level meter of a device's input: the largest positive sample of each of the first 8 channels of the first input
/// stream in one cycle, every n-th cycle. A device's output meter also meters its input, as intended. While the meter
/// runs, it and the device keep each other alive. Main thread unless noted; notifications are posted there. Meters come
/// from the factories only: do not derive from this class.
class QMX_EXPORT QMXVUMeterDataProvider : public qmx::Object,
                                          public QMXCoreAudioIOSubscriber,
                                          public std::enable_shared_from_this<QMXVUMeterDataProvider>
{
public:
    /// The first word of an object's description().
    static std::string classDescription() { return "QMXVUMeterDataProvider"; }

    /// Idle, without a device.
    static std::shared_ptr<QMXVUMeterDataProvider> init();
    /// Idle, on a device that the meter keeps alive.
    static std::shared_ptr<QMXVUMeterDataProvider> initWithAudioDevice(std::shared_ptr<QMXAudioDevice> device);
    /// The same for a device that owns the meter: while idle the meter holds the device weakly.
    static std::shared_ptr<QMXVUMeterDataProvider> initForOwner(const std::shared_ptr<QMXAudioDevice>& device);

    /// Changes the device; a running meter stops, then starts on the new one. Null for none.
    virtual void setAudioDevice(std::shared_ptr<QMXAudioDevice> device) = 0;
    /// Null if none is set or it is gone.
    virtual std::shared_ptr<QMXAudioDevice> audioDevice() const = 0;

    /// The status of what failed in the last start(), stop() or setAudioDevice(); 0 if nothing did. A meter whose
    /// device did not start provides all the same, as soon as the device runs. Any thread.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people that names the device; empty if nothing failed. Any thread.
    virtual std::string lastError() const = 0;

    /// Starts the device and meters it. Does nothing when running already or without a device.
    virtual void start() = 0;
    /// Stops both; returns when the cycle in flight has ended. Does nothing when idle.
    virtual void stop() = 0;
    /// Levels are published every `interval` cycles; 0 counts as 1. The count of cycles goes on. Any thread.
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

    /// Posts the notification that `levels` names, with the levels as its sender.
    void threadCallback(const std::shared_ptr<QMXVUMeterData>& levels);
    /// Posts a notification from the provider.
    void startStopCallback(const std::string& notificationName);

private:
    class Implementation;
    QMXVUMeterDataProvider() = default;
};
