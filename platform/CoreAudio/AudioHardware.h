// SPDX-License-Identifier: MIT
// Codes of the audio hardware layer: properties of the system, of devices and of streams, and statuses.
#pragma once

#include "CoreAudioTypes/CoreAudioTypes.h"

using AudioHardwarePropertyID = UInt32;
using AudioDevicePropertyID = UInt32;
using AudioStreamPropertyID = UInt32;

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
