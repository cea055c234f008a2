// SPDX-License-Identifier: MIT
// One device's life: start and stop, subscribers, its notifications and its delegate.
#include "Devices/DeviceClassState.h"
#include "Devices/QMXAudioDevice.h"
#include "Devices/QMXAudioDeviceInfoOutput.h"
#include "Formats/LastFailure.h"
#include "Foundation/MainThread/RunLoop.h"
#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"
#include "Foundation/Text/Format.h"
#include "Foundation/Text/Log.h"
#include "Foundation/Threads/Retirement.h"
#include "Foundation/Threads/Thread.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>

namespace
{

const char* notificationName(AudioDevicePropertyID propertyID, bool isInput)
{
    switch (propertyID) {
    case kAudioDevicePropertyStreamConfiguration:
        return QMXAudioDeviceStreamConfigurationDidChangeNotification;
    case kAudioDevicePropertyAvailableNominalSampleRates:
        return QMXAudioDeviceAvailableNominalSampleRatesDidChangeNotification;
    case kAudioDevicePropertyActualSampleRate:
        return QMXAudioDeviceActualSampleRateDidChangeNotification;
    case kAudioDevicePropertyPreferredChannelsForStereo:
        return QMXAudioDevicePreferredChannelsForStereoDidChangeNotification;
    case kAudioDevicePropertyPhysicalFormat:
    case kAudioDevicePropertyStreamFormat:
        return QMXAudioDeviceStreamFormatDidChangeNotification;
    case kAudioDevicePropertyNominalSampleRate:
        return QMXAudioDeviceNominalSampleRateDidChangeNotification;
    case kAudioDevicePropertyStreams:
        return QMXAudioDeviceStreamsDidChangeNotification;
    case kAudioDevicePropertyVolumeDecibels:
    case kAudioDevicePropertyVolumeScalar:
        return isInput ? QMXAudioDeviceInputVolumeDidChangeNotification
                       : QMXAudioDeviceOutputVolumeDidChangeNotification;
    case kAudioDevicePropertyTransportType:
        return QMXAudioDeviceTransportTypeDidChangeNotification;
    case kAudioDevicePropertyDataSources:
        return isInput ? QMXAudioDeviceInputDataSourcesDidChangeNotification
                       : QMXAudioDeviceOutputDataSourcesDidChangeNotification;
    case kAudioDevicePropertyDataSource:
        return isInput ? QMXAudioDeviceInputSourceDidChangeNotification
                       : QMXAudioDeviceOutputSourceDidChangeNotification;
    default:
        return nullptr;
    }
}

bool holds(const std::vector<QMXAudioSubscription>& subscriptions, const QMXCoreAudioIOSubscriber* subscriber)
{
    return std::ranges::any_of(subscriptions,
                               [=](const auto& each) { return each.get() == subscriber && !each.hasLeft(); });
}

/// Whether buffers handed to `subscriber` reach `device`, through any number of devices. There is no loop yet, so the
/// recursion ends.
bool leadsTo(QMXCoreAudioIOSubscriber* subscriber, const QMXAudioDevice& device)
{
    auto* const next = dynamic_cast<QMXAudioDevice*>(subscriber);
    if (!next || next == &device)
        return next;
    return std::ranges::any_of(std::array{true, false}, [&](bool isInput) {
        const QMXAudioSubscriberList::Walk walk(next->audioSubscribersForInput(isInput));
        return std::ranges::any_of(walk.now(),
                                   [&](const auto& each) { return !each.hasLeft() && leadsTo(each.get(), device); });
    });
}

/// What one cycle brings.
struct IOCycle {
    const AudioTimeStamp* now;
    const AudioBufferList* inputData;
    const AudioTimeStamp* inputTime;
    AudioBufferList* outputData;
    const AudioTimeStamp* outputTime;

    bool hasInput() const { return inputData && inputData->mNumberBuffers != 0; }
    bool hasOutput() const { return outputData && outputData->mNumberBuffers != 0; }

