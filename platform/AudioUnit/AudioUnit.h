// SPDX-License-Identifier: MIT
// The calls on audio units. Every call returns kAudio_ParamError for a null unit.
//
// Threads: property calls, initialising, reset and listeners from any thread but the real-time ones; calls on one unit
// wait for each other, and none of them waits for a cycle while another one waits for it. AudioUnitRender on one thread
// at a time per bus, the real-time ones included; parameters, kAudioUnitProperty_LastRenderError and
// kAudioOutputUnitProperty_IsRunning from any thread. A unit's callback, connection and formats may change at any time:
// the call that changes one returns when no cycle uses the old one any more, unless it was made inside a callback. Only
// one thread at a time may connect units that feed each other.
//
// Properties of every unit (kAudioUnitProperty_...):
//   StreamFormat            AudioStreamBasicDescription; per element of the input and output scopes
//   SampleRate              Float64, Hz; per element of the input and output scopes
//   SetRenderCallback       AURenderCallbackStruct, write only; per input element, replaces a connection
//   MakeConnection          AudioUnitConnection, write only; per input element, replaces a callback
//   ElementCount            UInt32, read only
//   MaximumFramesPerSlice   UInt32, global; 1 to 262144, initially 4096, not to be set while initialised
//   LastRenderError         OSStatus, global, read only; reading it clears it
//   Latency, TailTime       Float64 seconds, global, read only
//   ParameterList           AudioUnitParameterID each, global, read only
// Of the converter unit: RenderQuality UInt32 (0 to 127, global), SupportedNumChannels AUChannelInfo (global), and
// kAudioOutputUnitProperty_ChannelMap, an SInt32 for each output channel (output scope): its input channel, or -1 for
// silence.
// Of the varispeed unit: RenderQuality, and the parameters kVarispeedParam_PlaybackRate (input frames per output frame,
// 1/32 to 32) and kVarispeedParam_PlaybackCents (the same in hundredths of a semitone), each following the other. Its
// Latency is the silence that precedes its input.
// Of output units: kAudioOutputUnitProperty_CurrentDevice (kAudioDeviceUnknown: the default output, or the default
// input of a unit without output; not to be set inside callbacks), kAudioOutputUnitProperty_IsRunning (UInt32),
// kAudioOutputUnitProperty_ChannelMap (output scope of each element), the device's own properties by their codes
// (of its input section for element 1 and for a unit without output), and the parameter kHALOutputParam_Volume. The
// output scope of element 0 and the input scope of element 1 are the device's, read only: interleaved floats with
// the rate and channels that the device had when it was last named or started; until then, the client's format.
// Naming a device on a unit that is not initialised sets the rate of the client sides to the device's. A running
// unit goes on with the device that is named; if that cannot start, its status is returned, it stays the current
// device, and the unit is stopped until a device is named that starts. A start that fails, and a stop, end the wait
// for a device. Listeners to kAudioOutputUnitProperty_IsRunning are not told of a stop inside a callback: whoever
// makes it knows. No unit looks for a device before one is named, asked about or started, or a unit with input is
// initialised.
//
// The default output unit has element 0, which plays. The HAL output unit also has element 1, which captures:
//   kAudioOutputUnitProperty_EnableIO   UInt32 (input scope of element 1, initially off; output scope of element 0,
//                           initially on), not to be set while initialised. A device must have what is on. With output
//                           off, element 0 mirrors the client format of element 1
//   ..._HasIO               UInt32, the same places: whether the device has it
//   ..._SetInputCallback    AURenderCallbackStruct, global: called for each captured slice with bus 1, the frames,
//                           the count of frames before them, and no buffers. AudioUnitRender of bus 1 inside it
//                           delivers the slice; what is not rendered is dropped. Slices have at most the buffer
//                           frame size that the device had at AudioUnitInitialize. Frames that the device lost, or
//                           that a change of it cost, are counted. Without a callback the captured frames wait, up
//                           to two cycles, for renders of bus 1 in callbacks of the same device. Renders elsewhere
//                           return kAudioUnitErr_CannotDoInCurrentContext
#pragma once

#include <QMXCoreAudio/AudioUnit/AudioUnitProperties.h>
#include <QMXCoreAudio/Foundation/Export.h>

/// Makes everything that rendering needs. Does nothing on an initialised unit. On failure the unit stays
/// uninitialised.
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitInitialize(AudioUnit unit);
/// Ends rendering, waits for the cycle in flight and frees what initialising made.
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitUninitialize(AudioUnit unit);
/// Before the next render the unit drops the sound it still holds, and its input times restart at 0. Scope and element
/// are not used.
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitReset(AudioUnit unit, AudioUnitScope scope, AudioUnitElement element);

