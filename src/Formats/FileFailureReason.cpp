// SPDX-License-Identifier: MIT
#include "Formats/FileFailureReason.h"

#include "AudioToolbox/AudioFile.h"
#include "Formats/QMXAudioDeviceUtils.h"
#include "Foundation/Modules.h"
#include "Foundation/Text/Format.h"

namespace
{

// Without a module, files and formats that need it are of an unknown type or format.
bool canBeForLackOfModule(OSStatus status)
{
    return status == kAudioFileUnsupportedFileTypeError || status == kAudioFileUnsupportedDataFormatError;
}

} // namespace

std::string qmx::fileFailureReason(OSStatus status)
{
    if (std::string missing = missingModule(); canBeForLackOfModule(status) && !missing.empty())
        return missing;
    switch (status) {
    case dskFulErr:
        return "the disk is full";
    case ioErr:
        return "input/output error";
    case fnfErr:
    case dirNFErr:
        return "no such file or folder";
    case bdNamErr:
        return "a folder, or no name for a file";
    case permErr:
    case wrPermErr:
    case kAudioFilePermissionsError:
        return "permission denied";
    case dupFNErr:
        return "it exists already";
    case fnOpnErr:
        return "it is not open";
    case opWrErr:
        return "it is open already";
    case eofErr:
        return "it ends there";
    case memFullErr:
        return "not enough memory";
    case paramErr:
        return "a wrong argument";
    case kAudioFileInvalidFileError:
        return "its contents are damaged";
    case kAudioFileOperationNotSupportedError:
        return "it does not allow that";
    case kAudioFileUnsupportedFileTypeError:
        return "not an audio file of a known type";
    case kAudioFileUnsupportedDataFormatError:
        return "not a format for it";
    case kAudioFileDoesNotAllow64BitDataSizeError:
        return "too long for a file of its type";
    case kAudioHardwareUnsupportedOperationError:
        return "it cannot be changed";
    default:
        return status < 0 ? qmx::format("status %d", status) : QMXAudioDeviceUtils::errorMessage(status);
    }
}