    /// One snapshot of the list serves the whole cycle, so that no change makes a subscriber miss it. A subscriber
    /// removed by an earlier one is not called.
    void callSubscribers(const QMXAudioSubscriberList& list, QMXAudioDevice& device, QMXAudioDevice& clientData) const
    {
        const qmx::CallbackScope callback;
        const QMXAudioSubscriberList::Walk walk(list);
        for (const QMXAudioSubscription& each : walk.now())
            if (!each.hasLeft())
                each->audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
                    device, now, inputData, inputTime, outputData, outputTime, clientData);
    }
};

} // namespace

QMXCoreAudioIOSubscriber::~QMXCoreAudioIOSubscriber() = default;

class QMXAudioDevice::Implementation final : public QMXAudioDevice, private qmx::Retirable
{
public:
    static std::shared_ptr<QMXAudioDevice> make(AudioDeviceID deviceID);
    ~Implementation() override;

    AudioDeviceID deviceID() const override { return deviceID_; }
    std::optional<std::string> name() const override;
    std::optional<std::string> manufacturer() const override;
    bool start() override;
    bool stop() override;
    void addAudioIOSubscriber_forInput(const std::shared_ptr<QMXCoreAudioIOSubscriber>& subscriber,
                                       bool isInput) override;
    void removeAudioIOSubscriber_forInput(const QMXCoreAudioIOSubscriber& subscriber, bool isInput) override;
    QMXAudioSubscriberList& audioSubscribersForInput(bool isInput) override;
    std::shared_ptr<QMXVUMeterDataProvider> inputVUMeterDataProvider() override;
    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& device, const AudioTimeStamp* inNow, const AudioBufferList* inInputData,
        const AudioTimeStamp* inInputTime, AudioBufferList* outOutputData, const AudioTimeStamp* inOutputTime,
        QMXAudioDevice& inClientData) override;
    void setDelegate(std::shared_ptr<QMXAudioDeviceDelegate> delegate) override;
    std::shared_ptr<QMXAudioDeviceDelegate> delegate() const override;

private:
    struct Sweep;

    explicit Implementation(AudioDeviceID deviceID) : deviceID_(deviceID) {}
    static void destroy(Implementation* device);
    void listen();
    static OSStatus captureIOProc(AudioDeviceID deviceID, const AudioTimeStamp* now, const AudioBufferList* inputData,
                                  const AudioTimeStamp* inputTime, AudioBufferList* outputData,
                                  const AudioTimeStamp* outputTime, void* clientData);
    static OSStatus devicePropertyCallback(AudioDeviceID deviceID, UInt32 channel, Boolean isInput,
                                           AudioDevicePropertyID propertyID, void* clientData);
    void armSweep();
    void sweepSubscribers();
    void dropSubscribersThatLeft(bool isInput);
    std::atomic<bool>& hasSubscribers(bool isInput) { return isInput ? hasInputSubscribers : hasOutputSubscribers; }
    std::optional<std::string> cachedText(std::optional<std::string>& cache, AudioDevicePropertyID propertyID) const;
    qmx::LastFailure& failure() const override { return failure_; }
    std::string nameForPeople() const override;

    AudioDeviceID deviceID_;
    mutable std::optional<std::string> deviceName;
    mutable std::optional<std::string> deviceManufacturer;
    std::shared_ptr<QMXVUMeterDataProvider> inputProvider;
    std::shared_ptr<QMXAudioDeviceDelegate> _delegate;
    std::atomic<bool> hasInputSubscribers{false};
    std::atomic<bool> hasOutputSubscribers{false};
    QMXAudioSubscriberList inputSubscribersArray;
    QMXAudioSubscriberList outputSubscribersArray;
    mutable std::mutex subscriberLock;   // list changes, the meter and the delegate
    std::atomic<Sweep*> sweep_{nullptr}; // removes subscribers that left in real time; null while it is under way
    std::atomic<SInt32> startCalls{0};   // changed under the lock that all devices share
    mutable std::mutex nameLock;         // the two cached texts
    mutable qmx::LastFailure failure_;
};

