// SPDX-License-Identifier: MIT
// What fuzz targets of archives have in common.
#pragma once

#include <QMXCoreAudio/Foundation/Archives/KeyedArchiver.h>
#include <QMXCoreAudio/Foundation/Archives/KeyedUnarchiver.h>

#include <cstdlib>

/// Aborts if `object` cannot be archived and read again.
inline void requireRoundTrip(const std::shared_ptr<qmx::Object>& object)
{
    const auto archive = qmx::KeyedArchiver::archivedDataWithRootObject(object);
    qmx::ArchiveError error{};
    const auto again = qmx::KeyedUnarchiver::unarchiveObjectWithData(archive, &error);
    if (archive.empty() || error != qmx::ArchiveError::none || !object != !again)
        std::abort();
}
