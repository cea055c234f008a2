// SPDX-License-Identifier: MIT
// Internal to src/.
#pragma once

#include "FileRelated/QMXExtAudioFile.h"

namespace qmx
{

/// Gives an open file that is written the channel layout of one that is read, if that has one: to the frames that are
/// written, and with as many channels to the file. A file that keeps no layouts goes without.
void passLayoutOn(const QMXExtAudioFile& source, const QMXExtAudioFile& destination);

} // namespace qmx
