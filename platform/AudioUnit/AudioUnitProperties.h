// SPDX-License-Identifier: MIT
// Codes of audio units: components, scopes, properties, parameters, render flags and statuses; and the records that
// properties carry.
#pragma once

#include <QMXCoreAudio/AudioUnit/Components.h>
#include <QMXCoreAudio/CoreAudioTypes/AudioTimeStamp.h>
#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>

/// An opened audio unit; null is none.
using AudioUnit = ComponentInstance;
using AudioUnitPropertyID = UInt32;
using AudioUnitScope = UInt32;
using AudioUnitElement = UInt32;
using AudioUnitParameterID = UInt32;
using AudioUnitParameterValue = Float32;
using AudioUnitRenderActionFlags = UInt32;

inline constexpr OSType kAudioUnitType_Output = qmx::fourCharCode("auou");
inline constexpr OSType kAudioUnitType_MusicDevice = qmx::fourCharCode("aumu");
inline constexpr OSType kAudioUnitType_MusicEffect = qmx::fourCharCode("aumf");
inline constexpr OSType kAudioUnitType_FormatConverter = qmx::fourCharCode("aufc");
inline constexpr OSType kAudioUnitType_Effect = qmx::fourCharCode("aufx");
inline constexpr OSType kAudioUnitType_Mixer = qmx::fourCharCode("aumx");
inline constexpr OSType kAudioUnitType_Panner = qmx::fourCharCode("aupn");
inline constexpr OSType kAudioUnitType_OfflineEffect = qmx::fourCharCode("auol");
inline constexpr OSType kAudioUnitType_Generator = qmx::fourCharCode("augn");
inline constexpr OSType kAudioUnitSubType_HALOutput = qmx::fourCharCode("ahal");
inline constexpr OSType kAudioUnitSubType_DefaultOutput = qmx::fourCharCode("def ");
inline constexpr OSType kAudioUnitSubType_SystemOutput = qmx::fourCharCode("sys ");
inline constexpr OSType kAudioUnitSubType_GenericOutput = qmx::fourCharCode("genr");
inline constexpr OSType kAudioUnitSubType_AUConverter = qmx::fourCharCode("conv");
inline constexpr OSType kAudioUnitSubType_Varispeed = qmx::fourCharCode("vari");
inline constexpr OSType kAudioUnitSubType_DeferredRenderer = qmx::fourCharCode("defr");
inline constexpr OSType kAudioUnitSubType_TimePitch = qmx::fourCharCode("tmpt");
inline constexpr OSType kAudioUnitSubType_Splitter = qmx::fourCharCode("splt");
inline constexpr OSType kAudioUnitSubType_Merger = qmx::fourCharCode("merg");
inline constexpr OSType kAudioUnitSubType_StereoMixer = qmx::fourCharCode("smxr");
inline constexpr OSType kAudioUnitSubType_3DMixer = qmx::fourCharCode("3dmx");
inline constexpr OSType kAudioUnitSubType_MatrixMixer = qmx::fourCharCode("mxmx");
inline constexpr OSType kAudioUnitSubType_ScheduledSoundPlayer = qmx::fourCharCode("sspl");
inline constexpr OSType kAudioUnitSubType_AudioFilePlayer = qmx::fourCharCode("afpl");
inline constexpr OSType kAudioUnitManufacturer_Apple = qmx::fourCharCode("appl");

inline constexpr AudioUnitScope kAudioUnitScope_Global = 0;
inline constexpr AudioUnitScope kAudioUnitScope_Input = 1;
inline constexpr AudioUnitScope kAudioUnitScope_Output = 2;
inline constexpr AudioUnitScope kAudioUnitScope_Group = 3;
inline constexpr AudioUnitScope kAudioUnitScope_Part = 4;

inline constexpr AudioUnitPropertyID kAudioUnitProperty_ClassInfo = 0;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_MakeConnection = 1;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_SampleRate = 2;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_ParameterList = 3;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_ParameterInfo = 4;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_FastDispatch = 5;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_CPULoad = 6;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_StreamFormat = 8;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_SRCAlgorithm = 9;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_ReverbRoomType = 10;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_BusCount = 11;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_ElementCount = kAudioUnitProperty_BusCount;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_Latency = 12;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_SupportedNumChannels = 13;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_MaximumFramesPerSlice = 14;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_SetExternalBuffer = 15;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_ParameterValueStrings = 16;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_AudioChannelLayout = 19;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_TailTime = 20;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_BypassEffect = 21;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_LastRenderError = 22;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_SetRenderCallback = 23;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_FactoryPresets = 24;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_ContextName = 25;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_RenderQuality = 26;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_HostCallbacks = 27;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_CurrentPreset = 28;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_InPlaceProcessing = 29;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_ElementName = 30;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_CocoaUI = 31;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_SupportedChannelLayoutTags = 32;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_PresentPreset = 36;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_OfflineRender = 37;
inline constexpr AudioUnitPropertyID kAudioUnitProperty_PresentationLatency = 40;
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_CurrentDevice = 2000;
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_IsRunning = 2001;
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_ChannelMap = 2002;
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_EnableIO = 2003;
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_StartTime = 2004;
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_SetInputCallback = 2005;
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_HasIO = 2006;
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_StartTimestampsAtZero = 2007;

