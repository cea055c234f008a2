// SPDX-License-Identifier: MIT
// A recording's track information as the example programs keep it: read first, changed in part, written.
#pragma once

#include "AudioToolbox/AudioFile.h"
#include "Tracks/QMXTrackAndProcessingInfo.h"

#include <memory>
#include <string>

namespace example
{

using Record = std::shared_ptr<QMXTrackAndProcessingInfo>;

/// A Failure unless the file is an AIFF or AIFF-C file by its content, and by an extension that the library's factory
/// takes.
void checkCanStore(const std::string& path, AudioFileTypeID type);

/// The record in the file; null where there is none. A Failure when there is one that cannot be read, unless `force`,
/// and for a file of wrong sizes.
Record readRecord(const std::string& path, bool force);

/// Writes the record. A Failure that says why where it is not in the file afterwards.
void storeRecord(const std::string& path, const Record& record);

/// Brings the sizes in a file in line whose writer was killed: what a store that was cut off left at the end is
/// completed or removed, sizes that lag behind are set. What was done, in one line.
std::string repairRecording(const std::string& path);

/// Copies the recording to a new file; a Failure where it exists.
void copyRecording(const std::string& from, const std::string& to);

/// The encoded bytes of a picture file; a Failure when it is no JPEG, PNG, GIF, BMP or TIFF.
std::shared_ptr<qmx::Image> readCover(const std::string& path);

/// Adds a processing range to the record of the file, null for none, and stores it.
void storeProcessingRange(const std::string& path, Record record, std::shared_ptr<QMXAudioProcessingRangeInfo> range);

/// One line a track: first frame, frame past the last, title.
std::string trackLines(const QMXTrackAndProcessingInfo& record);
/// One line a processing range: first frame, frame past the last, name, settings.
std::string historyLines(const QMXTrackAndProcessingInfo& record);

} // namespace example
