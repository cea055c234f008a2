// SPDX-License-Identifier: MIT
#include "Foundation/Archives/KeyedUnarchiver.h"

#include "Foundation/Archives/ObjectGraph.h"
#include "Foundation/Memory.h"

#include <optional>
#include <utility>

namespace qmx
{

namespace
{

std::optional<ObjectGraph> graphOf(std::span<const std::uint8_t> data)
{
    const std::optional<PropertyListValue> archive = parseBinaryPropertyList(data);
    const auto* parts = archive ? archive->as<PropertyListDictionary>() : nullptr;
    if (!parts || !parts->find("$version") || !parts->find("$archiver"))
        return std::nullopt;
    const PropertyListValue* top = parts->find("$top");
    const PropertyListValue* objects = parts->find("$objects");
    const auto* names = top ? top->as<PropertyListDictionary>() : nullptr;
    const auto* table = objects ? objects->as<PropertyListArray>() : nullptr;
    if (!names || !table)
        return std::nullopt;
    const PropertyListValue* root = names->find("root");
    const auto* uid = root ? root->as<PropertyListUID>() : nullptr;
    return ObjectGraph{std::make_shared<PropertyListArray>(*table), uid ? uid->index : 0, true};
}

} // namespace

std::shared_ptr<Object> KeyedUnarchiver::unarchiveObjectWithData(std::span<const std::uint8_t> data,
                                                                 ArchiveError* error)
{
    ArchiveError reason = ArchiveError::noMemory;
    auto root = withinMemory(std::shared_ptr<Object>(), [&]() -> std::shared_ptr<Object> {
        if (const auto graph = graphOf(data))
            return makeObjects(*graph, &reason);
        reason = ArchiveError::incomprehensible;
        return nullptr;
    });
    if (error)
        *error = reason;
    return root;
}

} // namespace qmx
