// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <string>

namespace qmx
{

/// What a status of the audio file, converter or hardware service means, for people: a part of a sentence.
std::string fileFailureReason(OSStatus status);

} // namespace qmx
