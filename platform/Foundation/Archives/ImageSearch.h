// SPDX-License-Identifier: MIT
// Pictures inside the image objects that other writers archive.
#pragma once

#include "Foundation/Archives/PropertyList.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qmx
{

/// Whether archived objects of the class hold a picture.
bool isImageClass(std::string_view name);

/// The picture's bytes within the entry at `index` and all it refers to: the first data that begins like an image file,
/// else the longest data, else null. Adds the number of values it looked at to `visits`.
const PropertyListData* imageBytesWithin(const PropertyListArray& table, std::uint64_t index, std::size_t& visits);

} // namespace qmx
