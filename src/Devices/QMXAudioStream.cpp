// SPDX-License-Identifier: MIT
#include "Devices/QMXAudioStream.h"

#include "Devices/QMXAudioDevice.h"
#include "Formats/PropertyBlock.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXAudioValueRange.h"

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
    std::shared_ptr<QMXAudioDevice> _owningDevice;
    AudioStreamID _streamID;
};

std::shared_ptr<QMXAudioStream>
QMXAudioStream::initWithAudioDevice_streamID(const std::shared_ptr<QMXAudioDevice>& device, AudioStreamID streamID)
{
    return std::make_shared<Implementation>(device, device ? streamID : kAudioStreamUnknown);
}

qmx::PropertyBlock QMXAudioStream::read(UInt32 channel, AudioStreamPropertyID propertyID) const
{
    UInt32 size = 0;
    if (AudioStreamGetPropertyInfo(streamID(), channel, propertyID, &size, nullptr) != noErr)
        return {};
    auto value = qmx::allocatePropertyBlock(size);
    if (AudioStreamGetProperty(streamID(), channel, propertyID, &value.size, value.block.get()) != noErr)
        return {};
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
    return read(startingChannel(), kAudioStreamPropertyDirection).first<UInt32>();
}

UInt32 QMXAudioStream::terminalType() const
{
    return read(startingChannel(), kAudioStreamPropertyTerminalType).first<UInt32>();
}

UInt32 QMXAudioStream::numberOfChannels() const
{
    const auto device = owningDevice();
    return device ? device->numberOfChannels(isInput()) : 0;
}

std::shared_ptr<QMXAudioStreamBasicDescription> QMXAudioStream::physicalFormat() const
{
    const auto value = read(startingChannel(), kAudioStreamPropertyPhysicalFormat);
    return QMXAudioStreamBasicDescription::initWithAudioStreamBasicDescription(
        static_cast<const AudioStreamBasicDescription*>(value.block.get()));
}

QMXAudioStream::Formats QMXAudioStream::physicalFormats() const
{
    Formats formats;
    const auto value = read(startingChannel(), kAudioStreamPropertyPhysicalFormats);
    for (const auto& record : value.entries<AudioStreamBasicDescription>())
        formats.push_back(std::make_shared<QMXAudioStreamBasicDescription>(record));
    return formats;
}

QMXAudioStream::Formats QMXAudioStream::expandedPhysicalFormats() const
{
    Formats formats = physicalFormats();
    const auto device = owningDevice();
    if (!device || std::ranges::none_of(formats, isForAllRates))
        return formats;
    Formats ofOneRate, expanded;
    std::set<AudioStreamBasicDescription, decltype(&comesBefore)> made(comesBefore);
    const auto rates = ratesWithin(device->availableNominalSampleRates(isInput()));
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
