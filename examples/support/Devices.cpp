// SPDX-License-Identifier: MIT
#include "support/Devices.h"

#include <QMXCoreAudio/CoreAudio/AudioHardware.h>

example::Failure example::noDevice(const std::string& missing)
{
    const std::string failure = qmx::audioBackendFailure();
    const std::string usual = "the machine has none or its sound server does not run";
    return {missing + ": " + (failure.empty() ? usual : failure) + "; QMX_AUDIO_BACKEND=virtual gives simulated ones"};
}
