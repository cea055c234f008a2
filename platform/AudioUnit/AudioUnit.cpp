// SPDX-License-Identifier: MIT
#include "AudioUnit/AudioUnit.h"

#include "AudioUnit/Units/OutputUnit.h"
#include "AudioUnit/Units/UnitInstance.h"
#include "Foundation/Memory.h"

namespace
{

/// Makes a call that may allocate. Rendering and parameters never do.
template <class Call> OSStatus call(AudioUnit unit, Call made)
{
    if (!unit)
        return kAudio_ParamError;
    const std::shared_ptr<qmx::Unit> called = unit->unit; // a listener may close it
    return qmx::withinMemory(kAudio_MemFullError, [&] { return made(*called); });
}

} // namespace

OSStatus AudioUnitInitialize(AudioUnit unit)
{
    return call(unit, [](qmx::Unit& called) { return called.initialise(); });
}

OSStatus AudioUnitUninitialize(AudioUnit unit)
{
    return call(unit, [](qmx::Unit& called) { return called.uninitialise(); });
}

OSStatus AudioUnitReset(AudioUnit unit, AudioUnitScope, AudioUnitElement)
{
    return call(unit, [](qmx::Unit& called) { return called.reset(); });
}

OSStatus AudioUnitGetPropertyInfo(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                                  AudioUnitElement element, UInt32* size, Boolean* isWritable)
{
    return call(unit, [&](qmx::Unit& called) {
        return called.propertyInfo({property, scope, element}, size, isWritable);
    });
}

OSStatus AudioUnitGetProperty(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                              AudioUnitElement element, void* value, UInt32* size)
{
    if (!size)
        return kAudio_ParamError;
    return call(unit, [&](qmx::Unit& called) { return called.property({property, scope, element}, value, *size); });
}

OSStatus AudioUnitSetProperty(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                              AudioUnitElement element, const void* value, UInt32 size)
{
    if (!value)
        return kAudio_ParamError;
    return call(unit, [&](qmx::Unit& called) { return called.setProperty({property, scope, element}, value, size); });
}

OSStatus AudioUnitAddPropertyListener(AudioUnit unit, AudioUnitPropertyID property,
                                      AudioUnitPropertyListenerProc listener, void* refCon)
{
    if (!listener)
        return kAudio_ParamError;
    return call(unit, [&](qmx::Unit& called) {
        called.listeners().add(property, listener, refCon);
        return noErr;
    });
}

OSStatus AudioUnitRemovePropertyListener(AudioUnit unit, AudioUnitPropertyID property,
                                         AudioUnitPropertyListenerProc listener)
{
    if (!unit || !listener)
        return kAudio_ParamError;
    unit->unit->listeners().remove(property, listener);
    return noErr;
}

OSStatus AudioUnitAddRenderNotify(AudioUnit unit, AURenderCallback callback, void* refCon)
{
    if (!callback)
        return kAudio_ParamError;
    return call(unit, [&](qmx::Unit& called) { return called.addRenderNotify({callback, refCon}); });
}

OSStatus AudioUnitRemoveRenderNotify(AudioUnit unit, AURenderCallback callback, void* refCon)
{
    if (!callback)
        return kAudio_ParamError;
    return call(unit, [&](qmx::Unit& called) { return called.removeRenderNotify({callback, refCon}); });
}

OSStatus AudioUnitGetParameter(AudioUnit unit, AudioUnitParameterID parameter, AudioUnitScope scope, AudioUnitElement,
                               AudioUnitParameterValue* value)
{
    return unit && value ? unit->unit->parameter(parameter, scope, *value) : kAudio_ParamError;
}

OSStatus AudioUnitSetParameter(AudioUnit unit, AudioUnitParameterID parameter, AudioUnitScope scope, AudioUnitElement,
                               AudioUnitParameterValue value, UInt32)
{
    return unit ? unit->unit->setParameter(parameter, scope, value) : kAudio_ParamError;
}

OSStatus AudioUnitRender(AudioUnit unit, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32 bus,
                         UInt32 frames, AudioBufferList* data)
{
    if (!unit || !time || !data)
        return kAudio_ParamError;
    AudioUnitRenderActionFlags own = 0;
    return unit->unit->render({flags ? *flags : own, *time, bus, frames}, *data);
}

OSStatus AudioOutputUnitStart(AudioUnit unit)
{
    return call(unit, [](qmx::Unit& called) {
        qmx::OutputUnit* const output = called.asOutput();
        return output ? output->start() : badComponentSelector;
    });
}

OSStatus AudioOutputUnitStop(AudioUnit unit)
{
    if (!unit)
        return kAudio_ParamError;
    const std::shared_ptr<qmx::Unit> called = unit->unit; // a listener may close it
    qmx::OutputUnit* const output = called->asOutput();
    return output ? output->stop() : badComponentSelector;
}
