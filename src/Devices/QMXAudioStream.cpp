// SPDX-License-Identifier: MIT
#include "Devices/QMXAudioStream.h"

#include "Devices/QMXAudioDevice.h"
#include "Formats/LastFailure.h"
#include "Formats/PropertyBlock.h"
#include "Formats/QMXAudioDeviceUtils.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXAudioValueRange.h"
#include "Foundation/Text/Format.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <tuple>

namespace
{

constexpr Float64 kRateStep = 25;
constexpr Float64 kLeastRate = 8000;
constexpr Float64 kGreatestRate = 768000;

/// An order among formats that agrees with their equality.
bool comesBefore(const AudioStreamBasicDescription& a, const AudioStreamBasicDescription& b)
{
    const auto fields = [](const AudioStreamBasicDescription& f) {
        return std::tie(f.mSampleRate, f.mFormatID, f.mFormatFlags, f.mBytesPerPacket, f.mFramesPerPacket,
                        f.mBytesPerFrame, f.mChannelsPerFrame, f.mBitsPerChannel);
    };
    return fields(a) < fields(b);
}

bool isForAllRates(const std::shared_ptr<QMXAudioStreamBasicDescription>& format)
{
    return format->sampleRate() == kAudioStreamAnyRate;
}

/// The first step from `minimum` up that is not below kLeastRate.
Float64 firstRate(Float64 minimum)
{
    const Float64 steps = std::ceil(std::max(0.0, kLeastRate - minimum) / kRateStep);
    return std::max(kLeastRate, minimum + steps * kRateStep); // an infinite minimum has no steps
}

/// The rates of the ranges in order. A range of one rate has that rate, whatever it is; a range that is reversed or not
/// a number has none.
std::vector<Float64> ratesWithin(const std::vector<std::shared_ptr<QMXAudioValueRange>>& ranges)
{
    std::vector<Float64> rates;
    for (const auto& range : ranges) {
        const Float64 minimum = range->mMinimum(), maximum = range->mMaximum();
        if (minimum == maximum && minimum > 0 && std::isfinite(minimum)) {
            rates.push_back(minimum);
            continue;
        }
        const Float64 first = firstRate(minimum), last = std::min(maximum, kGreatestRate);
        if (!(minimum < maximum && first <= last))
            continue;
        const auto steps = static_cast<UInt32>((last - first) / kRateStep);
        for (UInt32 step = 0; step <= steps; ++step)
            rates.push_back(first + step * kRateStep);
    }
    return rates;
}

} // namespace

class QMXAudioStream::Implementation final : public QMXAudioStream
{
public:
    Implementation(std::shared_ptr<QMXAudioDevice> device, AudioStreamID streamID)
        : _owningDevice(std::move(device)), _streamID(streamID)
    {
    }
    std::shared_ptr<QMXAudioDevice> owningDevice() const override { return _owningDevice; }
    AudioStreamID streamID() const override { return _streamID; }

private:
    qmx::LastFailure& failure() const override { return failure_; }

    std::shared_ptr<QMXAudioDevice> _owningDevice;
    AudioStreamID _streamID;
    mutable qmx::LastFailure failure_;
};

std::shared_ptr<QMXAudioStream>
QMXAudioStream::initWithAudioDevice_streamID(const std::shared_ptr<QMXAudioDevice>& device, AudioStreamID streamID)
{
    return std::make_shared<Implementation>(device, device ? streamID : kAudioStreamUnknown);
}

OSStatus QMXAudioStream::lastStatus() const
{
    return failure().status();
}

std::string QMXAudioStream::lastError() const
{
    return failure().sentence();
}

