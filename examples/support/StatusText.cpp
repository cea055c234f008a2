// SPDX-License-Identifier: MIT
#include "support/StatusText.h"

#include "support/Failure.h"

#include <QMXCoreAudio/AudioToolbox/AudioFile.h>
#include <QMXCoreAudio/Foundation/Modules.h>
#include <QMXCoreAudio/Foundation/Text/Format.h>

#include <cerrno>

namespace example
{

std::string statusText(OSStatus status)
{
    const bool isUnsupported =
        status == kAudioFileUnsupportedFileTypeError || status == kAudioFileUnsupportedDataFormatError;
    if (std::string missing = qmx::missingModule(); isUnsupported && !missing.empty())
        return missing;
    switch (status) {
    case kAudioFileUnsupportedFileTypeError:
        return "not an audio file of a type that is known";
    case kAudioFileInvalidFileError:
    case kAudioFileInvalidChunkError:
    case eofErr:
        return "the header is damaged or cut short";
    case kAudioFileUnsupportedDataFormatError:
        return "the coding of its samples is not known";
    case kAudioFileDoesNotAllow64BitDataSizeError:
        return "too long for a file of this type";
    case dskFulErr:
        return systemErrorText(ENOSPC);
    case ioErr:
        return systemErrorText(EIO);
    case fnfErr:
    case dirNFErr:
        return systemErrorText(ENOENT);
    case permErr:
    case wrPermErr:
    case kAudioFilePermissionsError:
        return systemErrorText(EACCES);
    case dupFNErr:
        return systemErrorText(EEXIST);
    default:
        return qmx::format("the audio file service gives status %d", status);
    }
}

void check(OSStatus status, const std::string& doing, const std::string& path)
{
    if (status != noErr)
        throw Failure{doing + " " + path + ": " + statusText(status)};
}

} // namespace example
