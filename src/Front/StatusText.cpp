// SPDX-License-Identifier: MIT
#include "Front/StatusText.h"

#include "AudioToolbox/AudioConverter.h"
#include "AudioToolbox/AudioFile.h"
#include "AudioToolbox/AudioFormat.h"
#include "AudioToolbox/ExtAudioFile.h"
#include "AudioUnit/AUGraph.h"
#include "AudioUnit/AudioUnit.h"
#include "AudioUnit/Components.h"
#include "CoreAudio/AudioHardware.h"
#include "CoreAudioTypes/FourCharCode.h"
#include "Formats/CodeTexts.h"
#include "Foundation/Modules.h"
#include "Foundation/Text/Format.h"

#include <algorithm>
#include <string>

namespace
{

using qmx::CodeText;

constexpr CodeText code(OSStatus status, const char* text)
{
    return {static_cast<UInt32>(status), text};
}

constexpr CodeText statusTexts[] = {
    code(noErr, "No error"),
    code(qmx::cancelledStatus, "Cancelled"),
    code(unimpErr, "Not supported"),
    code(dskFulErr, "No space left on device"),
    code(nsvErr, "No such volume"),
    code(ioErr, "Input/output error"),
    code(bdNamErr, "A folder, or not a name for a file"),
    code(fnOpnErr, "Not open"),
    code(eofErr, "End of file"),
    code(posErr, "A position before the start"),
    code(tmfoErr, "Too many open files"),
    code(fnfErr, "No such file or directory"),
    code(fBsyErr, "In use"),
    code(dupFNErr, "File exists"),
    code(opWrErr, "Open for writing already"),
    code(paramErr, "Invalid argument"),
    code(permErr, "Permission denied"),
    code(wrPermErr, "Not open for writing"),
    code(memFullErr, "Not enough memory"),
    code(dirNFErr, "No such file or directory"),
    code(errFSBadFSRef, "Not a reference to a file"),
    // files
    code(kAudioFileUnspecifiedError, "Unspecified error of the file"),
    code(kAudioFileUnsupportedFileTypeError, "Not an audio file of a known type"),
    code(kAudioFileUnsupportedDataFormatError, "The coding of the samples is not supported"),
    code(kAudioFileUnsupportedPropertyError, "The file has no such property"),
    code(kAudioFilePermissionsError, "Permission denied"),
    code(kAudioFileNotOptimizedError, "Needs to be optimized before more is written"),
    code(kAudioFileFormatNameUnavailableError, "The format has no name"),
    code(kAudioFileInvalidChunkError, "No such chunk, or a damaged one"),
    code(kAudioFileDoesNotAllow64BitDataSizeError, "Too long for a file of this type"),
    code(kAudioFileInvalidPacketOffsetError, "Invalid position of a packet"),
    code(kAudioFileInvalidFileError, "The file is damaged or cut short"),
    code(kAudioFileOperationNotSupportedError, "Not possible with this file or format"),
    code(kAudioFileInvalidPacketDependencyError, "A packet that others depend on is missing"),
    // extended files
    code(kExtAudioFileError_InvalidProperty, "The file has no such property"),
    code(kExtAudioFileError_InvalidPropertySize, "Wrong size of a property"),
    code(kExtAudioFileError_NonPCMClientFormat, "The program's side of a file must be linear PCM"),
    code(kExtAudioFileError_InvalidChannelMap, "Invalid channel map"),
    code(kExtAudioFileError_InvalidOperationOrder, "Not possible at this point"),
    code(kExtAudioFileError_InvalidDataFormat, "Invalid format of the file"),
    code(kExtAudioFileError_MaxPacketSizeUnknown, "The largest packet is not known"),
    code(kExtAudioFileError_InvalidSeek, "A position outside the file"),
    code(kExtAudioFileError_AsyncWriteTooLarge, "More than a queued write can hold"),
    code(kExtAudioFileError_AsyncWriteBufferOverflow, "The disk is too slow"),
    // converters and formats
    code(kAudioConverterErr_PropertyNotSupported, "The converter or format has no such property"),
    code(kAudioConverterErr_InvalidInputSize, "Wrong size of the input"),
    code(kAudioConverterErr_InvalidOutputSize, "Wrong size of the output"),
    code(kAudioConverterErr_UnspecifiedError, "Unspecified error"),            // of the hardware and of formats, too
    code(kAudioConverterErr_BadPropertySizeError, "Wrong size of a property"), // of files and hardware, too
    code(kAudioConverterErr_RequiresPacketDescriptionsError, "Needs descriptions of the packets"),
    code(kAudioConverterErr_InputSampleRateOutOfRange, "The sample rate of the input is not supported"),
    code(kAudioConverterErr_OutputSampleRateOutOfRange, "The sample rate of the output is not supported"),
    code(kAudioFormatBadSpecifierSizeError, "Wrong size of a question about formats"),
    code(kAudioFormatUnknownFormatError, "Unknown format"),
    // units and graphs
    code(invalidComponentID, "No such component"),
    code(componentNotCaptured, "The component is not captured"),
    code(badComponentInstance, "Not an open component"),
    code(badComponentSelector, "The component has no such operation"),
    code(kAUGraphErr_NodeNotFound, "The graph has no such node"),
    code(kAUGraphErr_InvalidConnection, "Not a possible connection"),
    code(kAUGraphErr_OutputNodeErr, "The graph has no output node, or two"),
    code(kAUGraphErr_CannotDoInCurrentContext, "Not possible at this moment"), // units, too
    code(kAUGraphErr_InvalidAudioUnit, "Not an audio unit"),
    code(kAudioUnitErr_InvalidProperty, "The unit has no such property"),
    code(kAudioUnitErr_InvalidParameter, "The unit has no such parameter"),
    code(kAudioUnitErr_InvalidElement, "The unit has no such element"),
    code(kAudioUnitErr_NoConnection, "The unit's input is not connected"),
    code(kAudioUnitErr_FailedInitialization, "The unit could not be initialized"),
    code(kAudioUnitErr_TooManyFramesToProcess, "More frames than a slice may have"),
    code(kAudioUnitErr_IllegalInstrument, "Illegal instrument"),
    code(kAudioUnitErr_InstrumentTypeNotFound, "No such instrument"),
    code(kAudioUnitErr_InvalidFile, "Invalid file"),
    code(kAudioUnitErr_UnknownFileType, "Unknown type of file"),
    code(kAudioUnitErr_FileNotSpecified, "No file was named"),
    code(kAudioUnitErr_FormatNotSupported, "The unit does not support the format"),
    code(kAudioUnitErr_Uninitialized, "The unit is not initialized"),
    code(kAudioUnitErr_InvalidScope, "The unit has no such scope"),
    code(kAudioUnitErr_PropertyNotWritable, "The property cannot be changed"),
    code(kAudioUnitErr_InvalidPropertyValue, "Not a value for the property"),
    code(kAudioUnitErr_PropertyNotInUse, "The property is not in use"),
    code(kAudioUnitErr_Initialized, "Not possible while the unit is initialized"),
    code(kAudioUnitErr_InvalidOfflineRender, "The unit cannot render offline"),
    code(kAudioUnitErr_Unauthorized, "Not authorized"),
    // hardware
    code(kAudioHardwareNotRunningError, "The device is not running"),
    code(kAudioHardwareUnknownPropertyError, "The device has no such property"),
    code(kAudioHardwareIllegalOperationError, "Not possible with this device"),
    code(kAudioHardwareBadObjectError, "No such object of the hardware"),
    code(kAudioHardwareBadDeviceError, "The device is gone"),
    code(kAudioHardwareBadStreamError, "The stream is gone"),
    code(kAudioHardwareUnsupportedOperationError, "The device does not support this"),
    code(kAudioDeviceUnsupportedFormatError, "The device does not support the format"),
    code(kAudioDevicePermissionsError, "Another program has the device to itself"),
};

constexpr CodeText codingNames[] = {
    {kAudioFormatLinearPCM, "Linear PCM"},
    {kAudioFormatAC3, "AC-3"},
    {kAudioFormat60958AC3, "AC-3 IEC 60958"},
    {kAudioFormatEnhancedAC3, "Enhanced AC-3"},
    {kAudioFormatAppleIMA4, "IMA 4:1"},
    {kAudioFormatMPEG4AAC, "AAC"},
    {kAudioFormatMPEG4AAC_HE, "HE-AAC"},
    {kAudioFormatMPEG4AAC_HE_V2, "HE-AAC v2"},
    {kAudioFormatMPEG4AAC_LD, "AAC-LD"},
    {kAudioFormatMPEG4AAC_ELD, "AAC-ELD"},
    {kAudioFormatMPEG4AAC_ELD_SBR, "AAC-ELD with SBR"},
    {kAudioFormatMPEG4AAC_ELD_V2, "AAC-ELD v2"},
    {kAudioFormatMPEG4AAC_Spatial, "AAC Spatial"},
    {kAudioFormatMPEG4CELP, "MPEG-4 CELP"},
    {kAudioFormatMPEG4HVXC, "MPEG-4 HVXC"},
    {kAudioFormatMPEG4TwinVQ, "MPEG-4 TwinVQ"},
    {kAudioFormatMACE3, "MACE 3:1"},
    {kAudioFormatMACE6, "MACE 6:1"},
    {kAudioFormatULaw, "u-law"},
    {kAudioFormatALaw, "A-law"},
    {kAudioFormatQDesign, "QDesign Music"},
    {kAudioFormatQDesign2, "QDesign Music 2"},
    {kAudioFormatQUALCOMM, "QCELP"},
    {kAudioFormatMPEGLayer1, "MPEG Layer 1"},
    {kAudioFormatMPEGLayer2, "MPEG Layer 2"},
    {kAudioFormatMPEGLayer3, "MP3"},
    {kAudioFormatMPEG, "MPEG"},
    {kAudioFormatDVAudio, "DV Audio"},
    {kAudioFormatVariableDurationDVAudio, "DV Audio of variable duration"},
    {kAudioFormatTimeCode, "Time code"},
    {kAudioFormatMIDIStream, "MIDI"},
    {kAudioFormatParameterValueStream, "Parameter values"},
    {kAudioFormatAppleLossless, "ALAC"},
    {kAudioFormatAMR, "AMR"},
    {kAudioFormatAMR_WB, "AMR-WB"},
    {kAudioFormatAudible, "Audible"},
    {kAudioFormatDVIIntelIMA, "DVI ADPCM"},
    {kAudioFormatMicrosoftGSM, "GSM 6.10"},
    {kAudioFormatAES3, "AES3"},
    {kAudioFormatFLAC, "FLAC"},
    {kAudioFormatOpus, "Opus"},
};

/// The four characters of a code, in quotes; empty if one of them cannot be printed.
std::string quoted(UInt32 code)
{
    const std::string characters = qmx::fourCharString(code);
    const bool isText = std::ranges::all_of(characters, [](char one) { return one >= ' ' && one <= '~'; });
    return isText ? qmx::format("'%@'", characters) : std::string();
}

} // namespace

namespace qmx
{

std::string statusText(OSStatus status)
{
    if (const char* text = findText(statusTexts, static_cast<UInt32>(status)))
        return text;
    const std::string characters = quoted(static_cast<UInt32>(status));
    return format("Error %d", status) + (characters.empty() ? characters : " (" + characters + ")");
}

std::string codingName(AudioFormatID coding)
{
    if (const char* const name = findText(codingNames, coding))
        return name;
    const std::string characters = quoted(coding);
    return characters.empty() ? format("Coding %u", coding) : characters;
}

Error fileError(OSStatus status, const std::string& path)
{
    const bool canBeForLackOfModule =
        status == kAudioFileUnsupportedFileTypeError || status == kAudioFileUnsupportedDataFormatError;
    std::string reason = canBeForLackOfModule ? missingModule() : std::string();
    if (reason.empty())
        reason = statusText(status);
    return {status, path + ": " + reason, path};
}

} // namespace qmx
