// SPDX-License-Identifier: MIT
#pragma once

struct pw_properties;

namespace qmx::pipewire
{

struct RunRequest;

/// The properties of a filter on the server: its program and device, and the cycle size and rate that it asks for. The
/// caller frees them.
pw_properties* runProperties(const RunRequest& request);

} // namespace qmx::pipewire