/// Destroyed on a thread that may allocate.
struct QMXAudioDevice::Implementation::Sweep final : qmx::Retirable {
    explicit Sweep(std::weak_ptr<QMXAudioDevice> owner) : device(std::move(owner)) {}
    ~Sweep() override
    {
        if (const auto present = device.lock())
            (void)qmx::withinMemory([&] { static_cast<Implementation&>(*present).sweepSubscribers(); });
        // without memory, they are dropped with the next sweep
    }
    std::weak_ptr<QMXAudioDevice> device;
};

std::shared_ptr<QMXAudioDevice> QMXAudioDevice::initWithDeviceID(AudioDeviceID deviceID)
{
    qmx::DeviceClassState::shared();
    return Implementation::make(deviceID);
}

std::shared_ptr<QMXAudioDevice> QMXAudioDevice::Implementation::make(AudioDeviceID deviceID)
{
    const std::shared_ptr<Implementation> device(new Implementation(deviceID), destroy);
    const qmx::LastFailure::Operation operation(device->failure_);
    device->armSweep();
    device->listen();
    device->manufacturer();
    device->name();
    return device;
}

void QMXAudioDevice::Implementation::listen()
{
    OSStatus status =
        AudioDeviceAddPropertyListener(deviceID_, kAudioPropertyWildcardChannel, kAudioPropertyWildcardSection,
                                       kAudioPropertyWildcardPropertyID, devicePropertyCallback, this);
    if (status != noErr) {
        fail(status, "does not tell its changes");
        qmx::Log("QMXAudioDevice: Unable to add property listeners");
    }
    status = AudioDeviceAddIOProc(deviceID_, captureIOProc, this);
    if (status != noErr) {
        fail(status, "gives and takes no sound");
        qmx::Log("QMXAudioDevice: Unable to add I/O proc");
    }
}

// Inside a callback the cycle in flight, which may use the device, cannot be waited for.
void QMXAudioDevice::Implementation::destroy(Implementation* device)
{
    qmx::destroyOutsideCallbacks(device);
}

QMXAudioDevice::Implementation::~Implementation()
{
    // each fails if there is nothing to undo
    (void)AudioDeviceStop(deviceID_, captureIOProc, this);
    (void)AudioDeviceRemoveIOProc(deviceID_, captureIOProc, this);
    (void)AudioDeviceRemovePropertyListener(deviceID_, kAudioPropertyWildcardChannel, kAudioPropertyWildcardSection,
                                            kAudioPropertyWildcardPropertyID, devicePropertyCallback, this);
    delete sweep_.load();
}

std::string QMXAudioDevice::description() const
{
    return qmx::format("%@ by %@", name(), manufacturer());
}

std::string QMXAudioDevice::printDeviceInfo()
{
    std::string text = QMXAudioDeviceInfoOutput::printGlobalDeviceInfo(*this);
    if (canBeInputDevice())
        text += QMXAudioDeviceInfoOutput::printDirectionalDeviceInfo_isInput(*this, true);
    if (canBeOutputDevice())
        text += QMXAudioDeviceInfoOutput::printDirectionalDeviceInfo_isInput(*this, false);
    return text;
}

std::optional<std::string> QMXAudioDevice::Implementation::name() const
{
    return cachedText(deviceName, kAudioDevicePropertyDeviceNameCFString);
}

std::optional<std::string> QMXAudioDevice::Implementation::manufacturer() const
{
    return cachedText(deviceManufacturer, kAudioDevicePropertyDeviceManufacturerCFString);
}

std::optional<std::string> QMXAudioDevice::Implementation::cachedText(std::optional<std::string>& cache,
                                                                      AudioDevicePropertyID propertyID) const
{
    {
        const std::scoped_lock lock(nameLock);
        if (cache)
            return cache;
    }
    auto present = text(propertyID, true); // without the lock: the report of a failure asks for the name
    const std::scoped_lock lock(nameLock);
    if (!cache)
        cache = std::move(present);
    return cache;
}

std::string QMXAudioDevice::Implementation::nameForPeople() const
{
    const std::scoped_lock lock(nameLock);
    return deviceName ? *deviceName : qmx::format("Device %u", deviceID_);
}

