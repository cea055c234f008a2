// SPDX-License-Identifier: MIT
// Opens and checks audio files for the example programs.
#pragma once

#include <QMXCoreAudio/FileRelated/QMXAudioFile.h>

#include <memory>
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

} // namespace example
