// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Archives/Coder.h>
#include <QMXCoreAudio/Foundation/Export.h>

#include <cstdint>
#include <memory>
#include <span>

namespace qmx
{

class QMX_EXPORT KeyedUnarchiver
{
public:
    /// The root object of the keyed archive in exactly these bytes. Null if the root is nil, and on failure; `error`
    /// (may be null) is set to the reason, or to none. Bytes of any content are safe. Any thread.
    static std::shared_ptr<Object> unarchiveObjectWithData(std::span<const std::uint8_t> data,
                                                           ArchiveError* error = nullptr);
};

} // namespace qmx
