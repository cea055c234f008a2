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

/// Opens `path`, linear or compressed, for reading. A Failure that says what is wrong with it when it cannot be opened.
std::shared_ptr<QMXAudioFile> openAudioFile(const std::string& path);
/// A Failure for a file that holds no audio, or a coding that cannot be read by bytes.
void checkSamples(QMXAudioFile& file);
/// Both.
std::shared_ptr<QMXAudioFile> openRecording(const std::string& path);

/// Whole frames of the file, beyond the 32 bits of QMXAudioFile::lengthInFrames too.
UInt64 frameCount(QMXAudioFile& file);

/// Reads the whole file as native floats, interleaved, and hands them over piece by piece, until `receive` gives false.
/// A Failure when the file cannot be read to its end.
void readSamples(QMXAudioFile& file, const std::function<bool(std::span<const float> samples)>& receive);

} // namespace example
