// SPDX-License-Identifier: MIT
#include "Devices/QMXAudioDevice.h"

#include "Foundation/RealTime.h"
#include "Foundation/Threads/Retirement.h"
#include "Foundation/Threads/Thread.h"
#include "support/CapturedLog.h"
#include "support/VirtualDevices.h"

#include <functional>
#include <thread>

namespace
{

using qmx::HardwareOperation;
using Lines = std::vector<std::string>;

constexpr UInt32 kCycle = 512;

class DeviceIO : public qmx::test::VirtualDevices
{
protected:
    const AudioDeviceID id = add("a");
    std::shared_ptr<QMXAudioDevice> device = (news(), registered(id));
};

/// Counts its calls, and does something in each.
class Subscriber : public QMXCoreAudioIOSubscriber
{
public:
    explicit Subscriber(std::function<void()> action = {}) : action_(std::move(action)) {}

    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& device, const AudioTimeStamp* /*inNow*/, const AudioBufferList* inInputData,
        const AudioTimeStamp* inInputTime, AudioBufferList* /*outOutputData*/, const AudioTimeStamp* /*inOutputTime*/,
        QMXAudioDevice& inClientData) override
    {
        if (!qmx::isInsideCallback() || isRemoved)
            ++wrongCalls;
        lastDevice = &device;
        lastClientData = &inClientData;
        const Float64 time = inInputTime ? inInputTime->mSampleTime : 0;
        if (calls > 0 && time != lastInputTime + kCycle)
            ++gaps;
        lastInputTime = time;
        if (inInputData && inInputData->mNumberBuffers > 0 && inInputData->mBuffers[0].mData)
            lastSample = *static_cast<const Float32*>(inInputData->mBuffers[0].mData);
        ++calls;
        if (action_)
            action_();
        return -1; // the device ignores the result
    }

    std::atomic<int> calls{0}, wrongCalls{0}, gaps{0};
    std::atomic<bool> isRemoved{false};
    QMXAudioDevice *lastDevice = nullptr, *lastClientData = nullptr;
    Float64 lastInputTime = -1;
    Float32 lastSample = 0;

private:
    std::function<void()> action_;
};

TEST_F(DeviceIO, RunsWhileAtLeastOneWantsIt)
{
    const auto subscriber = std::make_shared<Subscriber>();
    device->addAudioIOSubscriber_forInput(subscriber, true);
    EXPECT_TRUE(device->stop());
    EXPECT_FALSE(device->isRunning());
    EXPECT_TRUE(device->start());
    EXPECT_TRUE(device->start());
    EXPECT_TRUE(device->stop());
    EXPECT_TRUE(device->isRunning());
    EXPECT_TRUE(hardware.advanceCycles(id, 3));
    EXPECT_EQ(subscriber->calls, 3);
    EXPECT_TRUE(device->stop());
    EXPECT_TRUE(device->stop());
    EXPECT_FALSE(device->isRunning());
    EXPECT_FALSE(hardware.advanceCycles(id));
    const auto input = QMXAudioDevice::deviceWithDeviceID(add("b", 2, 0));
    input->addAudioIOSubscriber_forInput(subscriber, false);
    input->start();
    EXPECT_TRUE(hardware.advanceCycles(input->deviceID()));
    EXPECT_EQ(subscriber->calls, 3) << "of a direction that the device lacks";
    EXPECT_TRUE(device->start()); // the surplus stop was not counted
    EXPECT_TRUE(device->isRunning());

    const auto other = QMXAudioDevice::deviceWithDeviceID(id);
    other->start();
    other->stop();
    EXPECT_TRUE(device->isRunning()) << "one object stopped what another had started";
}

TEST_F(DeviceIO, CountsNeitherFailedStartsNorFailedStops)
{
    hardware.addFault(qmx::test::failing(HardwareOperation::start, {}, 1));
    EXPECT_TRUE(device->start());
    EXPECT_EQ(device->lastStatus(), kAudioHardwareUnspecifiedError);
    EXPECT_EQ(device->lastError(), "Name of a could not be started: Hardware unspecified error");
    EXPECT_FALSE(device->isRunning());
    EXPECT_TRUE(device->start());
    EXPECT_EQ(device->lastError(), "");
    EXPECT_TRUE(device->isRunning());
    hardware.addFault(qmx::test::failing(HardwareOperation::stop, {}, 1));
    EXPECT_TRUE(device->stop());
    EXPECT_EQ(device->lastError(), "Name of a could not be stopped: Hardware unspecified error");
    EXPECT_TRUE(device->isRunning());
    EXPECT_TRUE(device->stop());
    EXPECT_FALSE(device->isRunning());
}

