// SPDX-License-Identifier: MIT
// The audio hardware layer: the properties of the system, of devices and of streams, listeners to their changes, and
// the procedures through which sound goes in and out.
//
// Statuses:
//   kAudioHardwareBadDeviceError              no device has this ID (any more)
//   kAudioHardwareBadStreamError              no stream has this ID (any more)
//   kAudioHardwareUnknownPropertyError        the object, or this section or channel of it, lacks the property
//   kAudioHardwareBadPropertySizeError        the block is too small for the value (of a list, the whole entries that
//                                             fit are copied), or the value to set has another size
//   kAudioHardwareUnsupportedOperationError   the property cannot be set
//   kAudioHardwareIllegalOperationError       the object refuses the value; the registration exists already or never
//                                             existed
//   kAudioDeviceUnsupportedFormatError        the object lacks the format or rate
//   kAudioHardwareNotRunningError             a device that does not run has no time
//   kAudio_ParamError                         a pointer that must not be null is null
//
// Threads: every call from any thread. On an I/O or render thread only AudioDeviceStop of the device that is calling,
// AudioGetCurrentHostTime and qmx::waitForIOCycle are free of locks.
#pragma once

#include <QMXCoreAudio/CoreAudio/AudioDeviceTypes.h>
#include <QMXCoreAudio/CoreAudioTypes/AudioTimeStamp.h>
#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

#include <string>

/// IDs of devices and streams: numbers from one counter that starts at 256. No number is used twice.
using AudioDeviceID = UInt32;
using AudioStreamID = UInt32;
using AudioHardwarePropertyID = UInt32;
using AudioDevicePropertyID = UInt32;
using AudioStreamPropertyID = UInt32;

inline constexpr AudioDeviceID kAudioDeviceUnknown = 0;
inline constexpr AudioStreamID kAudioStreamUnknown = 0;
/// The sample rate of a physical format that is available at every rate of its device.
inline constexpr Float64 kAudioStreamAnyRate = 0;

// With these a listener registers for every property, both sections, every channel.
inline constexpr UInt32 kAudioPropertyWildcardPropertyID = qmx::fourCharCode("****");
inline constexpr UInt8 kAudioPropertyWildcardSection = 0xFF;
inline constexpr UInt32 kAudioPropertyWildcardChannel = 0xFFFFFFFF;

inline constexpr OSStatus kAudioHardwareNoError = 0;
inline constexpr OSStatus kAudioHardwareNotRunningError = qmx::statusCode("stop");
inline constexpr OSStatus kAudioHardwareUnspecifiedError = qmx::statusCode("what");
inline constexpr OSStatus kAudioHardwareUnknownPropertyError = qmx::statusCode("who?");
inline constexpr OSStatus kAudioHardwareBadPropertySizeError = qmx::statusCode("!siz");
inline constexpr OSStatus kAudioHardwareIllegalOperationError = qmx::statusCode("nope");
inline constexpr OSStatus kAudioHardwareBadObjectError = qmx::statusCode("!obj");
inline constexpr OSStatus kAudioHardwareBadDeviceError = qmx::statusCode("!dev");
inline constexpr OSStatus kAudioHardwareBadStreamError = qmx::statusCode("!str");
inline constexpr OSStatus kAudioHardwareUnsupportedOperationError = qmx::statusCode("unop");
inline constexpr OSStatus kAudioDeviceUnsupportedFormatError = qmx::statusCode("!dat");
inline constexpr OSStatus kAudioDevicePermissionsError = qmx::statusCode("!hog");

inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyBootChimeVolumeScalar = qmx::fourCharCode("bbvs");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyBootChimeVolumeDecibels = qmx::fourCharCode("bbvd");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyBootChimeVolumeRangeDecibels = qmx::fourCharCode("bbd#");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyBootChimeVolumeScalarToDecibels =
    qmx::fourCharCode("bv2d");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyBootChimeVolumeDecibelsToScalar =
    qmx::fourCharCode("bd2v");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyDefaultInputDevice = qmx::fourCharCode("dIn ");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyDefaultOutputDevice = qmx::fourCharCode("dOut");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyDefaultSystemOutputDevice = qmx::fourCharCode("sOut");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyDevices = qmx::fourCharCode("dev#");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyDeviceForUID = qmx::fourCharCode("duid");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyRunLoop = qmx::fourCharCode("rnlp");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertySleepingIsAllowed = qmx::fourCharCode("slep");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyUnloadingIsAllowed = qmx::fourCharCode("unld");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyProcessIsMaster = qmx::fourCharCode("mast");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyIsInitingOrExiting = qmx::fourCharCode("inot");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyHogModeIsAllowed = qmx::fourCharCode("hogr");
