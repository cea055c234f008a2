// SPDX-License-Identifier: MIT
// What writers and readers of archives share.
#pragma once

#include "Foundation/Archives/Coder.h"
#include "Foundation/Archives/PropertyList.h"

#include <string>
#include <string_view>

namespace qmx
{

inline constexpr std::string_view archiveNil = "$null";
inline constexpr std::string_view archiveClassKey = "$class";
inline constexpr std::string_view archiveClassNameKey = "$classname";
inline constexpr std::string_view archiveClassChainKey = "$classes";
inline constexpr std::string_view archiveElementsKey = "NS.objects";
inline constexpr std::string_view archiveKeysKey = "NS.keys";

/// The function that makes objects of a registered class; empty for an unknown one. Any thread.
ArchiveClassMaker archiveClassMaker(std::string_view name);

/// The key as it is archived: "$" becomes "$$" at its start, so that it differs from the archive's own keys.
inline std::string archiveKey(std::string_view key)
{
    return std::string(key.starts_with('$') ? "$" : "").append(key);
}

/// The key for the value at `position` of a sequence without keys.
inline std::string archiveSequenceKey(std::size_t position)
{
    return std::string("$").append(std::to_string(position));
}

/// Whether an entry of the object table stands for nil.
inline bool isArchivedNil(const PropertyListValue& entry)
{
    const auto* text = entry.as<std::string>();
    return text && *text == archiveNil;
}

} // namespace qmx
