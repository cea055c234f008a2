// SPDX-License-Identifier: MIT
#include "Foundation/Unarchiver.h"

#include "Foundation/ObjectGraph.h"
#include "Foundation/SequentialArchive.h"

namespace qmx
{

std::shared_ptr<Object> Unarchiver::unarchiveObjectWithData(std::span<const std::uint8_t> data, ArchiveError* error)
{
    ArchiveError reason = ArchiveError::none;
    const auto graph = parseSequentialArchive(data, reason);
    auto root = graph ? makeObjects(*graph, &reason) : nullptr;
    if (error)
        *error = reason;
    return root;
}

} // namespace qmx
