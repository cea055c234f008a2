// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Archives/Coder.h"
#include "Foundation/Export.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace qmx
{

class QMX_EXPORT KeyedArchiver
{
public:
    /// A keyed archive of `object`, which may be nil, in a binary property list; the same object graph gives the same
    /// bytes. Archivable are the value objects, opaque objects and whatever is a Coding; another object is archived as
    /// nil with a log line. Arrays and dictionaries are written as the mutable classes, an image as plain data. Empty,
    /// with a log line, when the objects nest deeper than 64 or memory is short. Any thread, while nobody changes the
    /// objects.
    static std::vector<std::uint8_t> archivedDataWithRootObject(const std::shared_ptr<const Object>& object);
};

} // namespace qmx
