// SPDX-License-Identifier: MIT
#include "Devices/QMXVUMeterDataProvider.h"

#include "Devices/QMXAudioDevice.h"
#include "Devices/QMXVUMeterData.h"
#include "Formats/LastFailure.h"
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/MainThread/RealTimeNotification.h"
#include "Foundation/MainThread/RunLoop.h"
#include "vecLib/ChannelPeaks.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <optional>
#include <utility>

const char* const QMXVUMeterDataProviderDidStartNotification = "QMXVUMeterDataProviderDidStartNotification";
const char* const QMXVUMeterDataProviderDidStopNotification = "QMXVUMeterDataProviderDidStopNotification";
const char* const QMXVUMeterDataProviderNewDataIsAvailableNotification =
    "QMXVUMeterDataProviderNewDataIsAvailableNotification";

class QMXVUMeterDataProvider::Implementation final : public QMXVUMeterDataProvider
{
public:
    static std::shared_ptr<Implementation> make(const std::shared_ptr<QMXAudioDevice>& owner);
    ~Implementation() override;

    void setAudioDevice(std::shared_ptr<QMXAudioDevice> device) override;
    std::shared_ptr<QMXAudioDevice> audioDevice() const override;
    OSStatus lastStatus() const override { return failure_.status(); }
    std::string lastError() const override { return failure_.sentence(); }
    void start() override;
    void stop() override;
    void setNotificationInterval(unsigned long interval) override;
    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& device, const AudioTimeStamp* inNow, const AudioBufferList* inInputData,
        const AudioTimeStamp* inInputTime, AudioBufferList* outOutputData, const AudioTimeStamp* inOutputTime,
        QMXAudioDevice& inClientData) override;

private:
    void announce(const char* notificationName);

    std::shared_ptr<QMXAudioDevice> mAudioDevice; ///< null while idle when the device is the owner
    std::shared_ptr<QMXVUMeterData> mMeterData = QMXVUMeterData::init();
    UInt32 mNotificationCount = 0; // the I/O thread's
    std::atomic<UInt32> mNotificationInterval{1};
    std::atomic<bool> mShouldProvideData{false};

    bool startIsCounted_ = false; ///< by the device; it does not count a start that failed
    std::weak_ptr<QMXAudioDevice> owner_;
    qmx::LastFailure failure_;
    std::optional<qmx::RealTimeNotification> newLevels_;
};

std::shared_ptr<QMXVUMeterDataProvider::Implementation>
QMXVUMeterDataProvider::Implementation::make(const std::shared_ptr<QMXAudioDevice>& owner)
{
    auto provider = std::make_shared<Implementation>();
    provider->owner_ = owner;
    provider->newLevels_.emplace(provider->mMeterData->name(), provider->mMeterData,
                                 qmx::RealTimeNotification::Kind::frame,
                                 [meter = std::weak_ptr(provider)](const auto& sender, const std::string&) {
                                     if (const auto self = meter.lock())
                                         self->threadCallback(std::static_pointer_cast<QMXVUMeterData>(sender));
                                 });
    return provider;
}

std::shared_ptr<QMXVUMeterDataProvider> QMXVUMeterDataProvider::init()
{
    return Implementation::make(nullptr);
}

std::shared_ptr<QMXVUMeterDataProvider>
QMXVUMeterDataProvider::initWithAudioDevice(std::shared_ptr<QMXAudioDevice> device)
{
    auto provider = init();
    provider->setAudioDevice(std::move(device));
    return provider;
}

std::shared_ptr<QMXVUMeterDataProvider>
QMXVUMeterDataProvider::initForOwner(const std::shared_ptr<QMXAudioDevice>& device)
{
    return Implementation::make(device);
}

QMXVUMeterDataProvider::Implementation::~Implementation()
{
    if (const auto device = audioDevice())
        device->removeAudioIOSubscriber_forInput(*this, true);
}

std::shared_ptr<QMXAudioDevice> QMXVUMeterDataProvider::Implementation::audioDevice() const
{
    return mAudioDevice ? mAudioDevice : owner_.lock();
}

