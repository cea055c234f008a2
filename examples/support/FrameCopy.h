// SPDX-License-Identifier: MIT
#pragma once

#include "FileRelated/QMXExtAudioFile.h"

#include <functional>
#include <string>

namespace example
{

/// Linear PCM of so many bits at the rate and with the channels of `source`, in this machine's byte order.
AudioStreamBasicDescription linearFormat(const AudioStreamBasicDescription& source, AudioFormatFlags kind, UInt32 bits);

/// Copies the next `count` frames of `source` to `target`, which share a client format in one buffer. `progress` hears
/// the fraction that is done. A Failure that names the recording or the target when there are fewer or one of them
/// fails.
void copyFrames(QMXExtAudioFile& source, SInt64 count, QMXExtAudioFile& target, const std::string& targetName,
                const std::function<void(double fraction)>& progress);

} // namespace example
