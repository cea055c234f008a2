// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Result.h>

#include <string>

namespace qmx
{

/// What a status of any operation of the library means, for people: "No such file or directory". A status that is not
/// the library's gives its number and, where it has them, its four characters. Where codes of several services are the
/// same, the text fits all. Any thread but the real-time ones.
QMX_EXPORT std::string statusText(OSStatus status);

/// The name of a coding: "FLAC"; its code if it has none. Any thread but the real-time ones.
QMX_EXPORT std::string codingName(AudioFormatID coding);

/// "<path>: <what the status means>", and, when a file could not be read or made because a module is missing (in this
/// thread's last call), which one.
QMX_EXPORT Error fileError(OSStatus status, const std::string& path);

} // namespace qmx