void QMXVUMeterDataProvider::Implementation::setAudioDevice(std::shared_ptr<QMXAudioDevice> device)
{
    const auto self = shared_from_this(); // the device may have been its last owner
    const qmx::LastFailure::Operation operation(failure_);
    const bool wasProviding = mShouldProvideData;
    stop();
    const bool isOwner = device && device == owner_.lock();
    if (!isOwner)
        owner_.reset();
    mAudioDevice = isOwner ? nullptr : std::move(device);
    if (wasProviding)
        start();
}

void QMXVUMeterDataProvider::Implementation::start()
{
    const qmx::LastFailure::Operation operation(failure_);
    const auto device = audioDevice();
    if (mShouldProvideData || !device || !device->start())
        return;
    failure_.keepFirstOf(*device);
    startIsCounted_ = device->lastStatus() == noErr;
    mAudioDevice = device;
    device->addAudioIOSubscriber_forInput(shared_from_this(), true);
    mShouldProvideData = true;
    announce(QMXVUMeterDataProviderDidStartNotification);
}

void QMXVUMeterDataProvider::Implementation::stop()
{
    const auto self = shared_from_this(); // the device may have been its last owner
    const qmx::LastFailure::Operation operation(failure_);
    const auto device = audioDevice();
    if (!mShouldProvideData)
        return;
    if (startIsCounted_) { // or this would take back the start of another user of the device
        if (!device->stop())
            return;
        failure_.keepFirstOf(*device);
    }
    device->removeAudioIOSubscriber_forInput(*this, true);
    mShouldProvideData = false;
    if (device == owner_.lock())
        mAudioDevice.reset();
    announce(QMXVUMeterDataProviderDidStopNotification);
}

void QMXVUMeterDataProvider::Implementation::setNotificationInterval(unsigned long interval)
{
    mNotificationInterval =
        static_cast<UInt32>(std::clamp<unsigned long>(interval, 1, std::numeric_limits<UInt32>::max()));
}

qmx::HeapBlock QMXVUMeterDataProvider::findMaxValues_numChannels_length(const Float32* samples, unsigned long channels,
                                                                        unsigned long length)
{
    auto peaks = qmx::zeroedHeapArray<Float32>(channels);
    if (peaks)
        qmx::channelPeaks(samples, length / sizeof(Float32), channels, peaks.get(), channels);
    return qmx::HeapBlock(peaks.release());
}

OSStatus QMXVUMeterDataProvider::Implementation::
    audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& /*device*/, const AudioTimeStamp* /*inNow*/, const AudioBufferList* inInputData,
        const AudioTimeStamp* /*inInputTime*/, AudioBufferList* /*outOutputData*/,
        const AudioTimeStamp* /*inOutputTime*/, QMXAudioDevice& /*inClientData*/)
{
    if (!inInputData || !mShouldProvideData || inInputData->mNumberBuffers == 0)
        return noErr;
    if (mNotificationCount % mNotificationInterval != 0) {
        ++mNotificationCount;
        return noErr;
    }
    const AudioBuffer& buffer = inInputData->mBuffers[0];
    if (buffer.mNumberChannels == 0)
        return noErr;
    std::array<Float32, QMXVUMeterData::maximumChannels> peaks;
    const UInt32 metered = std::min(buffer.mNumberChannels, QMXVUMeterData::maximumChannels);
    const std::size_t count = buffer.mData ? buffer.mDataByteSize / sizeof(Float32) : 0;
    qmx::channelPeaks(static_cast<const Float32*>(buffer.mData), count, buffer.mNumberChannels, peaks.data(), metered);
    mMeterData->publishLevels(peaks.data(), metered);
    newLevels_->send();
    mNotificationCount = 1;
    return noErr;
}

void QMXVUMeterDataProvider::threadCallback(const std::shared_ptr<QMXVUMeterData>& levels)
{
    qmx::NotificationCenter::defaultCenter().postNotification(levels->name(), levels);
}

void QMXVUMeterDataProvider::startStopCallback(const std::string& notificationName)
{
    qmx::NotificationCenter::defaultCenter().postNotification(notificationName, shared_from_this());
}

void QMXVUMeterDataProvider::Implementation::announce(const char* notificationName)
{
    qmx::RunLoop::main().perform(
        [self = shared_from_this(), notificationName] { self->startStopCallback(notificationName); });
}
