// SPDX-License-Identifier: MIT
// All audio units. A further unit is one more line in UnitTable.cpp.
#pragma once

#include "AudioUnit/Components.h"

#include <memory>
#include <span>

namespace qmx
{
class Unit;
}

struct OpaqueComponent {
    ComponentDescription description;
    std::shared_ptr<qmx::Unit> (*make)();
};

namespace qmx
{

std::span<const OpaqueComponent> unitTable();

} // namespace qmx
