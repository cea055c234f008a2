// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

#include <string>

namespace example
{

/// The meaning of a status of the audio file or converter service, for people.
std::string statusText(OSStatus status);

/// A Failure "DOING PATH: why" unless the status is success.
void check(OSStatus status, const std::string& doing, const std::string& path);

} // namespace example