qmx::PropertyBlock QMXAudioStream::read(UInt32 channel, AudioStreamPropertyID propertyID) const
{
    const qmx::LastFailure::Operation operation(failure());
    UInt32 size = 0;
    qmx::PropertyBlock value;
    OSStatus status = AudioStreamGetPropertyInfo(streamID(), channel, propertyID, &size, nullptr);
    if (status == noErr) {
        value = qmx::allocatePropertyBlock(size);
        status = value.block ? AudioStreamGetProperty(streamID(), channel, propertyID, &value.size, value.block.get())
                             : OSStatus{memFullErr};
    }
    if (status == noErr)
        return value;
    const auto device = owningDevice();
    const auto name = device ? device->name() : std::nullopt;
    failure().keepFirst(
        status, qmx::format("Stream %u of %@", streamID(), name.value_or(qmx::format("device %u", owningDeviceID()))),
        "could not give its " + QMXAudioDeviceUtils::propertyName(propertyID));
    return {};
}

/// What failed in the device's own operation is the stream's failure too.
template <class Value> Value QMXAudioStream::ofDevice(Value (QMXAudioDevice::*give)(bool isInput) const) const
{
    const auto device = owningDevice();
    if (!device)
        return {};
    const bool isInput = streamDirection() == 1;
    Value value = (device.get()->*give)(isInput);
    failure().keepFirstOf(*device);
    return value;
}

AudioDeviceID QMXAudioStream::owningDeviceID() const
{
    const auto device = owningDevice();
    return device ? device->deviceID() : kAudioDeviceUnknown;
}

UInt32 QMXAudioStream::startingChannel() const
{
    return read(0, kAudioStreamPropertyStartingChannel).first<UInt32>();
}

UInt32 QMXAudioStream::streamDirection() const
{
    const qmx::LastFailure::Operation operation(failure());
    return read(startingChannel(), kAudioStreamPropertyDirection).first<UInt32>();
}

UInt32 QMXAudioStream::terminalType() const
{
    const qmx::LastFailure::Operation operation(failure());
    return read(startingChannel(), kAudioStreamPropertyTerminalType).first<UInt32>();
}

UInt32 QMXAudioStream::numberOfChannels() const
{
    const qmx::LastFailure::Operation operation(failure());
    return ofDevice(&QMXAudioDevice::numberOfChannels);
}

std::shared_ptr<QMXAudioStreamBasicDescription> QMXAudioStream::physicalFormat() const
{
    const qmx::LastFailure::Operation operation(failure());
    const auto value = read(startingChannel(), kAudioStreamPropertyPhysicalFormat);
    return QMXAudioStreamBasicDescription::initWithAudioStreamBasicDescription(
        static_cast<const AudioStreamBasicDescription*>(value.block.get()));
}

QMXAudioStream::Formats QMXAudioStream::physicalFormats() const
{
    const qmx::LastFailure::Operation operation(failure());
    Formats formats;
    const auto value = read(startingChannel(), kAudioStreamPropertyPhysicalFormats);
    for (const auto& record : value.entries<AudioStreamBasicDescription>())
        formats.push_back(std::make_shared<QMXAudioStreamBasicDescription>(record));
    return formats;
}

QMXAudioStream::Formats QMXAudioStream::expandedPhysicalFormats() const
{
    const qmx::LastFailure::Operation operation(failure());
    Formats formats = physicalFormats();
    if (std::ranges::none_of(formats, isForAllRates))
        return formats;
    Formats ofOneRate, expanded;
    std::set<AudioStreamBasicDescription, decltype(&comesBefore)> made(comesBefore);
    const auto rates = ratesWithin(ofDevice(&QMXAudioDevice::availableNominalSampleRates));
    for (const auto& format : formats) {
        if (!isForAllRates(format)) {
            ofOneRate.push_back(format);
            continue;
        }
        AudioStreamBasicDescription record = *format->audioStreamBasicDescription();
        for (const Float64 rate : rates) {
            record.mSampleRate = rate;
            if (made.insert(record).second)
                expanded.push_back(std::make_shared<QMXAudioStreamBasicDescription>(record));
        }
    }
    ofOneRate.insert(ofOneRate.end(), expanded.begin(), expanded.end());
    return ofOneRate;
}
