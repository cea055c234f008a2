// SPDX-License-Identifier: MIT
// Opens and checks audio files for the example programs, and reads them as float samples.
#pragma once

#include <QMXCoreAudio/FileRelated/QMXAudioFile.h>

#include <functional>
#include <memory>
#include <span>
#include <string>

namespace example
{

/// Opens `path`, linear or compressed, for reading. A Failure with the reason if it cannot be opened.
std::shared_ptr<QMXAudioFile> openAudioFile(const std::string& path);
/// A Failure if the file holds no audio, or a coding that cannot be read by bytes.
void checkSamples(QMXAudioFile& file);
/// Opens and checks a file.
std::shared_ptr<QMXAudioFile> openRecording(const std::string& path);

/// The whole frames of the file, in 64 bits, unlike QMXAudioFile::lengthInFrames.
UInt64 frameCount(QMXAudioFile& file);

/// Reads the whole file as native floats, interleaved, and passes them to `receive` in blocks until that returns false.
/// A Failure if the file cannot be read to its end.
void readSamples(QMXAudioFile& file, const std::function<bool(std::span<const float> samples)>& receive);

} // namespace example
