// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/PipeWire/PipeWireDevice.h"

#include "CoreAudio/HAL/MonotonicClock.h"

#include <algorithm>

namespace qmx::pipewire
{
namespace
{

template <class... Functions> struct Overloaded : Functions... {
    using Functions::operator()...;
};
template <class... Functions> Overloaded(Functions...) -> Overloaded<Functions...>;

bool offers(const DeviceDescription& description, Float64 rate)
{
    return std::ranges::any_of(description.availableSampleRates, [rate](const AudioValueRange& range) {
        return range.mMinimum <= rate && rate <= range.mMaximum;
    });
}

} // namespace

PipeWireDevice::PipeWireDevice(Connection& connection, Housekeeping& housekeeping, std::string key,
                               RequestedSettings& requested)
    : connection_(connection), housekeeping_(housekeeping), key_(std::move(key)), requested_(requested)
{
}

OSStatus PipeWireDevice::perform(const DeviceRequest& request)
{
    const Connection::Lock lock(connection_);
    return std::visit(
        Overloaded{[this](const SetSampleRate& rate) { return setRate(rate.rate); },
                   [this](const SetBufferFrameSize& size) { return setFrames(size.frames); },
                   [this](const SetVolume& volume) {
                       return setLevels(volume.isInput, volume.channel, [&](Levels& levels, UInt32 channels) {
                           if (volume.channel == 0) {
                               levels = {.master = volume.scalar, .channels = {}, .isMuted = {}};
                               return;
                           }
                           std::vector<float> all = levels.channels;
                           all.resize(channels, all.empty() ? 1.0F : all.back());
                           all[volume.channel - 1] = volume.scalar;
                           levels = {.master = {}, .channels = std::move(all), .isMuted = {}};
                       });
                   },
                   [this](const SetMute& mute) {
                       return setLevels(mute.isInput, 0, [&](Levels& levels, UInt32) {
                           levels = {.master = {}, .channels = {}, .isMuted = mute.isMuted};
                       });
                   },
                   [this](const SetDataSource& source) { return setSource(source.isInput, source.id); },
                   [this](const SetPhysicalFormat& format) { return setFormat(format); },
                   [](const SetRawProperty&) -> OSStatus { return kAudioHardwareUnsupportedOperationError; }},
        request);
}

OSStatus PipeWireDevice::setRate(Float64 rate)
{
    requested_.rate = static_cast<UInt32>(rate);
    askRun();
    return noErr;
}

OSStatus PipeWireDevice::setFrames(UInt32 frames)
{
    requested_.frames = frames;
    askRun();
    return noErr;
}

// A card's hardware mixer can only be reached through the current route.
OSStatus PipeWireDevice::setLevels(bool isInput, UInt32 channel, const std::function<void(Levels&, UInt32)>& edit)
{
    const auto found = find();
    if (!found || !connection_.isConnected())
        return kAudioHardwareBadDeviceError;
    const ServerState& state = connection_.state();
    const UInt32 channels = numberOfChannels(found->description.section(isInput));
    if (channel > channels) // lost since the request was checked
        return kAudioHardwareUnknownPropertyError;
    const auto place = routePlace(state, found->node, isInput);
    if (place && place->current && !place->current->levels.channels.empty()) {
        Levels levels = place->current->levels;
        const std::int32_t route = place->current->index;
        edit(levels, channels);
        return connection_.objects()->setRoute(place->card, route, place->profileDevice, levels)
                   ? noErr
                   : kAudioHardwareBadDeviceError;
    }
    Levels levels = state.nodes.at(found->node).levels;
    edit(levels, channels);
    return connection_.objects()->setNodeLevels(found->node, levels) ? noErr : kAudioHardwareBadDeviceError;
}

OSStatus PipeWireDevice::setSource(bool isInput, UInt32 id)
{
    const auto found = find();
    if (!found || !connection_.isConnected())
        return kAudioHardwareBadDeviceError;
    const auto place = routePlace(connection_.state(), found->node, isInput);
    if (!place)
        return kAudioHardwareUnsupportedOperationError;
    for (const Route& route : connection_.state().cards.at(place->card).routes)
        if (dataSourceOf(route.index) == id && serves(route, place->profileDevice, isInput))
            return connection_.objects()->setRoute(place->card, route.index, place->profileDevice, {})
                       ? noErr
                       : kAudioHardwareBadDeviceError;
    return kAudioHardwareIllegalOperationError;
}

// Only the rate can be set: the server chooses the hardware's sample layout by itself.
OSStatus PipeWireDevice::setFormat(const SetPhysicalFormat& request)
{
    const auto found = find();
    if (!found)
        return kAudioHardwareBadDeviceError;
    const auto& streams = found->description.section(request.isInput).streams;
    if (request.stream >= streams.size()) // lost since the request was checked
        return kAudioHardwareBadStreamError;
    const AudioStreamBasicDescription& present = streams[request.stream].physicalFormat;
    if (request.format.mBitsPerChannel != present.mBitsPerChannel ||
        request.format.mFormatFlags != present.mFormatFlags)
        return kAudioHardwareUnsupportedOperationError;
    return setRate(request.format.mSampleRate);
}

void PipeWireDevice::askRun()
{
    if (const auto wanted = runRequest(); wanted && run_)
        run_->ask(*wanted);
    housekeeping_.wake();
}

std::optional<FoundDevice> PipeWireDevice::find() const
{
    std::vector<FoundDevice> devices = foundDevices(connection_.state());
    const auto found = std::ranges::find(devices, key_, &FoundDevice::key);
    if (found == devices.end())
        return {};
    return std::move(*found);
}

// A requested rate counts while the server offers it.
Float64 PipeWireDevice::rateFor(const DeviceDescription& description) const
{
    if (requested_.rate && offers(description, *requested_.rate))
        return *requested_.rate;
    return clock_ ? clock_->read().rate : description.nominalSampleRate;
}

// The numbers of channels stay the same from start to stop.
std::optional<RunRequest> PipeWireDevice::runRequest() const
{
    auto found = find();
    if (!found)
        return {};
    if (io_) {
        found->playbackPorts.resize(channels_[0]);
        found->capturePorts.resize(channels_[1]);
    }
    const DeviceDescription& device = found->description;
    const auto rate = static_cast<UInt32>(rateFor(device));
    return RunRequest{.name = device.name,
                      .capturePorts = std::move(found->capturePorts),
                      .playbackPorts = std::move(found->playbackPorts),
                      .inputLatency = device.input.latency,
                      .outputLatency = device.output.latency,
                      .rate = rate,
                      .forcesRate = requested_.rate == rate,
                      .frames = requested_.frames.value_or(device.bufferFrameSize),
                      .mostFrames = std::max(device.maximumBufferFrameSize, 8192U),
                      .resumed = clock_ ? std::optional(clock_->read()) : std::nullopt};
}

OSStatus PipeWireDevice::startIO(const std::shared_ptr<DeviceIO>& io, const DeviceDescription& description)
{
    std::optional<RunRequest> wanted;
    {
        const Connection::Lock lock(connection_);
        wanted = runRequest();
    }
    if (!wanted)
        return kAudioHardwareBadDeviceError;
    const UInt32 channels[] = {numberOfChannels(description.output), numberOfChannels(description.input)};
    wanted->playbackPorts.resize(channels[0]);
    wanted->capturePorts.resize(channels[1]);
    wanted->rate = static_cast<UInt32>(description.nominalSampleRate);
    auto run = std::make_shared<FilterRun>(connection_, io, signals_, [this_ = &housekeeping_] { this_->wake(); });
    if (const OSStatus status = run->start(*wanted))
        return status;
    const Connection::Lock lock(connection_);
    ++startCount_;
    io_ = io;
    std::ranges::copy(channels, channels_);
    take(std::move(run));
    return noErr;
}

void PipeWireDevice::take(std::shared_ptr<FilterRun> run)
{
    if (run_) {
        run_->close();
        housekeeping_.dispose(std::move(run_));
    }
    {
        const std::scoped_lock lock(clockMutex_);
        clock_ = run ? run->clock() : nullptr;
    }
    run_ = std::move(run);
    housekeeping_.wake();
}

void PipeWireDevice::stopIO()
{
    const Connection::Lock lock(connection_);
    ++startCount_;
    io_ = nullptr;
    take(nullptr);
}

OSStatus PipeWireDevice::currentTime(AudioTimeStamp& time)
{
    std::shared_ptr<const RunClock> clock;
    {
        const std::scoped_lock lock(clockMutex_);
        clock = clock_;
    }
    if (!clock)
        return kAudioHardwareNotRunningError;
    const ClockReading cycle = clock->read();
    const UInt64 now = monotonicTime();
    time.mHostTime = now;
    time.mSampleTime =
        cycle.sampleTime + static_cast<Float64>(static_cast<SInt64>(now - cycle.hostTime)) * cycle.rate * 1e-9;
    time.mRateScalar = 1;
    time.mFlags = kAudioTimeStampSampleHostTimeValid | kAudioTimeStampRateScalarValid;
    return noErr;
}

void PipeWireDevice::complete(DeviceDescription& description) const
{
    if (requested_.frames)
        description.bufferFrameSize =
            std::clamp(*requested_.frames, description.minimumBufferFrameSize, description.maximumBufferFrameSize);
    const Float64 rate = clock_ ? clock_->read().rate : rateFor(description);
    description.nominalSampleRate = description.actualSampleRate = rate;
    for (const bool isInput : {true, false})
        for (StreamDescription& stream : description.section(isInput).streams)
            stream.physicalFormat.mSampleRate = rate;
    if (!offers(description, rate))
        description.availableSampleRates.push_back({rate, rate});
}

bool PipeWireDevice::mend()
{
    std::optional<RunRequest> wanted;
    std::shared_ptr<DeviceIO> io;
    std::shared_ptr<FilterRun> old;
    UInt64 start = 0;
    {
        const Connection::Lock lock(connection_);
        wanted = io_ ? runRequest() : std::nullopt;
        if (!wanted || (run_ && run_->serves(*wanted)))
            return true;
        connection_.settle(); // an unplugged device loses its links first
        connection_.waitUntil([this] { return !connection_.isConnected() || connection_.isSettled(); });
        wanted = io_ ? runRequest() : std::nullopt;
        if (!wanted)
            return true;
        io = io_;
        start = startCount_;
        old = std::move(run_);
        if (old)
            old->close();
    }
    old.reset(); // the server links no second filter to ports that the first is still linked to
    auto run = std::make_shared<FilterRun>(connection_, io, signals_, [this_ = &housekeeping_] { this_->wake(); });
    if (run->start(*wanted))
        return false;
    const Connection::Lock lock(connection_);
    if (start == startCount_)
        take(std::move(run));
    else
        housekeeping_.dispose(std::move(run));
    return true;
}

std::vector<bool> PipeWireDevice::takeOverload()
{
    const Connection::Lock lock(connection_);
    std::vector<bool> directions;
    if (!signals_->isOverloaded.exchange(false))
        return directions;
    for (const bool isInput : {true, false})
        if (channels_[isInput] > 0)
            directions.push_back(isInput);
    return directions;
}

} // namespace qmx::pipewire