inline constexpr UInt32 kRenderQuality_Max = 127;
inline constexpr UInt32 kRenderQuality_High = 96;
inline constexpr UInt32 kRenderQuality_Medium = 64;
inline constexpr UInt32 kRenderQuality_Low = 32;
inline constexpr UInt32 kRenderQuality_Min = 0;
inline constexpr UInt32 kAudioUnitSRCAlgorithm_Polyphase = qmx::fourCharCode("poly");
inline constexpr UInt32 kAudioUnitSRCAlgorithm_MediumQuality = qmx::fourCharCode("csrc");

inline constexpr AudioUnitParameterID kHALOutputParam_Volume = 14;
inline constexpr AudioUnitParameterID kVarispeedParam_PlaybackRate = 0;
inline constexpr AudioUnitParameterID kVarispeedParam_PlaybackCents = 1;

inline constexpr AudioUnitRenderActionFlags kAudioUnitRenderAction_PreRender = 0x4;
inline constexpr AudioUnitRenderActionFlags kAudioUnitRenderAction_PostRender = 0x8;
inline constexpr AudioUnitRenderActionFlags kAudioUnitRenderAction_OutputIsSilence = 0x10;
inline constexpr AudioUnitRenderActionFlags kAudioOfflineUnitRenderAction_Preflight = 0x20;
inline constexpr AudioUnitRenderActionFlags kAudioOfflineUnitRenderAction_Render = 0x40;
inline constexpr AudioUnitRenderActionFlags kAudioOfflineUnitRenderAction_Complete = 0x80;
inline constexpr AudioUnitRenderActionFlags kAudioUnitRenderAction_PostRenderError = 0x100;
inline constexpr AudioUnitRenderActionFlags kAudioUnitRenderAction_DoNotCheckRenderArgs = 0x200;

inline constexpr OSStatus kAudioUnitErr_InvalidProperty = -10879;
inline constexpr OSStatus kAudioUnitErr_InvalidParameter = -10878;
inline constexpr OSStatus kAudioUnitErr_InvalidElement = -10877;
inline constexpr OSStatus kAudioUnitErr_NoConnection = -10876;
inline constexpr OSStatus kAudioUnitErr_FailedInitialization = -10875;
inline constexpr OSStatus kAudioUnitErr_TooManyFramesToProcess = -10874;
inline constexpr OSStatus kAudioUnitErr_IllegalInstrument = -10873;
inline constexpr OSStatus kAudioUnitErr_InstrumentTypeNotFound = -10872;
inline constexpr OSStatus kAudioUnitErr_InvalidFile = -10871;
inline constexpr OSStatus kAudioUnitErr_UnknownFileType = -10870;
inline constexpr OSStatus kAudioUnitErr_FileNotSpecified = -10869;
inline constexpr OSStatus kAudioUnitErr_FormatNotSupported = -10868;
inline constexpr OSStatus kAudioUnitErr_Uninitialized = -10867;
inline constexpr OSStatus kAudioUnitErr_InvalidScope = -10866;
inline constexpr OSStatus kAudioUnitErr_PropertyNotWritable = -10865;
inline constexpr OSStatus kAudioUnitErr_CannotDoInCurrentContext = -10863;
inline constexpr OSStatus kAudioUnitErr_InvalidPropertyValue = -10851;
inline constexpr OSStatus kAudioUnitErr_PropertyNotInUse = -10850;
inline constexpr OSStatus kAudioUnitErr_Initialized = -10849;
inline constexpr OSStatus kAudioUnitErr_InvalidOfflineRender = -10848;
inline constexpr OSStatus kAudioUnitErr_Unauthorized = -10847;

/// Renders a unit's input: writes `frames` frames for bus `bus` to the buffers of `data`, or points the buffers
/// elsewhere. The buffers arrive silent, with the sizes of `frames` frames. If it leaves a smaller size in a buffer,
/// the rest of that buffer is silence; if the result is not 0, all of it is. Called on the render thread. As a render
/// notification (AudioUnitAddRenderNotify) it is called with the buffers of the output, and its result is not used.
using AURenderCallback = OSStatus (*)(void* refCon, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time,
                                      UInt32 bus, UInt32 frames, AudioBufferList* data);

/// Value of kAudioUnitProperty_SetRenderCallback. A null procedure removes the input's callback or connection.
struct AURenderCallbackStruct {
    AURenderCallback inputProc = nullptr;
    void* inputProcRefCon = nullptr;
};

/// Value of kAudioUnitProperty_MakeConnection. A null unit removes the input's callback or connection.
struct AudioUnitConnection {
    AudioUnit sourceAudioUnit = nullptr;
    UInt32 sourceOutputNumber = 0;
    UInt32 destInputNumber = 0;
};

/// Entry of kAudioUnitProperty_SupportedNumChannels; -1 on one side and -2 on the other mean any number on either side.
struct AUChannelInfo {
    SInt16 inChannels = 0;
    SInt16 outChannels = 0;
};
