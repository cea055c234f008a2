// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Archives/Coder.h>
#include <QMXCoreAudio/Foundation/Export.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace qmx
{

class QMX_EXPORT KeyedArchiver
{
public:
    /// A keyed archive of `object`, which may be nil, as a binary property list; the same object graph makes the same
    /// bytes. Value objects, opaque objects and every Coding can be archived; any other object is archived as nil, with
    /// a log line. Arrays and dictionaries are written as the mutable classes, an image as plain data. Empty, with a
    /// log line, if the objects nest deeper than 64 or memory runs out. Any thread, while no thread changes the
    /// objects.
    static std::vector<std::uint8_t> archivedDataWithRootObject(const std::shared_ptr<const Object>& object);
};

} // namespace qmx
