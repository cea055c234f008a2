// SPDX-License-Identifier: MIT
// Tracks on the command line and in what is printed.
#pragma once

#include <QMXCoreAudio/Tracks/QMXTrackAndProcessingInfo.h>
#include <QMXCoreAudio/qmx.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace example
{

/// Titles by the track's number, from texts N=TITLE; a Failure for others.
std::map<std::size_t, std::string> titlesFrom(const std::vector<std::string>& texts);
/// The encoded bytes of a picture file; a Failure unless it is a JPEG, PNG, GIF, BMP or TIFF file.
std::shared_ptr<qmx::Image> readCover(const std::string& path);
/// One line per track: first frame, frame after the last, title.
std::string trackLines(const std::vector<qmx::Track>& tracks);
/// One line per processing range: first frame, frame after the last, name, settings.
std::string historyLines(const QMXTrackAndProcessingInfo& record);

} // namespace example
