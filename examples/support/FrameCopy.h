// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/FileRelated/QMXExtAudioFile.h>

#include <functional>
#include <string>

namespace example
{

/// Linear PCM of `bits` bits with the rate and the channels of `source`, in this machine's byte order.
AudioStreamBasicDescription linearFormat(const AudioStreamBasicDescription& source, AudioFormatFlags kind, UInt32 bits);

/// Copies the next `count` frames of `source` to `target`, which share a client format in one buffer. `progress` is
/// called with the fraction done. If there are fewer frames or one of the two fails, a Failure that names it.
void copyFrames(QMXExtAudioFile& source, SInt64 count, QMXExtAudioFile& target, const std::string& targetName,
                const std::function<void(double fraction)>& progress);

} // namespace example
