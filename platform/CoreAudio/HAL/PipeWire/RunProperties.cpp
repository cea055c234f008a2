// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/PipeWire/RunProperties.h"

#include "CoreAudio/HAL/PipeWire/FilterRun.h"

#include <cerrno>

namespace qmx::pipewire
{

// It has no media class and no request to be connected, so that session managers leave the filter's links alone.
pw_properties* runProperties(const RunRequest& request)
{
    const bool records = !request.capturePorts.empty(), plays = !request.playbackPorts.empty();
    const char* const program = program_invocation_short_name; // also the name of its icon and desktop entry
    pw_properties* const properties = pw_properties_new(
        PW_KEY_NODE_NAME, program, PW_KEY_APP_NAME, program, PW_KEY_APP_ID, program, PW_KEY_APP_ICON_NAME, program,
        PW_KEY_MEDIA_NAME, request.name.c_str(), PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY,
        records && plays ? "Duplex" : (records ? "Capture" : "Playback"), PW_KEY_MEDIA_ROLE,
        records ? "Production" : "Music", PW_KEY_NODE_WANT_DRIVER, "true", nullptr);
    pw_properties_setf(properties, PW_KEY_NODE_LATENCY, "%u/%u", request.frames, request.rate);
    pw_properties_setf(properties, PW_KEY_NODE_RATE, "1/%u", request.rate);
    pw_properties_setf(properties, PW_KEY_NODE_FORCE_RATE, "%u", request.forcesRate ? request.rate : 0);
    return properties;
}

} // namespace qmx::pipewire
