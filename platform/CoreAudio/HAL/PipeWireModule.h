// SPDX-License-Identifier: MIT
// The module of the sound server's devices.
#pragma once

#include "CoreAudio/HAL/Backend.h"
#include "Foundation/ModuleLoader.h"

namespace qmx
{

/// The table of the module.
struct PipeWireModule : ModuleHead {
    Backend& (*backend)() = nullptr; ///< the only object; never destroyed

    /// Loads the module when it is first called. Null if the module is missing, or if the build is without it.
    static const PipeWireModule* find();
    /// Why the last search found none; empty if it did, if there was none, or if the build is without the module.
    static std::string failure();
};

} // namespace qmx
