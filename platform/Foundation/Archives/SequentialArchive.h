// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Archives/Coder.h"
#include "Foundation/Archives/ObjectGraph.h"

#include <cstdint>
#include <optional>
#include <span>

namespace qmx
{

/// The objects of the first group of a sequential archive. On failure no value, and `error` is the reason.
std::optional<ObjectGraph> parseSequentialArchive(std::span<const std::uint8_t> data, ArchiveError& error);

} // namespace qmx
