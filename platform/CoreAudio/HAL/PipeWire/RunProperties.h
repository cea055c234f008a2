// SPDX-License-Identifier: MIT
#pragma once

struct pw_properties;

namespace qmx::pipewire
{

struct RunRequest;

/// What a filter reports to the server: who it is for, and the cycle and rate it asks for. The caller's to free.
pw_properties* runProperties(const RunRequest& request);

} // namespace qmx::pipewire