bool QMXAudioDevice::Implementation::start()
{
    const qmx::LastFailure::Operation operation(failure_);
    const std::scoped_lock lock(qmx::DeviceClassState::shared().globalRunLock);
    if (++startCalls > 1)
        return true;
    if (const OSStatus status = AudioDeviceStart(deviceID_, captureIOProc, this); status != noErr) {
        --startCalls;
        fail(status, "could not be started");
    }
    return true; // whether it started or not, as intended
}

bool QMXAudioDevice::Implementation::stop()
{
    const qmx::LastFailure::Operation operation(failure_);
    const std::scoped_lock lock(qmx::DeviceClassState::shared().globalRunLock);
    if (startCalls < 1 || --startCalls > 0)
        return true;
    if (const OSStatus status = AudioDeviceStop(deviceID_, captureIOProc, this); status != noErr) {
        ++startCalls;
        fail(status, "could not be stopped");
    }
    return true;
}

void QMXAudioDevice::Implementation::addAudioIOSubscriber_forInput(
    const std::shared_ptr<QMXCoreAudioIOSubscriber>& subscriber, bool isInput)
{
    const qmx::LastFailure::Operation operation(failure_);
    hasSubscribers(isInput) = true;
    QMXAudioSubscriberList& list = audioSubscribersForInput(isInput);
    if (const auto present = list.snapshot(); !subscriber || holds(*present, subscriber.get()))
        return;
    bool closesRing = false;
    const auto former = [&] {
        // two at once might close one together
        const std::scoped_lock lock(qmx::DeviceClassState::shared().chainLock, subscriberLock);
        closesRing = leadsTo(subscriber.get(), *this);
        return list.change([&](auto& subscriptions) {
            if (!closesRing && !holds(subscriptions, subscriber.get()))
                subscriptions.emplace_back(subscriber);
        });
    }();
    if (!closesRing)
        return;
    fail(kAudioHardwareIllegalOperationError, "cannot hand its buffers to a device that hands them back");
    qmx::Log("QMXAudioDevice: A device cannot subscribe to one that it hands its buffers to");
}

void QMXAudioDevice::Implementation::removeAudioIOSubscriber_forInput(const QMXCoreAudioIOSubscriber& subscriber,
                                                                      bool isInput)
{
    bool othersStay = false;
    {
        const QMXAudioSubscriberList::Walk walk(audioSubscribersForInput(isInput));
        for (const QMXAudioSubscription& each : walk.now())
            if (each.get() == &subscriber)
                each.leave();
            else
                othersStay = othersStay || !each.hasLeft();
    }
    // The device's own I/O never reads the flag, and removing the last subscriber leaves it as it is; both are
    // intended.
    if (othersStay)
        hasSubscribers(isInput) = false;
    if (qmx::isRealTime())
        qmx::retire(sweep_.exchange(nullptr)); // if it is null, the sweep under way looks after this mark
    else
        dropSubscribersThatLeft(isInput);
}

void QMXAudioDevice::Implementation::armSweep()
{
    sweep_ = new Sweep(weak_from_this());
}

void QMXAudioDevice::Implementation::sweepSubscribers()
{
    armSweep(); // first: a subscriber that leaves after the look below needs the next sweep
    for (const bool isInput : {true, false})
        if (const auto list = audioSubscribersForInput(isInput).snapshot();
            std::ranges::any_of(*list, &QMXAudioSubscription::hasLeft))
            dropSubscribersThatLeft(isInput);
}

void QMXAudioDevice::Implementation::dropSubscribersThatLeft(bool isInput)
{
    const auto former = [&] {
        const std::scoped_lock lock(subscriberLock);
        return audioSubscribersForInput(isInput).change(
            [](auto& subscriptions) { std::erase_if(subscriptions, [](const auto& each) { return each.hasLeft(); }); });
    }();
}

QMXAudioSubscriberList& QMXAudioDevice::Implementation::audioSubscribersForInput(bool isInput)
{
    return isInput ? inputSubscribersArray : outputSubscribersArray;
}

