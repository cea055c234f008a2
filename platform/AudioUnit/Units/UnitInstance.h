// SPDX-License-Identifier: MIT
// What an AudioUnit handle points to.
#pragma once

#include "AudioUnit/Components.h"
#include "AudioUnit/Units/Unit.h"
#include "Foundation/Threads/Retirement.h"

#include <memory>

/// Its destructor closes the unit.
struct OpaqueComponentInstance final : qmx::Retirable {
    explicit OpaqueComponentInstance(std::shared_ptr<qmx::Unit> made);
    ~OpaqueComponentInstance() override;

    const std::shared_ptr<qmx::Unit> unit; ///< shared with the units that are connected to it
};
