// SPDX-License-Identifier: MIT
#include "AudioUnit/AudioUnit.h"

#include "AudioUnit/Units/OutputUnit.h"
#include "AudioUnit/Units/UnitInstance.h"

OSStatus AudioUnitInitialize(AudioUnit unit)
{
    return unit ? unit->unit->initialise() : kAudio_ParamError;
}

OSStatus AudioUnitUninitialize(AudioUnit unit)
{
    return unit ? unit->unit->uninitialise() : kAudio_ParamError;
}

OSStatus AudioUnitReset(AudioUnit unit, AudioUnitScope, AudioUnitElement)
{
    return unit ? unit->unit->reset() : kAudio_ParamError;
}

OSStatus AudioUnitGetPropertyInfo(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                                  AudioUnitElement element, UInt32* size, Boolean* isWritable)
{
    return unit ? unit->unit->propertyInfo({property, scope, element}, size, isWritable) : kAudio_ParamError;
}

OSStatus AudioUnitGetProperty(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                              AudioUnitElement element, void* value, UInt32* size)
{
    return unit && size ? unit->unit->property({property, scope, element}, value, *size) : kAudio_ParamError;
}

OSStatus AudioUnitSetProperty(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                              AudioUnitElement element, const void* value, UInt32 size)
{
    return unit && value ? unit->unit->setProperty({property, scope, element}, value, size) : kAudio_ParamError;
}

OSStatus AudioUnitAddPropertyListener(AudioUnit unit, AudioUnitPropertyID property,
                                      AudioUnitPropertyListenerProc listener, void* refCon)
{
    if (!unit || !listener)
        return kAudio_ParamError;
    unit->unit->listeners().add(property, listener, refCon);
    return noErr;
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
    return unit && callback ? unit->unit->addRenderNotify({callback, refCon}) : kAudio_ParamError;
}

OSStatus AudioUnitRemoveRenderNotify(AudioUnit unit, AURenderCallback callback, void* refCon)
{
    return unit && callback ? unit->unit->removeRenderNotify({callback, refCon}) : kAudio_ParamError;
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
    if (!unit)
        return kAudio_ParamError;
    qmx::OutputUnit* const output = unit->unit->asOutput();
    return output ? output->start() : badComponentSelector;
}

OSStatus AudioOutputUnitStop(AudioUnit unit)
{
    if (!unit)
        return kAudio_ParamError;
    qmx::OutputUnit* const output = unit->unit->asOutput();
    return output ? output->stop() : badComponentSelector;
}
