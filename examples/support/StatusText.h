// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <string>

namespace example
{

/// What a status of the audio file or converter service means, for people.
std::string statusText(OSStatus status);

} // namespace example
