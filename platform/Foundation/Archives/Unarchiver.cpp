// SPDX-License-Identifier: MIT
#include "Foundation/Archives/Unarchiver.h"

#include "Foundation/Archives/ObjectGraph.h"
#include "Foundation/Archives/SequentialArchive.h"
#include "Foundation/Memory.h"

namespace qmx
{

std::shared_ptr<Object> Unarchiver::unarchiveObjectWithData(std::span<const std::uint8_t> data, ArchiveError* error)
{
    ArchiveError reason = ArchiveError::noMemory;
    auto root = withinMemory(std::shared_ptr<Object>(), [&] {
        ArchiveError found = ArchiveError::none;
        const auto graph = parseSequentialArchive(data, found);
        auto made = graph ? makeObjects(*graph, &found) : nullptr;
        reason = found;
        return made;
    });
    if (error)
        *error = reason;
    return root;
}

} // namespace qmx
