// SPDX-License-Identifier: MIT
// Finds pictures inside the image objects that other writers archive.
#pragma once

#include "Foundation/Archives/PropertyList.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qmx
{

/// Whether archived objects of the class hold a picture.
bool isImageClass(std::string_view name);

/// The picture's bytes within the entry at `index` and everything it refers to: the first data that starts like an
/// image file, otherwise the longest data, otherwise null. Adds the number of values that it visited to `visits`.
const PropertyListData* imageBytesWithin(const PropertyListArray& table, std::uint64_t index, std::size_t& visits);

} // namespace qmx