TEST_F(DeviceIO, ExistsThoughItCannotListenOrTakePart)
{
    const qmx::test::CapturedLog log;
    device = QMXAudioDevice::deviceWithDeviceID(7);
    ASSERT_TRUE(device);
    EXPECT_EQ(log.lines(),
              (Lines{"QMXAudioDevice: Unable to add property listeners", "QMXAudioDevice: Unable to add I/O proc"}));
    EXPECT_EQ(device->lastStatus(), kAudioHardwareBadDeviceError);
    EXPECT_EQ(device->lastError(),
              "Device 7 could not give its kAudioDevicePropertyDeviceNameCFString: Hardware bad device error");
    EXPECT_EQ(device->description(), "(null) by (null)");
    EXPECT_FALSE(device->isAlive());
}

TEST_F(DeviceIO, CallsInputThenOutputSubscribersInOrderInRealTime)
{
    std::vector<char> order;
    order.reserve(64); // the calls below must not allocate
    const auto saying = [&order](char name) {
        return std::make_shared<Subscriber>([&order, name] { order.push_back(qmx::isRealTime() ? name : '!'); });
    };
    const auto a = saying('a'), b = saying('b'), c = saying('c');
    EXPECT_EQ(noErr, hardware.setInputSamples(id, {0.5F}, 1, true));
    device->addAudioIOSubscriber_forInput(b, true);
    device->addAudioIOSubscriber_forInput(a, true);
    device->addAudioIOSubscriber_forInput(b, true);
    device->addAudioIOSubscriber_forInput(c, false);
    device->addAudioIOSubscriber_forInput(a, false);
    device->start();
    EXPECT_TRUE(hardware.advanceCycles(id, 2));
    EXPECT_EQ(std::string(order.begin(), order.end()), "bacabaca");
    EXPECT_EQ(a->lastDevice, device.get());
    EXPECT_EQ(a->lastClientData, device.get());
    EXPECT_EQ(b->lastSample, 0.5F);
    const Float64 before = b->lastInputTime;
    EXPECT_TRUE(hardware.advanceCycles(id));
    EXPECT_EQ(b->lastInputTime, before + kCycle);

    order.clear();
    device->removeAudioIOSubscriber_forInput(*b, true);
    device->removeAudioIOSubscriber_forInput(*b, true);
    EXPECT_TRUE(hardware.advanceCycles(id));
    EXPECT_EQ(std::string(order.begin(), order.end()), "aca");
    EXPECT_EQ(b.use_count(), 1) << "the device let go of it";
    EXPECT_EQ(b->wrongCalls, 0);
}

/// One cycle of input handed to a device on a thread of its own, whose priority is raised.
void handInput(QMXAudioDevice& device, QMXAudioDevice& from)
{
    qmx::Thread("test-io", [&] {
        AudioBufferList input{1, {{2, 0, nullptr}}};
        device.audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
            from, nullptr, &input, nullptr, nullptr, nullptr, from);
    }).join();
}

TEST_F(DeviceIO, HandsOnBuffersWhileItRunsAndItsFlagIsSet)
{
    const auto from = QMXAudioDevice::deviceWithDeviceID(add("b"));
    const auto first = std::make_shared<Subscriber>(), second = std::make_shared<Subscriber>();
    device->addAudioIOSubscriber_forInput(first, true);
    device->addAudioIOSubscriber_forInput(second, true);
    handInput(*device, *from);
    EXPECT_EQ(first->calls, 0);
    device->start();
    handInput(*device, *from);
    EXPECT_EQ(first->calls, 1);
    EXPECT_EQ(first->lastDevice, from.get());
    EXPECT_EQ(first->lastClientData, from.get());

    device->removeAudioIOSubscriber_forInput(*second, true);
    handInput(*device, *from);
    EXPECT_EQ(first->calls, 1) << "the flag is off while one is left";
    EXPECT_TRUE(hardware.advanceCycles(id));
    EXPECT_EQ(first->calls, 2) << "its own I/O does not look at the flag";
}

