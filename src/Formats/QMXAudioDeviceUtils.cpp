// SPDX-License-Identifier: MIT
#include "Formats/QMXAudioDeviceUtils.h"

#include "Formats/CodeTexts.h"
#include "Foundation/Text/Format.h"

namespace
{

using qmx::CodeText;
using qmx::findText;

constexpr CodeText kErrorMessages[] = {
    {kAudioHardwareNoError, "No error"},
    {kAudioHardwareNotRunningError, "Hardware not running error"},
    {kAudioHardwareUnspecifiedError, "Hardware unspecified error"},
    {kAudioHardwareUnknownPropertyError, "Hardware unknown property error"},
    {kAudioHardwareBadPropertySizeError, "Hardware bad property size error"},
    {kAudioHardwareIllegalOperationError, "Hardware illegal operation error"},
    {kAudioHardwareBadDeviceError, "Hardware bad device error"},
    {kAudioHardwareBadStreamError, "Hardware bad stream error"},
    {kAudioDeviceUnsupportedFormatError, "Hardware unsupported format error"},
    {kAudioDevicePermissionsError, "Permission denied"},
};

constexpr CodeText kFormatNames[] = {
    {kAudioFormatLinearPCM, "Linear PCM"},    {kAudioFormatAC3, "AC-3"},
    {kAudioFormat60958AC3, "AC-3 IEC 60958"}, {kAudioFormatAppleIMA4, "IMA 4:1"},
    {kAudioFormatMPEG4AAC, "MPEG-4 AAC"},     {kAudioFormatMPEG4CELP, "MPEG-4 CELP"},
    {kAudioFormatMPEG4HVXC, "MPEG-4 HVXC"},   {kAudioFormatMPEG4TwinVQ, "MPEG-4 TwinVQ"},
};

constexpr CodeText kPropertyNames[] = {
    QMX_NAMED(kAudioHardwarePropertyBootChimeVolumeScalar),
    QMX_NAMED(kAudioHardwarePropertyBootChimeVolumeDecibels),
    QMX_NAMED(kAudioHardwarePropertyBootChimeVolumeRangeDecibels),
    QMX_NAMED(kAudioHardwarePropertyBootChimeVolumeScalarToDecibels),
    QMX_NAMED(kAudioHardwarePropertyBootChimeVolumeDecibelsToScalar),
    QMX_NAMED(kAudioHardwarePropertyDefaultInputDevice),
    QMX_NAMED(kAudioHardwarePropertyDefaultOutputDevice),
    QMX_NAMED(kAudioHardwarePropertyDefaultSystemOutputDevice),
    QMX_NAMED(kAudioHardwarePropertyDevices),
    QMX_NAMED(kAudioHardwarePropertyDeviceForUID),
    QMX_NAMED(kAudioHardwarePropertyRunLoop),
    QMX_NAMED(kAudioHardwarePropertySleepingIsAllowed),
    QMX_NAMED(kAudioHardwarePropertyUnloadingIsAllowed),
    QMX_NAMED(kAudioDevicePropertyActualSampleRate),
    QMX_NAMED(kAudioDevicePropertyAvailableNominalSampleRates),
    QMX_NAMED(kAudioDevicePropertyBufferFrameSize),
    QMX_NAMED(kAudioDevicePropertyBufferFrameSizeRange),
    QMX_NAMED(kAudioDevicePropertyBufferSize),
    QMX_NAMED(kAudioDevicePropertyBufferSizeRange),
    QMX_NAMED(kAudioDevicePropertyClockSource),
    QMX_NAMED(kAudioDevicePropertyClockSources),
    QMX_NAMED(kAudioDevicePropertyClockSourceNameForID),
    QMX_NAMED(kAudioDevicePropertyClockSourceNameForIDCFString),
    QMX_NAMED(kAudioDevicePropertyDataSource),
    QMX_NAMED(kAudioDevicePropertyDataSources),
    QMX_NAMED(kAudioDevicePropertyDataSourceNameForID),
    QMX_NAMED(kAudioDevicePropertyDataSourceNameForIDCFString),
    QMX_NAMED(kAudioDevicePropertyDeviceCanBeDefaultDevice),
    QMX_NAMED(kAudioDevicePropertyDeviceCanBeDefaultSystemDevice),
    QMX_NAMED(kAudioDevicePropertyDeviceIsAlive),
    QMX_NAMED(kAudioDevicePropertyDeviceIsRunning),
    QMX_NAMED(kAudioDevicePropertyDeviceIsRunningSomewhere),
    QMX_NAMED(kAudioDevicePropertyDeviceManufacturer),
    QMX_NAMED(kAudioDevicePropertyDeviceManufacturerCFString),
    QMX_NAMED(kAudioDevicePropertyDeviceName),
    QMX_NAMED(kAudioDevicePropertyDeviceNameCFString),
    QMX_NAMED(kAudioDevicePropertyDeviceUID),
    QMX_NAMED(kAudioDevicePropertyDriverShouldOwniSub),
    QMX_NAMED(kAudioDevicePropertyHogMode),
    QMX_NAMED(kAudioDevicePropertyIOProcStreamUsage),
    QMX_NAMED(kAudioDevicePropertyJackIsConnected),
    QMX_NAMED(kAudioDevicePropertyLatency),
    QMX_NAMED(kAudioDevicePropertyMute),
    QMX_NAMED(kAudioDevicePropertyNominalSampleRate),
    QMX_NAMED(kAudioDevicePropertyPlayThru),
    QMX_NAMED(kAudioDevicePropertyPlugIn),
    QMX_NAMED(kAudioDevicePropertyPreferredChannelsForStereo),
    QMX_NAMED(kAudioDevicePropertyRegisterBufferList),
    QMX_NAMED(kAudioDevicePropertySafetyOffset),
    QMX_NAMED(kAudioDevicePropertyStreamConfiguration),
    QMX_NAMED(kAudioDevicePropertyStreamFormat),
    QMX_NAMED(kAudioDevicePropertyStreamFormatMatch),
    QMX_NAMED(kAudioDevicePropertyStreamFormats),
    QMX_NAMED(kAudioDevicePropertyStreamFormatSupported),
    QMX_NAMED(kAudioDevicePropertyStreams),
    QMX_NAMED(kAudioDevicePropertySubMute),
    QMX_NAMED(kAudioDevicePropertySubVolumeScalar),
    QMX_NAMED(kAudioDevicePropertySubVolumeDecibels),
    QMX_NAMED(kAudioDevicePropertySubVolumeRangeDecibels),
    QMX_NAMED(kAudioDevicePropertySubVolumeScalarToDecibels),
    QMX_NAMED(kAudioDevicePropertySubVolumeDecibelsToScalar),
    QMX_NAMED(kAudioDevicePropertySupportsMixing),
    QMX_NAMED(kAudioDevicePropertyTransportType),
    QMX_NAMED(kAudioDevicePropertyUsesVariableBufferFrameSizes),
    QMX_NAMED(kAudioDevicePropertyVolumeScalar),
    QMX_NAMED(kAudioDevicePropertyVolumeDecibels),
    QMX_NAMED(kAudioDevicePropertyVolumeRangeDecibels),
    QMX_NAMED(kAudioDevicePropertyVolumeScalarToDecibels),
    QMX_NAMED(kAudioDevicePropertyVolumeDecibelsToScalar),
    QMX_NAMED(kAudioDeviceProcessorOverload),
    QMX_NAMED(kAudioStreamPropertyDirection),
    QMX_NAMED(kAudioStreamPropertyOwningDevice),
    QMX_NAMED(kAudioStreamPropertyPhysicalFormat),
    QMX_NAMED(kAudioStreamPropertyPhysicalFormats),
    QMX_NAMED(kAudioStreamPropertyPhysicalFormatMatch),
    QMX_NAMED(kAudioStreamPropertyPhysicalFormatSupported),
    QMX_NAMED(kAudioStreamPropertyStartingChannel),
    QMX_NAMED(kAudioStreamPropertyTerminalType),
};

/// The code's four bytes from the most significant down, in quotes.
std::string quoted(UInt32 code)
{
    return qmx::format("'%c%c%c%c'", code >> 24, (code >> 16) & 0xFF, (code >> 8) & 0xFF, code & 0xFF);
}

} // namespace

std::string QMXAudioDeviceUtils::errorMessage(OSStatus status)
{
    const auto code = static_cast<UInt32>(status);
    if (const char* text = findText(kErrorMessages, code))
        return text;
    return qmx::format("Unknown error code: (%x) ", code) + quoted(code);
}

std::string QMXAudioDeviceUtils::errorMessage_forProperty(OSStatus status, UInt32 propertyID)
{
    return errorMessage(status) + " (" + propertyName(propertyID) + ")";
}

std::string QMXAudioDeviceUtils::formatNameForID(AudioFormatID formatID)
{
    const char* name = findText(kFormatNames, formatID);
    return name ? name : "Unknown format";
}

std::string QMXAudioDeviceUtils::propertyName(UInt32 propertyID)
{
    if (const char* name = findText(kPropertyNames, propertyID))
        return name;
    return "Unknown property: " + quoted(propertyID);
}
