// SPDX-License-Identifier: MIT
// Reads, changes and writes a recording's track information for the example programs.
#pragma once

#include <QMXCoreAudio/AudioToolbox/AudioFile.h>
#include <QMXCoreAudio/Tracks/QMXTrackAndProcessingInfo.h>

#include <memory>
#include <string>

namespace example
{

using Record = std::shared_ptr<QMXTrackAndProcessingInfo>;

/// A Failure unless the file is an AIFF or AIFF-C file, both by its content and by an extension that the library's
/// factory accepts.
void checkCanStore(const std::string& path, AudioFileTypeID type);

/// The record in the file; null if there is none. A Failure if it cannot be read (unless `force`), or if the file has
/// wrong sizes.
Record readRecord(const std::string& path, bool force);

/// Writes the record. A Failure with the reason if it is not in the file afterwards.
void storeRecord(const std::string& path, const Record& record);

/// Repairs a file whose writer was killed: completes or removes what an interrupted store left at its end, and corrects
/// outdated sizes. Returns one line about what was done.
std::string repairRecording(const std::string& path);

/// Copies the recording to a new file; a Failure if that exists.
void copyRecording(const std::string& from, const std::string& to);

/// The encoded bytes of a picture file; a Failure unless it is a JPEG, PNG, GIF, BMP or TIFF file.
std::shared_ptr<qmx::Image> readCover(const std::string& path);

/// Adds a processing range to `record` (null: an empty one) and stores it in the file.
void storeProcessingRange(const std::string& path, Record record, std::shared_ptr<QMXAudioProcessingRangeInfo> range);

/// One line per track: first frame, frame after the last, title.
std::string trackLines(const QMXTrackAndProcessingInfo& record);
/// One line per processing range: first frame, frame after the last, name, settings.
std::string historyLines(const QMXTrackAndProcessingInfo& record);

} // namespace example
