// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <string>

namespace example
{

/// What a status of the audio file or converter service means, for people.
std::string statusText(OSStatus status);

/// A Failure "DOING PATH: why" for a status that is none of success.
void check(OSStatus status, const std::string& doing, const std::string& path);

} // namespace example
