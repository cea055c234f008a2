// SPDX-License-Identifier: MIT
// What an AudioUnit handle points to.
#pragma once

#include "AudioUnit/Components.h"
#include "AudioUnit/Units/Unit.h"

#include <memory>

struct OpaqueComponentInstance {
    Component component;
    std::shared_ptr<qmx::Unit> unit; ///< shared with the units that are connected to it
};
