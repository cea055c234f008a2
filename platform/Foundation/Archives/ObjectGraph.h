// SPDX-License-Identifier: MIT
// Makes objects from an archive's object table, for both kinds of archive once they are parsed.
#pragma once

#include "Foundation/Archives/Coder.h"
#include "Foundation/Archives/PropertyList.h"

#include <cstdint>
#include <memory>

namespace qmx
{

/// A parsed archive in the structure of a keyed one: entries that refer to each other by their places. Values that were
/// encoded without a key are under "$0", "$1", ...
struct ObjectGraph {
    std::shared_ptr<const PropertyListArray> table;
    std::uint64_t root = 0;
    bool isKeyed = true; ///< whether decoders offer keys
};

/// The root object. Null if it is nil, and on failure; `error` (may be null) is set to the reason.
std::shared_ptr<Object> makeObjects(const ObjectGraph& graph, ArchiveError* error);

} // namespace qmx