/// A property's size in bytes and whether it can be set; both pointers may be null.
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitGetPropertyInfo(AudioUnit unit, AudioUnitPropertyID property,
                                                           AudioUnitScope scope, AudioUnitElement element, UInt32* size,
                                                           Boolean* isWritable);
/// Copies a property's value. `*size` is the room in bytes and becomes the number of bytes copied; with a null `value`
/// it becomes the value's size. kAudioUnitErr_InvalidPropertyValue if the room is too small.
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitGetProperty(AudioUnit unit, AudioUnitPropertyID property,
                                                       AudioUnitScope scope, AudioUnitElement element, void* value,
                                                       UInt32* size);
/// Sets a property; kAudioUnitErr_InvalidPropertyValue for a wrong size or value. On failure the old value stays; only
/// a running output unit that cannot start on a newly named device keeps that device and stops.
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitSetProperty(AudioUnit unit, AudioUnitPropertyID property,
                                                       AudioUnitScope scope, AudioUnitElement element,
                                                       const void* value, UInt32 size);

/// Called after a property was set, on the thread that set it, with no lock held. If a device caused the change (an
/// output unit stops with its device, or goes on with another), it is the notification thread of the hardware layer.
using AudioUnitPropertyListenerProc = void (*)(void* refCon, AudioUnit unit, AudioUnitPropertyID property,
                                               AudioUnitScope scope, AudioUnitElement element);
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitAddPropertyListener(AudioUnit unit, AudioUnitPropertyID property,
                                                               AudioUnitPropertyListenerProc listener, void* refCon);
/// Removes all registrations of `listener` for `property`. After it has returned the listener is called no more: a call
/// in progress is waited for, except from within a listener and inside a callback. Hold no lock that the listener
/// takes.
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitRemovePropertyListener(AudioUnit unit, AudioUnitPropertyID property,
                                                                  AudioUnitPropertyListenerProc listener);

/// Calls `callback` before and after each render, with kAudioUnitRenderAction_PreRender or _PostRender among the flags.
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitAddRenderNotify(AudioUnit unit, AURenderCallback callback, void* refCon);
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitRemoveRenderNotify(AudioUnit unit, AURenderCallback callback, void* refCon);

/// Real-time safe.
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitGetParameter(AudioUnit unit, AudioUnitParameterID parameter,
                                                        AudioUnitScope scope, AudioUnitElement element,
                                                        AudioUnitParameterValue* value);
/// Takes effect with the next render, whatever `bufferOffset` is. A value is clamped to the range;
/// kAudioUnitErr_InvalidParameter if it is not finite. Real-time safe.
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitSetParameter(AudioUnit unit, AudioUnitParameterID parameter,
                                                        AudioUnitScope scope, AudioUnitElement element,
                                                        AudioUnitParameterValue value, UInt32 bufferOffset);

/// Renders `frames` frames (at most the maximum frames per slice) of output bus `bus`. A buffer without data is pointed
/// to memory of the unit, valid until the next render. The smallest buffer limits the frames rendered; buffers beyond
/// the format's channels are silenced. On return the sizes are those of the frames rendered. Missing or failing input
/// is silence, and the first such status is the result although all frames were rendered. `flags` may be null.
/// Real-time safe.
[[nodiscard]] QMX_EXPORT OSStatus AudioUnitRender(AudioUnit unit, AudioUnitRenderActionFlags* flags,
                                                  const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                                                  AudioBufferList* data);

/// Starts the cycles of an output unit on the device that was named (kAudioOutputUnitProperty_CurrentDevice), otherwise
/// on the default output, which it then follows; kAudioHardwareBadDeviceError if there is none. A unit that loses its
/// device stops, and goes on when one is named or becomes the default, unless it is stopped before.
/// badComponentSelector for units of another type; kAudioUnitErr_CannotDoInCurrentContext on real-time threads and
/// inside callbacks.
[[nodiscard]] QMX_EXPORT OSStatus AudioOutputUnitStart(AudioUnit unit);
/// Stops the cycles and waits for the one in flight. On real-time threads and inside callbacks it does not wait: from
/// then on the unit is not running, the current slice is silence, and no further callback is called; the next start
/// waits for the rest.
[[nodiscard]] QMX_EXPORT OSStatus AudioOutputUnitStop(AudioUnit unit);
