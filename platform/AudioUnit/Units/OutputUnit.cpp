// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/OutputUnit.h"

#include "AudioUnit/Units/ConverterEngine.h"
#include "AudioUnit/Units/PropertyValue.h"
#include "CoreAudioTypes/AudioBuffers.h"
#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace qmx
{
namespace
{

constexpr UnitPropertyAddress running{kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global, 0};
constexpr UnitPropertyAddress currentDevice{kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, 0};

void applyGain(Float32 gain, const AudioBuffer& buffer)
{
    auto* const samples = static_cast<Float32*>(buffer.mData);
    if (gain == 0)
        std::memset(buffer.mData, 0, buffer.mDataByteSize);
    else if (gain != 1)
        std::transform(samples, samples + buffer.mDataByteSize / sizeof(Float32), samples,
                       [gain](Float32 sample) { return sample * gain; });
}

} // namespace

const Unit::ParameterRange OutputUnit::volume{.id = kHALOutputParam_Volume, .minimum = 0, .maximum = 1, .initial = 1};

OutputUnit::OutputUnit(bool hasInput)
    : Unit({.inputs = hasInput ? 2U : 1U, .outputs = hasInput ? 2U : 1U}, {&volume, 1}), hasInput_(hasInput)
{
}

OutputUnit::~OutputUnit()
{
    delete inputCallback_.load();
}

OSStatus OutputUnit::initialise()
{
    if (!isInitialised())
        capturedTime_.store(0);
    if (way_.directions().input && !isInitialised()) {
        UInt32 frames = 0, size = sizeof frames;
        const OSStatus status = way_.read(true, kAudioDevicePropertyBufferFrameSize, size, &frames);
        sliceFrames_.store(status == noErr ? frames : 0); // without a device as they come
    }
    return Unit::initialise();
}

OSStatus OutputUnit::uninitialise()
{
    const OSStatus status = Unit::uninitialise(); // first, so that no start succeeds after the stop
    stop();
    return status;
}

OSStatus OutputUnit::makeEngine(UInt32 bus, std::unique_ptr<RenderEngine>& engine)
{
    const Directions used = way_.directions();
    if (!(bus == 0 ? used.output : used.input))
        return noErr;
    const AudioStreamBasicDescription &from = input(bus).format, &to = outputFormat(bus);
    const ChannelRoutes routes = maps_[bus].routes(from.mChannelsPerFrame, to.mChannelsPerFrame);
    if (bus == 1) {
        const UInt32 limit = sliceFrames_.load();
        const UInt32 slice = limit > 0 ? std::min(limit, maximumFrames()) : maximumFrames();
        return CaptureEngine::make({from, to, routes}, maximumFrames(), slice, capturedTime_, engine);
    }
    ConverterEngine::Conversion conversion = ConverterEngine::between(from, to);
    conversion.routes = routes;
    if (input(0).isConnected)
        conversion.ratio.reset();
    return ConverterEngine::make(input(0), 0, conversion, maximumFrames(), engine);
}

/// With output off the client's two formats are one: element 0 mirrors element 1.
void OutputUnit::coupleFormats(AudioUnitScope scope, AudioUnitElement)
{
    if (!way_.directions().output && scope == kAudioUnitScope_Input)
        outputFormat(1) = input(0).format;
    followFormats();
}

void OutputUnit::followFormats()
{
    const Directions used = way_.directions();
    if (!used.output)
        input(0).format = outputFormat(1);
    const bool knowsDevice = knowsDevice_.load();
    outputFormat(0) = knowsDevice && used.output ? device_.outputFormat() : input(0).format;
    if (hasInput_)
        input(1).format = knowsDevice && used.input ? device_.inputFormat() : outputFormat(1);
}

/// Makes the device sides follow a device, or none if it is unknown. On failure nothing changes. Under the control
/// lock.
OSStatus OutputUnit::adopt(const UsedDevice& device)
{
    if (device == device_)
        return noErr;
    const auto set = [this](const UsedDevice& next) {
        device_ = next;
        knowsDevice_.store(next.id != kAudioDeviceUnknown);
        followFormats();
    };
    const UsedDevice old = device_;
    set(device);
    UsedDevice renamed = old;
    renamed.id = device.id;
    if (renamed != device) { // otherwise the engines go on undisturbed
        if (const OSStatus status = remakeEngines(); status != noErr) {
            set(old);
            return status;
        }
        noteChange({kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0});
        if (hasInput_)
            noteChange({kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 1});
    }
    if (old.id != device.id)
        noteChange(currentDevice);
    return noErr;
}

OSStatus OutputUnit::start()
{
    if (!mayWait())
        return kAudioUnitErr_CannotDoInCurrentContext;
    if (!isInitialised())
        return kAudioUnitErr_Uninitialized;
    wantsToRun_.store(true);
    const OSStatus status = resume(false);
    if (status != noErr)
        wantsToRun_.store(false);
    return status;
}

OSStatus OutputUnit::stop()
{
    wantsToRun_.store(false);
    halt();
    if (!mayWait())
        return noErr;
    {
        const std::scoped_lock lock(starting_); // a start in progress may not have seen the stop
    }
    halt();
    way_.waitUntilStopped();
    tellRunning();
    return noErr;
}

/// Stops without changing `wantsToRun_`; returns whether it was running.
bool OutputUnit::halt()
{
    const bool wasRunning = isRunning_.exchange(false);
    way_.stop();
    return wasRunning;
}

/// Calls the listeners if it has started or stopped since they were last called. With no lock held.
void OutputUnit::tellRunning()
{
    const bool runs = isRunning();
    if (isToldRunning_.exchange(runs) != runs)
        (void)withinMemory([this] { tell(running); }); // nobody is told without memory for it
}

/// Starts on the current device, unless it runs already. A run that replaces another one tells of the frames that were
/// lost between them. With no lock held.
OSStatus OutputUnit::resume(bool replacesRun)
{
    way_.waitUntilStopped(); // for the rest of a stop on a real-time thread
    OSStatus status = noErr;
    {
        Replacement replacement = afterRenders();
        status = startOnDevice(replacement, replacesRun);
    }
    if (!wantsToRun_.load())
        halt(); // stopped meanwhile
    tellChanges();
    tellRunning();
    return status;
}

OSStatus OutputUnit::startOnDevice(Replacement& replacement, bool replacesRun)
{
    const std::scoped_lock lock(starting_);
    if (isRunning() || !wantsToRun_.load())
        return noErr;
    if (!isInitialised())
        return kAudioUnitErr_Uninitialized;
    const std::shared_ptr<CycleClient> client(shared_from_this(), this);
    UsedDevice device;
    UInt32 frames = 0;
    OSStatus status = controlLocked(
        [&] {
            frames = maximumFrames();
            const OSStatus found = way_.examine(way_.watch(client), device);
            return found == noErr ? adopt(device) : found;
        },
        replacement);
    if (status != noErr)
        return status;
    isRunning_.store(true);
    if (!replacesRun) {
        capturedUntil_.store(0);
        renderedUntil_.store(0);
    }
    status = way_.start(device, client, frames, {capturedUntil_.load(), renderedUntil_.load()});
    if (status != noErr)
        isRunning_.store(false);
    return status;
}

void OutputUnit::deviceChanged()
{
    if (!wantsToRun_.load() || isOnCurrentDevice())
        return;
    const bool replacesRun = halt();
    (void)resume(replacesRun); // the listeners learn whether it runs
}

/// Whether it runs on the device that it should run on, and with that device's current rate and channels.
bool OutputUnit::isOnCurrentDevice()
{
    const std::scoped_lock lock(starting_); // a start in progress may have looked before the change
    UsedDevice device;
    Replacement nothing = afterRenders();
    const OSStatus status = controlLocked(
        [&] {
            const OSStatus found = way_.examine(way_.device(), device);
            return found != noErr || device == device_ ? found : kAudioHardwareBadDeviceError;
        },
        nothing);
    return status == noErr && isRunning();
}

void OutputUnit::captureCycle(const CapturedFrames& captured)
{
    if (!isRunning() || !isInitialised())
        return;
    const Publication::Reader reader = rendering();
    auto* const capture = static_cast<CaptureEngine*>(engine(1));
    if (!capture)
        return;
    capture->take(captured);
    capturedUntil_.store(captured.endHostTime);
    if (const AURenderCallbackStruct* const callback = inputCallback_.load())
        offer(*capture, *callback);
}

/// Calls back for each slice of what was captured; what the callback leaves of it is gone.
void OutputUnit::offer(CaptureEngine& capture, const AURenderCallbackStruct& callback) const
{
    const CallbackScope scope;
    while (isRunning() && capture.offered() > 0) {
        const UInt32 frames = capture.offered();
        const std::size_t others = capture.left() - frames;
        const AudioTimeStamp time = capture.time();
        AudioUnitRenderActionFlags flags = 0;
        callback.inputProc(callback.inputProcRefCon, &flags, &time, 1, frames, nullptr);
        capture.keepLast(others);
    }
}

void OutputUnit::renderCycle(const RenderedFrames& rendered)
{
    if (!isRunning() || !isInitialised())
        return;
    if (rendered.lostFrames > 0) {
        const Publication::Reader reader = rendering();
        if (RenderEngine* const current = engine(0))
            current->skip(rendered.lostFrames);
    }
    renderedUntil_.store(rendered.endHostTime);
    AudioUnitRenderActionFlags flags = 0;
    render({flags, rendered.time, 0, rendered.frames}, rendered.data, &rendered.layout);
    Float32 gain = 1;
    parameter(kHALOutputParam_Volume, kAudioUnitScope_Global, gain);
    if (!isRunning()) // a stop inside the callback silences its slice
        gain = 0;
    for (const AudioBuffer& buffer : buffersOf(rendered.data))
        applyGain(gain, buffer);
}

/// Four-character codes are the device's; the unit's own are small numbers. Without a device the nominal rate is the
/// client's.
bool OutputUnit::isOfDevice(AudioUnitPropertyID property) const
{
    constexpr AudioUnitPropertyID lowestCode = 1U << 24;
    return property >= lowestCode && (property != kAudioDevicePropertyNominalSampleRate || knowsDevice_.load());
}

/// Which section of the device answers.
bool OutputUnit::isOfInput(const UnitPropertyAddress& address) const
{
    return address.element == 1 || !way_.directions().output;
}

OSStatus OutputUnit::propertyInfo(const UnitPropertyAddress& address, UInt32* size, Boolean* isWritable) const
{
    return isOfDevice(address.id) ? way_.propertyInfo(isOfInput(address), address.id, size, isWritable)
                                  : Unit::propertyInfo(address, size, isWritable);
}

OSStatus OutputUnit::property(const UnitPropertyAddress& address, void* value, UInt32& size)
{
    return isOfDevice(address.id) ? way_.read(isOfInput(address), address.id, size, value)
                                  : Unit::property(address, value, size);
}

OSStatus OutputUnit::setProperty(const UnitPropertyAddress& address, const void* value, UInt32 size)
{
    if (isOfDevice(address.id))
        return way_.write(isOfInput(address), address.id, size, value);
    if (address.id != kAudioOutputUnitProperty_CurrentDevice)
        return Unit::setProperty(address, value, size);
    if (!mayWait())
        return kAudioUnitErr_CannotDoInCurrentContext;
    if (!changesDevice(value, size)) // the sound goes on
        return Unit::setProperty(address, value, size);
    const bool replacesRun = halt();
    const OSStatus status = Unit::setProperty(address, value, size);
    const OSStatus startStatus = wantsToRun_.load() ? resume(replacesRun) : noErr;
    tellRunning();
    return status != noErr ? status : startStatus;
}

/// Whether naming a device changes what the unit runs on: it is refused for one that cannot be used, and does nothing
/// for the one that it runs on.
bool OutputUnit::changesDevice(const void* value, UInt32 size)
{
    if (size != sizeof(AudioDeviceID))
        return false;
    const auto id = valueAs<AudioDeviceID>(value);
    UsedDevice device;
    if (id == kAudioDeviceUnknown)
        return true;
    return way_.examine(id, device) == noErr && !(way_.device() == id && isOnCurrentDevice());
}

OSStatus OutputUnit::shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const
{
    const AudioUnitScope deviceScope = address.element == 1 ? kAudioUnitScope_Input : kAudioUnitScope_Output;
    const bool isDevices = address.scope == deviceScope;
    OSStatus status = noErr;
    switch (address.id) {
    case kAudioOutputUnitProperty_IsRunning:
        shape = {.size = sizeof(UInt32)};
        return noErr;
    case kAudioOutputUnitProperty_CurrentDevice:
        shape = {.size = sizeof(AudioDeviceID), .isWritable = true};
        return noErr;
    case kAudioDevicePropertyNominalSampleRate:
        shape = {.size = sizeof(Float64)};
        return noErr;
    case kAudioOutputUnitProperty_SetInputCallback:
        return hasInput_ ? ofUnit(address, {sizeof(AURenderCallbackStruct), true, false}, shape)
                         : kAudioUnitErr_InvalidProperty;
    case kAudioOutputUnitProperty_EnableIO:
    case kAudioOutputUnitProperty_HasIO:
        shape = {.size = sizeof(UInt32), .isWritable = hasInput_ && address.id == kAudioOutputUnitProperty_EnableIO};
        status = ofElement(address, shape, shape);
        return status == noErr && !isDevices ? kAudioUnitErr_InvalidElement : status;
    case kAudioOutputUnitProperty_ChannelMap:
        if (address.scope != kAudioUnitScope_Output)
            return kAudioUnitErr_InvalidScope;
        status = ofElement(address, {.isWritable = true}, shape);
        if (status == noErr)
            shape.size = ChannelMap::size(outputFormat(address.element).mChannelsPerFrame);
        return status;
    default:
        break;
    }
    status = Unit::shapeOf(address, shape);
    const bool isSource =
        address.id == kAudioUnitProperty_SetRenderCallback || address.id == kAudioUnitProperty_MakeConnection;
    if (status == noErr && isSource && address.element == 1)
        return kAudioUnitErr_InvalidElement; // the device feeds it
    const bool isFormat = address.id == kAudioUnitProperty_StreamFormat || address.id == kAudioUnitProperty_SampleRate;
    if (isFormat && isDevices)
        shape.isWritable = false;
    return status;
}

/// Of the side that the client hears or feeds.
const AudioStreamBasicDescription& OutputUnit::clientFormat() const
{
    return way_.directions().output ? input(0).format : outputFormat(1);
}

OSStatus OutputUnit::read(const UnitPropertyAddress& address, void* value) const
{
    const bool isInput = address.element == 1;
    switch (address.id) {
    case kAudioOutputUnitProperty_CurrentDevice:
        return answer(value, way_.device());
    case kAudioDevicePropertyNominalSampleRate:
        return answer(value, clientFormat().mSampleRate);
    case kAudioOutputUnitProperty_EnableIO:
        return answer(value, UInt32{isInput ? way_.directions().input : way_.directions().output});
    case kAudioOutputUnitProperty_HasIO:
        return answer(value, UInt32{way_.has(isInput)});
    case kAudioOutputUnitProperty_ChannelMap:
        return maps_[address.element].read(input(address.element).format.mChannelsPerFrame,
                                           outputFormat(address.element).mChannelsPerFrame, value);
    default:
        return Unit::read(address, value);
    }
}

OSStatus OutputUnit::write(const UnitPropertyAddress& address, const void* value)
{
    switch (address.id) {
    case kAudioOutputUnitProperty_CurrentDevice:
        return setDevice(valueAs<AudioDeviceID>(value));
    case kAudioOutputUnitProperty_EnableIO:
        return setDirection(address.element == 1, valueAs<UInt32>(value) != 0);
    case kAudioOutputUnitProperty_ChannelMap:
        return setChannelMap(address.element, value);
    case kAudioOutputUnitProperty_SetInputCallback: {
        auto callback = std::make_unique<AURenderCallbackStruct>(valueAs<AURenderCallbackStruct>(value));
        const bool isOne = callback->inputProc != nullptr;
        replace(inputCallback_, std::unique_ptr<const AURenderCallbackStruct>(isOne ? std::move(callback) : nullptr));
        noteChange(address);
        return noErr;
    }
    default:
        return Unit::write(address, value);
    }
}

OSStatus OutputUnit::setDirection(bool isInput, bool isUsed)
{
    if (isInitialised())
        return kAudioUnitErr_Initialized;
    Directions used = way_.directions();
    (isInput ? used.input : used.output) = isUsed;
    if (used == way_.directions())
        return noErr;
    way_.use(used);
    UsedDevice device; // without the direction it is not this unit's any more: a start says so
    const AudioDeviceID named = way_.named();
    if (way_.examine(named == kAudioDeviceUnknown ? device_.id : named, device) != noErr)
        device = {};
    noteChange({kAudioOutputUnitProperty_EnableIO, isInput ? kAudioUnitScope_Input : kAudioUnitScope_Output,
                isInput ? 1U : 0U});
    followFormats();
    return adopt(device);
}

OSStatus OutputUnit::setChannelMap(UInt32 element, const void* value)
{
    ChannelMap next;
    const OSStatus status =
        next.set(input(element).format.mChannelsPerFrame, outputFormat(element).mChannelsPerFrame, value);
    return status == noErr ? remakeWith(maps_[element], std::move(next),
                                        {kAudioOutputUnitProperty_ChannelMap, kAudioUnitScope_Output, element})
                           : status;
}

OSStatus OutputUnit::setDevice(AudioDeviceID id)
{
    UsedDevice device; // the default one is looked up at the start
    OSStatus status = id == kAudioDeviceUnknown ? noErr : way_.examine(id, device);
    if (status == noErr)
        status = adopt(device);
    if (status != noErr)
        return status;
    way_.name(id);
    if (id == kAudioDeviceUnknown || isInitialised())
        return noErr;
    input(0).format.mSampleRate = device.sampleRate;
    noteChange({kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0});
    if (hasInput_) {
        outputFormat(1).mSampleRate = device.sampleRate;
        noteChange({kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 1});
    }
    followFormats();
    return noErr;
}

std::optional<UInt32> OutputUnit::liveValue(const UnitPropertyAddress& address)
{
    return address.id == kAudioOutputUnitProperty_IsRunning ? std::optional<UInt32>(isRunning())
                                                            : Unit::liveValue(address);
}

} // namespace qmx
