// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Tracks/QMXTrackAndProcessingInfo.h>

#include <memory>
#include <string>

namespace example
{

using Record = std::shared_ptr<QMXTrackAndProcessingInfo>;

/// The record in the file; null if there is none. A Failure if it cannot be read.
Record readRecord(const std::string& path);

} // namespace example
