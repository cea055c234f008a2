// SPDX-License-Identifier: MIT
// The tests' devices are the virtual ones, whatever sound server the machine has.
#include "CoreAudio/AudioHardware.h"

namespace
{

[[maybe_unused]] const OSStatus chosen = qmx::setAudioBackend(qmx::AudioBackend::virtualHardware);

} // namespace
