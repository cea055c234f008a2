// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Archives/PropertyList.h"
#include "Foundation/Export.h"
#include "Foundation/Object.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace qmx
{

/// An archived object of an unregistered class, kept with everything it refers to so that it can be archived again. It
/// keeps the whole object table that it came from. Immutable.
class QMX_EXPORT OpaqueObject : public Object
{
public:
    using Table = std::shared_ptr<const PropertyListArray>;

    OpaqueObject(std::string className, Table table, std::uint64_t index)
        : className_(std::move(className)), table_(std::move(table)), index_(index)
    {
    }

    /// The archived class's name; empty if the archive names none.
    const std::string& className() const { return className_; }
    /// The objects of the archive, and the place of this one among them.
    const Table& table() const { return table_; }
    std::uint64_t index() const { return index_; }

private:
    std::string className_;
    Table table_;
    std::uint64_t index_;
};

} // namespace qmx
