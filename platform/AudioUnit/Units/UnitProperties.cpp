// SPDX-License-Identifier: MIT
// The properties that all units have.
#include "AudioUnit/Units/PropertyValue.h"
#include "AudioUnit/Units/Unit.h"

namespace qmx
{
namespace
{

/// Bounds the memory for a slice.
constexpr UInt32 maximumFramesPerSlice = 1 << 18;

} // namespace

OSStatus Unit::propertyInfo(const UnitPropertyAddress& address, UInt32* size, Boolean* isWritable) const
{
    const std::scoped_lock lock(control_);
    PropertyShape shape;
    const OSStatus status = shapeOf(address, shape);
    if (status != noErr)
        return status;
    if (size)
        *size = shape.size;
    if (isWritable)
        *isWritable = shape.isWritable;
    return noErr;
}

OSStatus Unit::property(const UnitPropertyAddress& address, void* value, UInt32& size)
{
    const bool isSizeAsked = !value;
    if (const auto live = isSizeAsked || size < sizeof(UInt32) ? std::nullopt : liveValue(address)) {
        size = sizeof(UInt32);
        return answer(value, *live);
    }
    const std::scoped_lock lock(control_);
    PropertyShape shape;
    const OSStatus status = shapeOf(address, shape);
    if (status != noErr)
        return status;
    if (!isSizeAsked && !shape.isReadable)
        return kAudioUnitErr_InvalidProperty;
    if (!isSizeAsked && size < shape.size)
        return kAudioUnitErr_InvalidPropertyValue;
    size = shape.size;
    return isSizeAsked ? noErr : read(address, value);
}

/// noErr if a value of `size` bytes may be set.
OSStatus Unit::mayBeSet(const UnitPropertyAddress& address, UInt32 size) const
{
    PropertyShape shape;
    const OSStatus status = shapeOf(address, shape);
    if (status != noErr)
        return status;
    if (!shape.isWritable)
        return kAudioUnitErr_PropertyNotWritable;
    return size == shape.size ? noErr : kAudioUnitErr_InvalidPropertyValue;
}

OSStatus Unit::setProperty(const UnitPropertyAddress& address, const void* value, UInt32 size)
{
    const bool isConnection = address.id == kAudioUnitProperty_MakeConnection;
    const OSStatus status = control([&] {
        const OSStatus refusal = mayBeSet(address, size);
        return refusal != noErr || isConnection ? refusal : write(address, value);
    });
    return status == noErr && isConnection ? connect(valueAs<AudioUnitConnection>(value)) : status;
}

/// The number of elements of a scope; kAudioUnitErr_InvalidScope for scopes without elements.
OSStatus Unit::elementCount(AudioUnitScope scope, UInt32& count) const
{
    switch (scope) {
    case kAudioUnitScope_Global:
        count = 1;
        return noErr;
    case kAudioUnitScope_Input:
        count = static_cast<UInt32>(inputs_.size());
        return noErr;
    case kAudioUnitScope_Output:
        count = static_cast<UInt32>(buses_.size());
        return noErr;
    default:
        return kAudioUnitErr_InvalidScope;
    }
}

OSStatus Unit::ofElement(const UnitPropertyAddress& address, const PropertyShape& shape, PropertyShape& result) const
{
    UInt32 count = 0;
    if (address.scope == kAudioUnitScope_Global || elementCount(address.scope, count) != noErr)
        return kAudioUnitErr_InvalidScope;
    if (address.element >= count)
        return kAudioUnitErr_InvalidElement;
    result = shape;
    return noErr;
}

OSStatus Unit::ofUnit(const UnitPropertyAddress& address, const PropertyShape& shape, PropertyShape& result)
{
    if (address.scope != kAudioUnitScope_Global)
        return kAudioUnitErr_InvalidScope;
    result = shape;
    return noErr;
}

OSStatus Unit::shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const
{
    const bool isInput = address.scope == kAudioUnitScope_Input;
    UInt32 count = 0;
    switch (address.id) {
    case kAudioUnitProperty_StreamFormat:
        return ofElement(address, {.size = sizeof(AudioStreamBasicDescription), .isWritable = true}, shape);
    case kAudioUnitProperty_SampleRate:
        return ofElement(address, {.size = sizeof(Float64), .isWritable = true}, shape);
    case kAudioUnitProperty_MakeConnection:
        return isInput ? ofElement(address, {sizeof(AudioUnitConnection), true, false}, shape)
                       : kAudioUnitErr_InvalidScope;
    case kAudioUnitProperty_SetRenderCallback:
        return isInput ? ofElement(address, {sizeof(AURenderCallbackStruct), true, false}, shape)
                       : kAudioUnitErr_InvalidScope;
    case kAudioUnitProperty_ElementCount:
        shape = {.size = sizeof(UInt32)};
        return elementCount(address.scope, count);
    case kAudioUnitProperty_ParameterList:
        return ofUnit(address, {.size = static_cast<UInt32>(parameters_.size() * sizeof(AudioUnitParameterID))}, shape);
    case kAudioUnitProperty_MaximumFramesPerSlice:
        return ofUnit(address, {.size = sizeof(UInt32), .isWritable = true}, shape);
    case kAudioUnitProperty_Latency:
    case kAudioUnitProperty_TailTime:
        return ofUnit(address, {.size = sizeof(Float64)}, shape);
    case kAudioUnitProperty_LastRenderError:
        return ofUnit(address, {.size = sizeof(OSStatus)}, shape);
    default:
        return kAudioUnitErr_InvalidProperty;
    }
}

const AudioStreamBasicDescription& Unit::formatOf(const UnitPropertyAddress& address) const
{
    return address.scope == kAudioUnitScope_Input ? inputs_[address.element].format : buses_[address.element].format;
}

OSStatus Unit::read(const UnitPropertyAddress& address, void* value) const
{
    UInt32 count = 0;
    switch (address.id) {
    case kAudioUnitProperty_StreamFormat:
        return answer(value, formatOf(address));
    case kAudioUnitProperty_SampleRate:
        return answer(value, formatOf(address).mSampleRate);
    case kAudioUnitProperty_ElementCount:
        elementCount(address.scope, count);
        return answer(value, count);
    case kAudioUnitProperty_ParameterList:
        for (auto* id = static_cast<AudioUnitParameterID*>(value); const Parameter& parameter : parameters_)
            *id++ = parameter.range.id;
        return noErr;
    case kAudioUnitProperty_MaximumFramesPerSlice:
        return answer(value, maximumFrames_);
    case kAudioUnitProperty_Latency:
    case kAudioUnitProperty_TailTime:
        return answer(value, Float64{0});
    default:
        return kAudioUnitErr_InvalidProperty;
    }
}

OSStatus Unit::write(const UnitPropertyAddress& address, const void* value)
{
    switch (address.id) {
    case kAudioUnitProperty_StreamFormat:
        return setFormat(address.scope, address.element, valueAs<AudioStreamBasicDescription>(value));
    case kAudioUnitProperty_SampleRate: {
        AudioStreamBasicDescription format = formatOf(address);
        format.mSampleRate = valueAs<Float64>(value);
        return setFormat(address.scope, address.element, format);
    }
    case kAudioUnitProperty_SetRenderCallback: {
        const auto callback = valueAs<AURenderCallbackStruct>(value);
        const OSStatus status = setInput(address.element, inputs_[address.element].format,
                                         callback.inputProc ? InputSource::callback(callback) : nullptr);
        if (status == noErr)
            noteChange(address);
        return status;
    }
    case kAudioUnitProperty_MaximumFramesPerSlice:
        return setMaximumFrames(valueAs<UInt32>(value));
    default:
        return kAudioUnitErr_InvalidProperty;
    }
}

OSStatus Unit::setMaximumFrames(UInt32 frames)
{
    if (isInitialised())
        return kAudioUnitErr_Initialized;
    if (frames == 0 || frames > maximumFramesPerSlice)
        return kAudioUnitErr_InvalidPropertyValue;
    maximumFrames_ = frames;
    noteChange({kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0});
    return noErr;
}

std::optional<UInt32> Unit::liveValue(const UnitPropertyAddress& address)
{
    if (address.id == kAudioUnitProperty_LastRenderError && address.scope == kAudioUnitScope_Global)
        return static_cast<UInt32>(lastRenderError_.exchange(noErr));
    return std::nullopt;
}

} // namespace qmx
