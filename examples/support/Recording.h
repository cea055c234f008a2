// SPDX-License-Identifier: MIT
// Audio files as the example programs take them: opened, checked, and read as float samples.
#pragma once

#include "FileRelated/QMXAudioFile.h"

#include <functional>
#include <memory>
#include <span>
#include <string>

namespace example
{

/// Opens `path` for reading. A Failure that says what is wrong with it when it cannot be opened, holds no audio, or
/// holds a coding that cannot be read.
std::shared_ptr<QMXAudioFile> openRecording(const std::string& path);

/// The data format of a file of any coding, linear or compressed. A Failure that says what is wrong when it cannot be
/// read.
AudioStreamBasicDescription formatOfReadable(const std::string& path);

/// How many frames such a file holds, without a coding's delay and padding.
SInt64 framesOfReadable(const std::string& path);

/// Whole frames of the file, beyond the 32 bits of QMXAudioFile::lengthInFrames too.
UInt64 frameCount(QMXAudioFile& file);

/// Reads the whole file as native floats, interleaved, and hands them over piece by piece, until `receive` gives false.
/// A Failure when the file cannot be read to its end.
void readSamples(QMXAudioFile& file, const std::function<bool(std::span<const float> samples)>& receive);

} // namespace example