std::shared_ptr<QMXVUMeterDataProvider> QMXAudioDevice::Implementation::inputVUMeterDataProvider()
{
    const std::scoped_lock lock(subscriberLock);
    if (!inputProvider)
        inputProvider = QMXVUMeterDataProvider::initForOwner(shared_from_this());
    return inputProvider;
}

std::shared_ptr<QMXVUMeterDataProvider> QMXAudioDevice::outputVUMeterDataProvider()
{
    const std::scoped_lock lock(qmx::DeviceClassState::shared().outputProviderLock);
    auto& provider = qmx::DeviceClassState::shared().outputProvider;
    if (!provider)
        provider = QMXVUMeterDataProvider::initForOwner(shared_from_this());
    return provider;
}

OSStatus QMXAudioDevice::Implementation::captureIOProc(AudioDeviceID /*deviceID*/, const AudioTimeStamp* now,
                                                       const AudioBufferList* inputData,
                                                       const AudioTimeStamp* inputTime, AudioBufferList* outputData,
                                                       const AudioTimeStamp* outputTime, void* clientData)
{
    auto& device = *static_cast<Implementation*>(clientData);
    const IOCycle cycle{now, inputData, inputTime, outputData, outputTime};
    if (cycle.hasInput())
        cycle.callSubscribers(device.inputSubscribersArray, device, device);
    if (cycle.hasOutput())
        cycle.callSubscribers(device.outputSubscribersArray, device, device);
    return noErr;
}

OSStatus
QMXAudioDevice::Implementation::audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
    QMXAudioDevice& device, const AudioTimeStamp* inNow, const AudioBufferList* inInputData,
    const AudioTimeStamp* inInputTime, AudioBufferList* outOutputData, const AudioTimeStamp* inOutputTime,
    QMXAudioDevice& inClientData)
{
    if (!qmx::isRealTime())
        (void)qmx::Thread::setThreadPriority(1.0); // a refusal leaves it as it was
    if (startCalls < 1)
        return noErr;
    const IOCycle cycle{inNow, inInputData, inInputTime, outOutputData, inOutputTime};
    if (hasInputSubscribers && cycle.hasInput())
        cycle.callSubscribers(inputSubscribersArray, device, inClientData);
    if (hasOutputSubscribers && cycle.hasOutput())
        cycle.callSubscribers(outputSubscribersArray, device, inClientData);
    return noErr;
}

OSStatus QMXAudioDevice::Implementation::devicePropertyCallback(AudioDeviceID /*deviceID*/, UInt32 channel,
                                                                Boolean isInput, AudioDevicePropertyID propertyID,
                                                                void* clientData)
{
    // a device that is being destroyed has no owner any more; its destructor waits for this call
    if (const auto device = static_cast<Implementation*>(clientData)->weak_from_this().lock())
        device->devicePropertyDidChange_forChannel_isInput(propertyID, channel, isInput);
    return noErr;
}

void QMXAudioDevice::devicePropertyDidChange_forChannel_isInput(AudioDevicePropertyID propertyID, UInt32 /*channel*/,
                                                                bool isInput)
{
    if (const char* name = notificationName(propertyID, isInput))
        qmx::RunLoop::main().perform(
            [device = shared_from_this(), name] { device->threadCallbackForDelegateMethods(name); });
}

void QMXAudioDevice::threadCallbackForDelegateMethods(const std::string& notificationName)
{
    qmx::NotificationCenter::defaultCenter().postNotification(notificationName, shared_from_this());
}

void QMXAudioDevice::Implementation::setDelegate(std::shared_ptr<QMXAudioDeviceDelegate> delegate)
{
    const std::scoped_lock lock(subscriberLock);
    _delegate.swap(delegate); // the old delegate is released with the argument, when the lock is free
}

std::shared_ptr<QMXAudioDeviceDelegate> QMXAudioDevice::Implementation::delegate() const
{
    const std::scoped_lock lock(subscriberLock);
    return _delegate;
}