TEST_F(DeviceIO, RefusesASubscriptionThatLeadsBackToItself)
{
    std::vector<std::shared_ptr<QMXAudioDevice>> ring;
    for (const char* const name : {"b", "c", "d"})
        ring.push_back(QMXAudioDevice::deviceWithDeviceID(add(name)));
    ring[0]->addAudioIOSubscriber_forInput(ring[1], true);
    ring[0]->addAudioIOSubscriber_forInput(ring[2], true);
    ring[1]->addAudioIOSubscriber_forInput(ring[2], false);
    const qmx::test::CapturedLog log;
    for (const auto& each : ring)
        ring[2]->addAudioIOSubscriber_forInput(each, true);
    EXPECT_TRUE(ring[2]->audioSubscribersForInput(true).snapshot().empty());
    EXPECT_EQ(log.lines(), Lines(3, "QMXAudioDevice: A device cannot subscribe to one that it hands its buffers to"));
    EXPECT_EQ(ring[2]->lastStatus(), kAudioHardwareIllegalOperationError);
    for (const auto& each : ring)
        each->start();
    const auto subscriber = std::make_shared<Subscriber>();
    ring[2]->addAudioIOSubscriber_forInput(subscriber, true);
    EXPECT_TRUE(hardware.advanceCycles(ring[0]->deviceID()));
    EXPECT_EQ(subscriber->calls, 2) << "by its own cycle and by that of the first";
}

