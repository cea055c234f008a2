// SPDX-License-Identifier: MIT
// From an archive's object table to objects: what both kinds of archive have in common once they are parsed.
#pragma once

#include "Foundation/Archives/Coder.h"
#include "Foundation/Archives/PropertyList.h"

#include <cstdint>
#include <memory>

namespace qmx
{

/// A parsed archive in the structure of keyed ones: entries that refer to each other by their places, with values that
/// were encoded without a key under "$0", "$1", ...
struct ObjectGraph {
    std::shared_ptr<const PropertyListArray> table;
    std::uint64_t root = 0;
    bool isKeyed = true; ///< whether decoders offer keys
};

/// The root object. Null when it is nil, and when the graph is inconsistent (`error`, if given, says so).
std::shared_ptr<Object> makeObjects(const ObjectGraph& graph, ArchiveError* error);

} // namespace qmx
