// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/Unit.h"

#include "AudioUnit/Units/UnitInstance.h"
#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

namespace qmx
{

constinit const AudioStreamBasicDescription canonicalFormat{.mSampleRate = 44100,
                                                            .mFormatID = kAudioFormatLinearPCM,
                                                            .mFormatFlags = kAudioFormatFlagsAudioUnitCanonical,
                                                            .mBytesPerPacket = 4,
                                                            .mFramesPerPacket = 1,
                                                            .mBytesPerFrame = 4,
                                                            .mChannelsPerFrame = 2,
                                                            .mBitsPerChannel = 32};

namespace
{

/// Compares two formats without their byte counts, which follow from the rest.
bool hasSameMeaning(const AudioStreamBasicDescription& one, const AudioStreamBasicDescription& other)
{
    const auto meaning = [](const AudioStreamBasicDescription& format) {
        return std::tie(format.mSampleRate, format.mFormatID, format.mFormatFlags, format.mChannelsPerFrame,
                        format.mBitsPerChannel);
    };
    return meaning(one) == meaning(other);
}

} // namespace

Unit::Unit(Elements elements, std::span<const ParameterRange> parameters)
    : inputs_(elements.inputs), buses_(elements.outputs)
{
    for (InputElement& element : inputs_)
        element.format = canonicalFormat;
    for (Bus& bus : buses_)
        bus.format = canonicalFormat;
    for (const ParameterRange& range : parameters)
        parameters_.emplace_back(range);
}

Unit::~Unit()
{
    for (Bus& bus : buses_)
        delete bus.engine.load();
    for (InputElement& element : inputs_)
        delete element.source.load();
    delete notifies_.load();
}

OSStatus Unit::control(const std::function<OSStatus()>& work)
{
    OSStatus status = noErr;
    {
        Replacement replacement = afterRenders();
        status = controlLocked(work, replacement);
    }
    tellChanges();
    return status;
}

OSStatus Unit::controlLocked(const std::function<OSStatus()>& work, Replacement& replacement)
{
    const std::scoped_lock lock(control_);
    replacement_ = &replacement;
    return withinMemory(kAudio_MemFullError, work);
}

void Unit::tellChanges()
{
    std::vector<UnitPropertyAddress> changes;
    {
        const std::scoped_lock lock(control_);
        changes.swap(changes_);
    }
    for (const UnitPropertyAddress& change : changes)
        tell(change);
}

OSStatus Unit::initialise()
{
    return control([this] {
        if (isInitialised())
            return noErr;
        for (InputElement& element : inputs_)
            element.position = 0;
        isInitialised_.store(true);
        const OSStatus status = remakeEngines();
        if (status != noErr)
            isInitialised_.store(false);
        return status;
    });
}

OSStatus Unit::uninitialise()
{
    return control([this] {
        isInitialised_.store(false);
        for (Bus& bus : buses_)
            replacement_->replace(bus.engine, std::unique_ptr<RenderEngine>());
        return noErr;
    });
}

OSStatus Unit::reset()
{
    return control([this] {
        for (const Bus& bus : buses_)
            if (RenderEngine* const engine = bus.engine.load())
                engine->requestRestart();
        return noErr;
    });
}

void Unit::close()
{
    uninitialise();
    control([this] {
        for (UInt32 element = 0; element < inputs_.size(); ++element)
            setInput(element, inputs_[element].format, nullptr);
        return noErr;
    });
    renders_.waitForReaders();
    listeners_.clear();
}

OSStatus Unit::remakeEngines()
{
    if (!isInitialised())
        return noErr;
    return withinMemory(kAudio_MemFullError, [this] {
        std::vector<std::unique_ptr<RenderEngine>> engines(buses_.size());
        for (UInt32 bus = 0; bus < buses_.size(); ++bus)
            if (const OSStatus status = makeEngine(bus, engines[bus]); status != noErr)
                return status;
        replacement_->reserve(buses_.size()); // so that all are replaced or none
        for (UInt32 bus = 0; bus < buses_.size(); ++bus)
            replacement_->replace(buses_[bus].engine, std::move(engines[bus]));
        return noErr;
    });
}

void Unit::coupleFormats(AudioUnitScope, AudioUnitElement) {}

OSStatus Unit::setFormat(AudioUnitScope scope, AudioUnitElement element, const AudioStreamBasicDescription& format)
{
    const auto layout = PcmLayout::of(format);
    if (!layout || !isUsableSampleRate(format.mSampleRate))
        return kAudioUnitErr_FormatNotSupported;
    AudioStreamBasicDescription& slot =
        scope == kAudioUnitScope_Input ? inputs_[element].format : buses_[element].format;
    AudioStreamBasicDescription wanted = withByteCounts(format, *layout);
    if (hasSameMeaning(slot, wanted))
        return noErr; // the engines go on undisturbed
    const auto exchange = [&] {
        std::swap(slot, wanted);
        coupleFormats(scope, element);
    };
    exchange();
    const OSStatus status = remakeEngines();
    if (status == noErr)
        noteChange({kAudioUnitProperty_StreamFormat, scope, element});
    else
        exchange();
    return status;
}

/// Gives an input a format and a source, or neither of them. Under the control lock.
OSStatus Unit::setInput(UInt32 element, AudioStreamBasicDescription format, std::unique_ptr<const InputSource> source)
{
    InputElement& input = inputs_[element];
    const bool changesFormat = !hasSameMeaning(input.format, format);
    bool isConnected = source && source->unit();
    const auto exchange = [&] {
        std::swap(input.format, format);
        std::swap(input.isConnected, isConnected);
        coupleFormats(kAudioUnitScope_Input, element);
    };
    changes_.reserve(changes_.size() + 2);
    replacement_->reserve(buses_.size() + 1); // nothing fails once the engines are replaced
    exchange();
    if (changesFormat || isShapedBySources())
        if (const OSStatus status = remakeEngines(); status != noErr) {
            exchange();
            return status;
        }
    replacement_->replace(input.source, std::move(source));
    if (changesFormat)
        noteChange({kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, element});
    return noErr;
}

/// Whether rendering `bus` renders inputs of `unit`.
bool Unit::isFedBy(const Unit& unit, UInt32 bus) const
{
    if (!rendersInputs(bus))
        return false;
    return this == &unit || std::any_of(inputs_.begin(), inputs_.end(), [&unit](const InputElement& element) {
               const InputSource* const source = element.source.load();
               return source && source->unit() && source->unit()->isFedBy(unit, source->output());
           });
}

/// Sets the input's format to the upstream output's and renders from there. No two units are locked at once.
OSStatus Unit::connect(const AudioUnitConnection& connection)
{
    const UInt32 element = connection.destInputNumber;
    PropertyShape shape;
    if (const OSStatus status = shapeOf({kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, element}, shape);
        status != noErr)
        return status;
    std::unique_ptr<const InputSource> source;
    AudioStreamBasicDescription format;
    if (connection.sourceAudioUnit) {
        const std::shared_ptr<Unit>& upstream = connection.sourceAudioUnit->unit;
        if (upstream->isFedBy(*this, connection.sourceOutputNumber))
            return kAudioUnitErr_InvalidPropertyValue;
        UInt32 size = sizeof format;
        const UnitPropertyAddress output{kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output,
                                         connection.sourceOutputNumber};
        if (const OSStatus status = upstream->property(output, &format, size); status != noErr)
            return status;
        source = InputSource::connection(upstream, connection.sourceOutputNumber);
    }
    return control([&] {
        if (!source)
            format = inputs_[element].format;
        const OSStatus status = setInput(element, format, std::move(source));
        if (status == noErr)
            noteChange({kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, element});
        return status;
    });
}

OSStatus Unit::changeNotifies(const std::function<void(std::vector<AURenderCallbackStruct>&)>& change)
{
    return control([&] {
        const Notifies* const old = notifies_.load();
        auto notifies = std::make_unique<Notifies>();
        if (old)
            notifies->callbacks = old->callbacks;
        change(notifies->callbacks);
        replacement_->replace(notifies_, std::unique_ptr<const Notifies>(std::move(notifies)));
        return noErr;
    });
}

OSStatus Unit::addRenderNotify(const AURenderCallbackStruct& notify)
{
    return changeNotifies([&](auto& callbacks) { callbacks.push_back(notify); });
}

OSStatus Unit::removeRenderNotify(const AURenderCallbackStruct& notify)
{
    return changeNotifies([&](auto& callbacks) {
        std::erase_if(callbacks, [&](const AURenderCallbackStruct& entry) {
            return entry.inputProc == notify.inputProc && entry.inputProcRefCon == notify.inputProcRefCon;
        });
    });
}

OSStatus Unit::render(const RenderCall& call, AudioBufferList& data, const PcmLayout* expected)
{
    if (call.bus >= buses_.size())
        return kAudioUnitErr_InvalidElement;
    Bus& bus = buses_[call.bus];
    const Publication::Reader reader(renders_);
    RenderEngine* const engine = bus.engine.load();
    if (!engine)
        return kAudioUnitErr_Uninitialized;
    if (expected && engine->layout() != *expected)
        return kAudioUnitErr_FormatNotSupported;

    callNotifies(call, data, kAudioUnitRenderAction_PreRender);
    const OSStatus status = engine->render(call, data);
    callNotifies(call, data, kAudioUnitRenderAction_PostRender);
    if (status != noErr)
        lastRenderError_.store(status);
    return status;
}

void Unit::callNotifies(const RenderCall& call, AudioBufferList& data, AudioUnitRenderActionFlags phase)
{
    const Notifies* const notifies = notifies_.load();
    if (!notifies)
        return;
    const CallbackScope scope;
    for (const AURenderCallbackStruct& notify : notifies->callbacks) {
        AudioUnitRenderActionFlags flags = call.flags | phase;
        notify.inputProc(notify.inputProcRefCon, &flags, &call.time, call.bus, call.frames, &data);
    }
}

Unit::Parameter* Unit::parameterOf(AudioUnitParameterID id)
{
    const auto found =
        std::ranges::find_if(parameters_, [id](const Parameter& parameter) { return parameter.range.id == id; });
    return found == parameters_.end() ? nullptr : &*found;
}

OSStatus Unit::parameter(AudioUnitParameterID id, AudioUnitScope scope, Float32& value)
{
    const Parameter* const parameter = parameterOf(id);
    if (!parameter)
        return kAudioUnitErr_InvalidParameter;
    if (scope != kAudioUnitScope_Global)
        return kAudioUnitErr_InvalidScope;
    value = parameter->value.load(std::memory_order_relaxed);
    return noErr;
}

OSStatus Unit::setParameter(AudioUnitParameterID id, AudioUnitScope scope, Float32 value)
{
    Parameter* const parameter = parameterOf(id);
    if (!parameter || !std::isfinite(value))
        return kAudioUnitErr_InvalidParameter;
    if (scope != kAudioUnitScope_Global)
        return kAudioUnitErr_InvalidScope;
    parameter->value.store(std::clamp(value, parameter->range.minimum, parameter->range.maximum),
                           std::memory_order_relaxed);
    return noErr;
}

} // namespace qmx