TEST_F(DeviceIO, CallsNobodyWhomAnEarlierSubscriberRemoved)
{
    std::weak_ptr<Subscriber> remover, removed;
    auto held = std::make_shared<Subscriber>([&] {
        device->removeAudioIOSubscriber_forInput(*removed.lock(), true);
        device->removeAudioIOSubscriber_forInput(*remover.lock(), true);
    });
    auto other = std::make_shared<Subscriber>();
    removed = other;
    remover = held;
    device->addAudioIOSubscriber_forInput(held, true);
    device->addAudioIOSubscriber_forInput(std::exchange(other, nullptr), true);
    device->start();
    handInput(*device, *device);
    EXPECT_EQ(held->calls, 1);
    EXPECT_TRUE(device->audioSubscribersForInput(true).snapshot().empty());
    qmx::waitUntilRetired();
    EXPECT_TRUE(removed.expired());
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(DeviceIO, SubscribersMayBeRemovedAndAddedAgainInRealTime)
{
    const auto second = std::make_shared<Subscriber>(), third = std::make_shared<Subscriber>();
    std::vector<std::shared_ptr<Subscriber>> leaving{second};
    const auto first = std::make_shared<Subscriber>([&] {
        for (const auto& each : leaving)
            device->removeAudioIOSubscriber_forInput(*each, true);
    });
    leaving.push_back(first);
    for (const auto& each : {first, second, third})
        device->addAudioIOSubscriber_forInput(each, true);
    device->start();
    for (int cycle = 1; cycle <= 3; ++cycle) {
        EXPECT_TRUE(hardware.advanceCycles(id));
        EXPECT_EQ(first->calls, cycle);
        EXPECT_EQ(second->calls, 0);
        EXPECT_EQ(device->audioSubscribersForInput(true).snapshot().size(), 1U) << "they were let go of";
        device->addAudioIOSubscriber_forInput(first, true);
        device->addAudioIOSubscriber_forInput(second, true);
    }
    EXPECT_EQ(third->calls, 3);
}

TEST_F(DeviceIO, EndedInItsOwnCallbackItIsTakenDownElsewhere)
{
    device = QMXAudioDevice::deviceWithDeviceID(id);
    const std::weak_ptr<QMXAudioDevice> watched = device;
    const auto subscriber = std::make_shared<Subscriber>([&] { device.reset(); });
    device->addAudioIOSubscriber_forInput(subscriber, true);
    device->addAudioIOSubscriber_forInput(subscriber, false);
    device->start();
    EXPECT_TRUE(hardware.advanceCycles(id));
    qmx::waitUntilRetired();
    EXPECT_TRUE(watched.expired());
    EXPECT_FALSE(registered(id)->isRunning());
    EXPECT_EQ(subscriber->calls, 2) << "the cycle was ended in order";
}

TEST_F(DeviceIO, AnnouncesWhatChangesInEachSection)
{
    const auto hears = [&](const std::string& expected, const std::function<void(qmx::DeviceDescription&)>& edit) {
        EXPECT_EQ(noErr, hardware.change(id, edit));
        std::string heard;
        for (const std::string& line : news())
            heard.append(line.substr(6)).append(","); // without "Device"
        EXPECT_EQ(heard, expected);
    };
    for (const bool isInput : {true, false}) {
        const std::string to = isInput ? "Input" : "Output";
        const auto in = [=](auto& d) -> qmx::SectionDescription& { return d.section(isInput); };
        hears(to + "Volume a," + to + "Volume a,", [=](auto& d) { in(d).volumes[2].scalar = 0.5F; });
        hears("", [=](auto& d) { in(d).mutes[0].isMuted = true; });
        hears(to + "Source a,", [=](auto& d) { in(d).dataSource = in(d).dataSources[1].id; });
        hears(to + "DataSources a,", [=](auto& d) { in(d).dataSources[0].id = 5; });
        hears("PreferredChannelsForStereo a,", [=](auto& d) { in(d).preferredChannelsForStereo[0] = 2; });
        hears("StreamFormat a,", [=](auto& d) {
            in(d).streams[0].physicalFormat = qmx::packedPhysicalFormat(d.nominalSampleRate, 2, 24);
        });
    }
    hears("NominalSampleRate a,NominalSampleRate a,ActualSampleRate a,ActualSampleRate a,"
          "StreamFormat a,StreamFormat a,StreamFormat a,StreamFormat a,",
          [](auto& d) { d.nominalSampleRate = d.actualSampleRate = 48000; });
    hears("TransportType a,TransportType a,", [](auto& d) { d.transportType = kAudioDeviceTransportTypeUSB; });
    hears("AvailableNominalSampleRates a,AvailableNominalSampleRates a,",
          [](auto& d) { d.availableSampleRates.pop_back(); });
    hears("Streams a,StreamConfiguration a,StreamFormat a,StreamFormat a,",
          [](auto& d) { d.input.streams.push_back(d.input.streams[0]); });
    EXPECT_EQ(noErr, hardware.announce(id, {kAudioDeviceProcessorOverload, 0, true}));
    EXPECT_EQ(news(), Lines{});
}

TEST_F(DeviceIO, ALateChangeDoesNotReachADeviceThatIsGone)
{
    for (int i = 0; i < 200; ++i) {
        device = QMXAudioDevice::deviceWithDeviceID(id);
        for (int step = 0; step < 5; ++step)
            EXPECT_EQ(noErr, hardware.announce(id, {kAudioDevicePropertyTransportType, 0, true}));
        device.reset();
    }
    // notifications taken in time keep their sender until delivery; the registered device gets all of them
    EXPECT_GE(news().size(), 1000U);
}

TEST_F(DeviceIO, TellsItsDelegate)
{
    struct Delegate : QMXAudioDeviceDelegate {
        void outputVolumeDidChange(const qmx::Notification& n) override { heard.push_back(n.name); }
        void inputDataSourceDidChange(const qmx::Notification& n) override { heard.push_back(n.name); }
        Lines heard;
    };
    const auto delegate = std::make_shared<Delegate>();
    device->outputVolumeDidChange({"nobody", device});
    device->setDelegate(delegate);
    EXPECT_EQ(device->delegate(), delegate);
    const auto observer =
        qmx::NotificationCenter::defaultCenter().observe(QMXAudioDeviceOutputVolumeDidChangeNotification, device,
                                                         [&](const auto& n) { device->outputVolumeDidChange(n); });
    EXPECT_TRUE(device->setVolumeScalar_forChannel_isInput(0.25F, 1, false));
    news();
    device->inputDataSourceDidChange({"source", device});
    device->inputStreamFormatDidChange({"format", device});
    EXPECT_EQ(delegate->heard, (Lines{QMXAudioDeviceOutputVolumeDidChangeNotification,
                                      QMXAudioDeviceOutputVolumeDidChangeNotification, "source"}));
    device->setDelegate(nullptr);
    EXPECT_EQ(delegate.use_count(), 1);
}

TEST_F(DeviceIO, DevicesAndSubscribersComeAndGoWhileSoundRunsAsFastAsItCan)
{
    const auto always = std::make_shared<Subscriber>();
    device->addAudioIOSubscriber_forInput(always, true);
    hardware.setTime(qmx::VirtualTime::fast);
    device->start();
    qmx::Thread plugging("test-plug", [&] {
        for (int i = 0; i < 5000; ++i)
            EXPECT_EQ(noErr, hardware.removeDevice(add("b", 0, 0)));
    });
    for (int round = 0; round < 1000; ++round) {
        const auto subscriber = std::make_shared<Subscriber>();
        const bool isInput = round % 2 == 0;
        device->addAudioIOSubscriber_forInput(subscriber, isInput);
        while (subscriber->calls == 0)
            std::this_thread::yield();
        device->removeAudioIOSubscriber_forInput(*subscriber, isInput);
        subscriber->isRemoved = true;
        ASSERT_EQ(subscriber.use_count(), 1);
        ASSERT_EQ(subscriber->wrongCalls, 0);
    }
    plugging.join();
    device->stop();
    EXPECT_EQ(news(), Lines(10'000, "HardwareDevices"));
    EXPECT_EQ(QMXAudioDevice::allDevicesArray().snapshot().size(), 1U);
    EXPECT_EQ(always->gaps, 0) << "cycles without a call";
    EXPECT_GE(always->calls, 1000);
}

} // namespace