inline constexpr AudioHardwarePropertyID kAudioHardwarePropertyPlugInForBundleID = qmx::fourCharCode("pibi");

inline constexpr AudioDevicePropertyID kAudioDevicePropertyActualSampleRate = qmx::fourCharCode("asrt");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyAvailableNominalSampleRates = qmx::fourCharCode("nsr#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyBufferFrameSize = qmx::fourCharCode("fsiz");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyBufferFrameSizeRange = qmx::fourCharCode("fsz#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyBufferSize = qmx::fourCharCode("bsiz");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyBufferSizeRange = qmx::fourCharCode("bsz#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyClockSource = qmx::fourCharCode("csrc");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyClockSources = qmx::fourCharCode("csc#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyClockSourceNameForID = qmx::fourCharCode("cscn");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyClockSourceNameForIDCFString = qmx::fourCharCode("lcsn");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDataSource = qmx::fourCharCode("ssrc");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDataSources = qmx::fourCharCode("ssc#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDataSourceNameForID = qmx::fourCharCode("sscn");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDataSourceNameForIDCFString = qmx::fourCharCode("lscn");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDeviceCanBeDefaultDevice = qmx::fourCharCode("dflt");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDeviceCanBeDefaultSystemDevice = qmx::fourCharCode("sflt");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDeviceIsAlive = qmx::fourCharCode("livn");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDeviceIsRunning = qmx::fourCharCode("goin");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDeviceIsRunningSomewhere = qmx::fourCharCode("gone");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDeviceManufacturer = qmx::fourCharCode("makr");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDeviceManufacturerCFString = qmx::fourCharCode("lmak");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDeviceName = qmx::fourCharCode("name");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDeviceNameCFString = qmx::fourCharCode("lnam");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDeviceUID = qmx::fourCharCode("uid ");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDriverShouldOwniSub = qmx::fourCharCode("isub");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyHogMode = qmx::fourCharCode("oink");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyIOProcStreamUsage = qmx::fourCharCode("suse");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyJackIsConnected = qmx::fourCharCode("jack");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyLatency = qmx::fourCharCode("ltnc");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyMute = qmx::fourCharCode("mute");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyNominalSampleRate = qmx::fourCharCode("nsrt");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThru = qmx::fourCharCode("thru");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlugIn = qmx::fourCharCode("plug");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPreferredChannelsForStereo = qmx::fourCharCode("dch2");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyRegisterBufferList = qmx::fourCharCode("rbuf");
inline constexpr AudioDevicePropertyID kAudioDevicePropertySafetyOffset = qmx::fourCharCode("saft");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyStreamConfiguration = qmx::fourCharCode("slay");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyStreamFormat = qmx::fourCharCode("sfmt");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyStreamFormatMatch = qmx::fourCharCode("sfmm");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyStreamFormats = qmx::fourCharCode("sfm#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyStreamFormatSupported = qmx::fourCharCode("sfm?");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyStreams = qmx::fourCharCode("stm#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertySubMute = qmx::fourCharCode("smut");
inline constexpr AudioDevicePropertyID kAudioDevicePropertySubVolumeScalar = qmx::fourCharCode("svlm");
inline constexpr AudioDevicePropertyID kAudioDevicePropertySubVolumeDecibels = qmx::fourCharCode("svld");
inline constexpr AudioDevicePropertyID kAudioDevicePropertySubVolumeRangeDecibels = qmx::fourCharCode("svd#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertySubVolumeScalarToDecibels = qmx::fourCharCode("sv2d");
inline constexpr AudioDevicePropertyID kAudioDevicePropertySubVolumeDecibelsToScalar = qmx::fourCharCode("sd2v");
inline constexpr AudioDevicePropertyID kAudioDevicePropertySupportsMixing = qmx::fourCharCode("mix?");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyTransportType = qmx::fourCharCode("tran");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyUsesVariableBufferFrameSizes = qmx::fourCharCode("vfsz");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyVolumeScalar = qmx::fourCharCode("volm");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyVolumeDecibels = qmx::fourCharCode("vold");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyVolumeRangeDecibels = qmx::fourCharCode("vdb#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyVolumeScalarToDecibels = qmx::fourCharCode("v2db");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyVolumeDecibelsToScalar = qmx::fourCharCode("db2v");
inline constexpr AudioDevicePropertyID kAudioDeviceProcessorOverload = qmx::fourCharCode("over");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPreferredChannelLayout = qmx::fourCharCode("srnd");
/// The physical format of the stream that carries a channel, as a property of the device.
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPhysicalFormat = qmx::fourCharCode("pft ");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyConfigurationApplication = qmx::fourCharCode("capp");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyModelUID = qmx::fourCharCode("muid");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyRelatedDevices = qmx::fourCharCode("akin");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyClockDomain = qmx::fourCharCode("clkd");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyDeviceHasChanged = qmx::fourCharCode("diff");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyIOCycleUsage = qmx::fourCharCode("ncyc");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyStereoPan = qmx::fourCharCode("span");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyStereoPanChannels = qmx::fourCharCode("spn#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertySolo = qmx::fourCharCode("solo");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyClockSourceKindForID = qmx::fourCharCode("csck");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThruSolo = qmx::fourCharCode("thrs");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThruVolumeScalar = qmx::fourCharCode("mvsc");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThruVolumeDecibels = qmx::fourCharCode("mvdb");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThruVolumeRangeDecibels = qmx::fourCharCode("mvd#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThruVolumeScalarToDecibels = qmx::fourCharCode("mv2d");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThruVolumeDecibelsToScalar = qmx::fourCharCode("mv2s");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThruStereoPan = qmx::fourCharCode("mspn");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThruStereoPanChannels = qmx::fourCharCode("msp#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThruDestination = qmx::fourCharCode("mdds");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThruDestinations = qmx::fourCharCode("mdd#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThruDestinationNameForID = qmx::fourCharCode("mddn");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyPlayThruDestinationNameForIDCFString =
    qmx::fourCharCode("mddc");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyChannelNominalLineLevel = qmx::fourCharCode("nlvl");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyChannelNominalLineLevels = qmx::fourCharCode("nlv#");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyChannelNominalLineLevelNameForID = qmx::fourCharCode("cnlv");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyChannelNominalLineLevelNameForIDCFString =
    qmx::fourCharCode("lcnl");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyChannelName = qmx::fourCharCode("chnm");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyChannelNameCFString = qmx::fourCharCode("lchn");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyChannelCategoryName = qmx::fourCharCode("ccnm");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyChannelCategoryNameCFString = qmx::fourCharCode("lccn");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyChannelNumberName = qmx::fourCharCode("cnnm");
inline constexpr AudioDevicePropertyID kAudioDevicePropertyChannelNumberNameCFString = qmx::fourCharCode("lcnn");

inline constexpr AudioStreamPropertyID kAudioStreamPropertyDirection = qmx::fourCharCode("sdir");
inline constexpr AudioStreamPropertyID kAudioStreamPropertyOwningDevice = qmx::fourCharCode("stdv");
inline constexpr AudioStreamPropertyID kAudioStreamPropertyPhysicalFormat = qmx::fourCharCode("pft ");
inline constexpr AudioStreamPropertyID kAudioStreamPropertyPhysicalFormats = qmx::fourCharCode("pft#");
inline constexpr AudioStreamPropertyID kAudioStreamPropertyPhysicalFormatMatch = qmx::fourCharCode("pftm");
inline constexpr AudioStreamPropertyID kAudioStreamPropertyPhysicalFormatSupported = qmx::fourCharCode("pft?");
inline constexpr AudioStreamPropertyID kAudioStreamPropertyStartingChannel = qmx::fourCharCode("schn");
inline constexpr AudioStreamPropertyID kAudioStreamPropertyTerminalType = qmx::fourCharCode("term");
inline constexpr AudioStreamPropertyID kAudioStreamPropertyLatency = qmx::fourCharCode("ltnc");
inline constexpr AudioStreamPropertyID kAudioStreamPropertyVirtualFormat = qmx::fourCharCode("sfmt");
inline constexpr AudioStreamPropertyID kAudioStreamPropertyAvailableVirtualFormats = qmx::fourCharCode("sfma");
inline constexpr AudioStreamPropertyID kAudioStreamPropertyAvailablePhysicalFormats = qmx::fourCharCode("pfta");

/// The block for reading a property that translates one value into another. The caller owns both buffers; sizes are in
/// bytes.
struct AudioValueTranslation {
    void* mInputData = nullptr;
    UInt32 mInputDataSize = 0;
    void* mOutputData = nullptr;
    UInt32 mOutputDataSize = 0;
};

/// Called on a device's I/O thread in each cycle, in real time: it must not wait, allocate or log. `inInputData` and
/// `outOutputData` have one buffer per stream of their direction (none for a direction without streams): 32-bit native
/// floats, interleaved, at most as many frames as the buffer frame size at the device's start; a longer cycle is split
/// into several calls. Output arrives silent and is mixed with that of other procedures. The lists and times are valid
/// during the call only. The result is ignored.
using AudioDeviceIOProc = OSStatus (*)(AudioDeviceID inDevice, const AudioTimeStamp* inNow,
                                       const AudioBufferList* inInputData, const AudioTimeStamp* inInputTime,
                                       AudioBufferList* outOutputData, const AudioTimeStamp* inOutputTime,
                                       void* inClientData);

// Listeners run on the notification thread, one after the other in the order of the changes, with no lock held: they
// may make any call of this header. Their results are ignored.
using AudioHardwarePropertyListenerProc = OSStatus (*)(AudioHardwarePropertyID inPropertyID, void* inClientData);
using AudioDevicePropertyListenerProc = OSStatus (*)(AudioDeviceID inDevice, UInt32 inChannel, Boolean isInput,
                                                     AudioDevicePropertyID inPropertyID, void* inClientData);
using AudioStreamPropertyListenerProc = OSStatus (*)(AudioStreamID inStream, UInt32 inChannel,
                                                     AudioStreamPropertyID inPropertyID, void* inClientData);

// --- The system
//
// Properties: 'dev#' (AudioDeviceIDs); 'dIn ', 'dOut', 'sOut' (AudioDeviceID, settable; kAudioDeviceUnknown if there is
// none); 'duid' (AudioValueTranslation from a CFStringRef to an AudioDeviceID; the input size is ignored;
// kAudioHardwareBadDeviceError for an unknown UID); 'bbvs', 'bbvd', 'bbd#' if the hardware has such a control; 'rnlp',
// 'slep', 'unld', 'mast', 'inot', 'hogr'.

/// Size in bytes of a property's value and whether it can be set; either pointer may be null.
[[nodiscard]] QMX_EXPORT OSStatus AudioHardwareGetPropertyInfo(AudioHardwarePropertyID inPropertyID, UInt32* outSize,
                                                               Boolean* outWritable);
/// Reads a value into a block of `*ioPropertyDataSize` bytes and sets that to the number of bytes used.
[[nodiscard]] QMX_EXPORT OSStatus AudioHardwareGetProperty(AudioHardwarePropertyID inPropertyID,
                                                           UInt32* ioPropertyDataSize, void* outPropertyData);
/// Sets a value at once.
[[nodiscard]] QMX_EXPORT OSStatus AudioHardwareSetProperty(AudioHardwarePropertyID inPropertyID,
                                                           UInt32 inPropertyDataSize, const void* inPropertyData);
/// Registers for changes of a property, or of all (kAudioPropertyWildcardPropertyID). If the list of devices has
/// changed since it was last read, the new listener is called for 'dev#' at once, on the notification thread.
[[nodiscard]] QMX_EXPORT OSStatus AudioHardwareAddPropertyListener(AudioHardwarePropertyID inPropertyID,
                                                                   AudioHardwarePropertyListenerProc inProc,
                                                                   void* inClientData);
/// Ends a registration. Waits for a call of the listener in progress, except inside a listener or a callback. After
/// this returns, the listener is not called for that registration any more.
[[nodiscard]] QMX_EXPORT OSStatus AudioHardwareRemovePropertyListener(AudioHardwarePropertyID inPropertyID,
                                                                      AudioHardwarePropertyListenerProc inProc,
                                                                      void* inClientData);

// --- Devices
//
// A channel is 0 for the section as a whole, or one of its channels from 1 up; `isInput` selects the section.
// Properties of the device as a whole (name, rate, buffer size, ...) can be read in both sections.
//
// Changes are announced per property, section and channel: properties of the device as a whole on channel 0, once for
// each section that has streams (for the output section if neither has); a stream's format on channel 0 for the first
// stream of a section and on the starting channel for the others; volumes ('volm', then 'vold') and mutes on their
// channels. When a device goes away, it announces 'livn', its ID becomes unknown, and the system announces 'dev#'.

/// Size in bytes of a property's value and whether it can be set; either pointer may be null.
[[nodiscard]] QMX_EXPORT OSStatus AudioDeviceGetPropertyInfo(AudioDeviceID inDevice, UInt32 inChannel, Boolean isInput,
                                                             AudioDevicePropertyID inPropertyID, UInt32* outSize,
                                                             Boolean* outWritable);
/// Reads a value into a block of `*ioPropertyDataSize` bytes and sets that to the number of bytes used. The caller
/// releases a CFStringRef that is read.
[[nodiscard]] QMX_EXPORT OSStatus AudioDeviceGetProperty(AudioDeviceID inDevice, UInt32 inChannel, Boolean isInput,
                                                         AudioDevicePropertyID inPropertyID, UInt32* ioPropertyDataSize,
                                                         void* outPropertyData);
/// Sets a value at once; `inWhen` is ignored.
[[nodiscard]] QMX_EXPORT OSStatus AudioDeviceSetProperty(AudioDeviceID inDevice, const AudioTimeStamp* inWhen,
                                                         UInt32 inChannel, Boolean isInput,
                                                         AudioDevicePropertyID inPropertyID, UInt32 inPropertyDataSize,
                                                         const void* inPropertyData);
/// Registers for changes of a property on a channel of a section; each of the three may be its wildcard. `inSection` is
/// 1 for input and 0 for output.
[[nodiscard]] QMX_EXPORT OSStatus AudioDeviceAddPropertyListener(AudioDeviceID inDevice, UInt32 inChannel,
                                                                 UInt8 inSection, AudioDevicePropertyID inPropertyID,
                                                                 AudioDevicePropertyListenerProc inProc,
                                                                 void* inClientData);
/// As AudioHardwareRemovePropertyListener; also for a device that is gone.
[[nodiscard]] QMX_EXPORT OSStatus AudioDeviceRemovePropertyListener(AudioDeviceID inDevice, UInt32 inChannel,
                                                                    UInt8 inSection, AudioDevicePropertyID inPropertyID,
                                                                    AudioDevicePropertyListenerProc inProc,
                                                                    void* inClientData);

// A registration is identified by the device, the procedure and the client data: two objects with one procedure are two
// registrations and never stop each other.

/// Registers a procedure; AudioDeviceStart starts it.
[[nodiscard]] QMX_EXPORT OSStatus AudioDeviceAddIOProc(AudioDeviceID inDevice, AudioDeviceIOProc inProc,
                                                       void* inClientData);
/// Stops a procedure and unregisters it. Waits for the cycle in flight, except inside an I/O or render callback. After
/// this returns, the procedure is not called any more. Also for a device that is gone.
[[nodiscard]] QMX_EXPORT OSStatus AudioDeviceRemoveIOProc(AudioDeviceID inDevice, AudioDeviceIOProc inProc,
                                                          void* inClientData);
/// Calls a registered procedure from the next cycle on, and starts the device for the first one. 0 if it runs already.
/// On failure the procedure stays stopped.
[[nodiscard]] QMX_EXPORT OSStatus AudioDeviceStart(AudioDeviceID inDevice, AudioDeviceIOProc inProc,
                                                   void* inClientData);
/// Stops calling a procedure, and stops the device after the last one. Does not wait: the cycle in flight may go on
/// (see qmx::waitForIOCycle). 0 for a registered procedure that is stopped already.
[[nodiscard]] QMX_EXPORT OSStatus AudioDeviceStop(AudioDeviceID inDevice, AudioDeviceIOProc inProc, void* inClientData);

/// The present instant in the device's clock and the host's. The device must run.
[[nodiscard]] QMX_EXPORT OSStatus AudioDeviceGetCurrentTime(AudioDeviceID inDevice, AudioTimeStamp* outTime);
/// Translates an instant between the device's sample time and host time: from the one valid in `inTime` (sample time if
/// both are) to those that `outTime->mFlags` asks for. The device must run.
[[nodiscard]] QMX_EXPORT OSStatus AudioDeviceTranslateTime(AudioDeviceID inDevice, const AudioTimeStamp* inTime,
                                                           AudioTimeStamp* outTime);

// --- Streams
//
// The channel argument is ignored.

/// Size in bytes of a property's value and whether it can be set; either pointer may be null.
[[nodiscard]] QMX_EXPORT OSStatus AudioStreamGetPropertyInfo(AudioStreamID inStream, UInt32 inChannel,
                                                             AudioStreamPropertyID inPropertyID, UInt32* outSize,
                                                             Boolean* outWritable);
/// Reads a value into a block of `*ioPropertyDataSize` bytes and sets that to the number of bytes used.
[[nodiscard]] QMX_EXPORT OSStatus AudioStreamGetProperty(AudioStreamID inStream, UInt32 inChannel,
                                                         AudioStreamPropertyID inPropertyID, UInt32* ioPropertyDataSize,
                                                         void* outPropertyData);
/// Sets a value at once; `inWhen` is ignored.
[[nodiscard]] QMX_EXPORT OSStatus AudioStreamSetProperty(AudioStreamID inStream, const AudioTimeStamp* inWhen,
                                                         UInt32 inChannel, AudioStreamPropertyID inPropertyID,
                                                         UInt32 inPropertyDataSize, const void* inPropertyData);
/// Registers for changes of a property of a stream, or of all (kAudioPropertyWildcardPropertyID).
[[nodiscard]] QMX_EXPORT OSStatus AudioStreamAddPropertyListener(AudioStreamID inStream, UInt32 inChannel,
                                                                 AudioStreamPropertyID inPropertyID,
                                                                 AudioStreamPropertyListenerProc inProc,
                                                                 void* inClientData);
/// As AudioHardwareRemovePropertyListener; also for a stream that is gone.
[[nodiscard]] QMX_EXPORT OSStatus AudioStreamRemovePropertyListener(AudioStreamID inStream, UInt32 inChannel,
                                                                    AudioStreamPropertyID inPropertyID,
                                                                    AudioStreamPropertyListenerProc inProc,
                                                                    void* inClientData);

// --- Host time

/// The host's clock in the unit of AudioTimeStamp::mHostTime, nanoseconds: monotonic time or, with virtual hardware,
/// its timeline.
QMX_EXPORT UInt64 AudioGetCurrentHostTime();

namespace qmx
{

/// Waits for the cycle that the device's procedures are in, if any; returns at once inside an I/O or render callback
/// and for an unknown device. After it returns outside of callbacks, no procedure uses an object that was replaced
/// before the call. Hold no lock that a procedure takes.
QMX_EXPORT void waitForIOCycle(AudioDeviceID device);

enum class AudioBackend {
    virtualHardware, ///< devices of this process only, see VirtualHardware.h
    pipeWire         ///< the desktop's devices; none while no server runs, which is looked for at intervals
};

/// Chooses what supplies the devices, overriding the environment variable QMX_AUDIO_BACKEND ("virtual" or "pipewire";
/// without it PipeWire, if that is built in). kAudioHardwareUnsupportedOperationError if it is not built in or its
/// module is missing. To be called before any other call of this header in the process; afterwards
/// kAudioHardwareIllegalOperationError, unless it is the current backend.
[[nodiscard]] QMX_EXPORT OSStatus setAudioBackend(AudioBackend backend);

/// Why the devices are not those that were asked for: the environment names a backend that does not exist, the
/// backend's module is missing (also why setAudioBackend() refused it), or there is no sound server at present. Empty
/// if nothing is wrong, and before the first use of a device. Any thread but the real-time ones.
QMX_EXPORT std::string audioBackendFailure();

} // namespace qmx
