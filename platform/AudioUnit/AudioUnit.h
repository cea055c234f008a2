// SPDX-License-Identifier: MIT
// The calls on audio units. A unit that is not there (null) answers kAudio_ParamError.
//
// Threads: property calls, initialising, reset and listeners from any thread but the real-time ones; calls on one unit
// wait for each other, never for a cycle while another waits for them. AudioUnitRender on one thread at a time per bus,
// the real-time ones included; parameters, kAudioUnitProperty_LastRenderError and kAudioOutputUnitProperty_IsRunning
// from any thread. What rendering follows (callback, connection, formats) may change at any time: the call that changes
// it returns when no cycle uses the old one any more, unless it was made inside a callback. Units that feed each other
// are connected by one thread at a time.
//
// Properties of every unit (kAudioUnitProperty_...):
//   StreamFormat            AudioStreamBasicDescription, SampleRate Float64: per element of the input and output scopes
//   SetRenderCallback       AURenderCallbackStruct, MakeConnection AudioUnitConnection: per input element, to be set
//   only; each
//                           replaces the other
//   ElementCount            UInt32, to be read
//   MaximumFramesPerSlice   UInt32, global, 1 to 262144, before initialising; 4096 at first
//   LastRenderError         OSStatus, global; reading it clears it
//   Latency, TailTime       Float64 seconds, global; ParameterList: AudioUnitParameterID each
// Of the converter unit: RenderQuality UInt32 (0 to 127, global), SupportedNumChannels AUChannelInfo (global), and
// kAudioOutputUnitProperty_ChannelMap, an SInt32 for each output channel (output scope): its input channel, or -1 for
// silence. Of output units: kAudioOutputUnitProperty_CurrentDevice (kAudioDeviceUnknown: the default output; not to be
// set inside callbacks), kAudioOutputUnitProperty_IsRunning (UInt32), the device's own properties (output section) by
// their codes; and the parameter kHALOutputParam_Volume. Their output side is the device's, to be read: interleaved
// floats of its rate and channels when it was named or started last; the input format until then. Naming a device on a
// unit that is not initialised gives the input its rate. None asks for a device before one is named, asked about or
// started.
#pragma once

#include "AudioUnit/AudioUnitProperties.h"
#include "Foundation/Export.h"

/// Makes all that rendering needs. Does nothing on a unit that is initialised already. On failure the unit stays
/// uninitialised.
QMX_EXPORT OSStatus AudioUnitInitialize(AudioUnit unit);
/// Ends rendering, waits for the cycle in flight and frees what initialising made.
QMX_EXPORT OSStatus AudioUnitUninitialize(AudioUnit unit);
/// Before the next render the unit forgets the sound it holds, and its input times begin at 0 again.
QMX_EXPORT OSStatus AudioUnitReset(AudioUnit unit, AudioUnitScope scope, AudioUnitElement element);

/// A property's size in bytes and whether it can be set; both pointers may be null.
QMX_EXPORT OSStatus AudioUnitGetPropertyInfo(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                                             AudioUnitElement element, UInt32* size, Boolean* isWritable);
/// Copies a property's value. `*size` is the room in bytes and becomes the bytes copied; with null `value` only the
/// size is answered. kAudioUnitErr_InvalidPropertyValue where the room is too small.
QMX_EXPORT OSStatus AudioUnitGetProperty(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                                         AudioUnitElement element, void* value, UInt32* size);
/// Sets a property; kAudioUnitErr_InvalidPropertyValue for a wrong size or value. On failure the old value stays.
QMX_EXPORT OSStatus AudioUnitSetProperty(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                                         AudioUnitElement element, const void* value, UInt32 size);

/// Hears that a property was set. Called on the thread that set it, with no lock held; of what a device changed (an
/// output unit that stops with its device, or goes on with another), on the notification thread of the hardware layer.
using AudioUnitPropertyListenerProc = void (*)(void* refCon, AudioUnit unit, AudioUnitPropertyID property,
                                               AudioUnitScope scope, AudioUnitElement element);
QMX_EXPORT OSStatus AudioUnitAddPropertyListener(AudioUnit unit, AudioUnitPropertyID property,
                                                 AudioUnitPropertyListenerProc listener, void* refCon);
/// Removes all registrations of `listener` for `property`. A call that is under way on another thread may still end.
QMX_EXPORT OSStatus AudioUnitRemovePropertyListener(AudioUnit unit, AudioUnitPropertyID property,
                                                    AudioUnitPropertyListenerProc listener);

/// Calls `callback` before and after each render, with kAudioUnitRenderAction_PreRender or _PostRender among the flags.
QMX_EXPORT OSStatus AudioUnitAddRenderNotify(AudioUnit unit, AURenderCallback callback, void* refCon);
QMX_EXPORT OSStatus AudioUnitRemoveRenderNotify(AudioUnit unit, AURenderCallback callback, void* refCon);

/// Real-time safe.
QMX_EXPORT OSStatus AudioUnitGetParameter(AudioUnit unit, AudioUnitParameterID parameter, AudioUnitScope scope,
                                          AudioUnitElement element, AudioUnitParameterValue* value);
/// Takes effect with the next render, whatever `bufferOffset` says. A value beyond the range becomes the nearest one in
/// it; kAudioUnitErr_InvalidParameter for one that is not finite. Real-time safe.
QMX_EXPORT OSStatus AudioUnitSetParameter(AudioUnit unit, AudioUnitParameterID parameter, AudioUnitScope scope,
                                          AudioUnitElement element, AudioUnitParameterValue value, UInt32 bufferOffset);

/// Renders `frames` frames (at most the maximum frames per slice) of output bus `bus`. A buffer without data gets
/// memory of the unit, valid until the next render; a smaller buffer gets fewer frames; buffers beyond the format's
/// channels are zeroed. On return the sizes are those of the frames made. Input that is missing or fails is silence,
/// and the first such status is the result although all frames were rendered. `flags` may be null. Real-time safe.
QMX_EXPORT OSStatus AudioUnitRender(AudioUnit unit, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time,
                                    UInt32 bus, UInt32 frames, AudioBufferList* data);

/// Starts the cycles of an output unit on the device that was named (kAudioOutputUnitProperty_CurrentDevice), else on
/// the default output, which it then follows; kAudioHardwareBadDeviceError where there is none. A unit that loses its
/// device stops, and goes on when one is named or becomes the default, unless it is stopped before.
/// badComponentSelector for units of another type; kAudioUnitErr_CannotDoInCurrentContext on real-time threads and
/// inside callbacks.
QMX_EXPORT OSStatus AudioOutputUnitStart(AudioUnit unit);
/// Stops the cycles and waits for the one in flight. On real-time threads and inside callbacks it only marks: the unit
/// is not running at once, its slice is silence, and no further callback comes; a start waits for what is left.
QMX_EXPORT OSStatus AudioOutputUnitStop(AudioUnit unit);
