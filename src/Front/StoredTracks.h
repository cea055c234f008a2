// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Divide.h>
#include <QMXCoreAudio/Front/Result.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

class QMXTrackAndProcessingInfo;

namespace qmx
{

/// What an audio file keeps of its tracks, and the described object it was read as, which also has the processing
/// records. Files of the types AIFF and AIFF-C keep tracks.
struct StoredTracks {
    std::vector<Track> tracks;
    std::shared_ptr<QMXTrackAndProcessingInfo> record; ///< never null
};

/// Reads the tracks that are stored in the audio file at `path`: none if it keeps none. What it keeps and cannot be
/// read is an error (kAudioFileInvalidChunkError), and so is a file that is no audio file. Any thread but the real-time
/// ones, as for all of these; they wait while another thread or process stores into the file.
[[nodiscard]] QMX_EXPORT Result<std::optional<StoredTracks>> readTracks(const std::string& path);

struct StoreOptions {
    bool replaceUnreadable = false; ///< what the file keeps and cannot be read is replaced, and lost
};

/// Stores the tracks in the file in place of those that it keeps; processing records stay. Each track's record keeps
/// its other fields, so that tracks that were read can be given other titles and bounds, removed and put into another
/// order. The records themselves stay as they are. On failure the file is as it was: unreadable tracks in it, a file of
/// another type, a full disk, bounds before the file's start or after its end (paramErr), more than half a megabyte of
/// tracks (paramErr).
[[nodiscard]] QMX_EXPORT Result<void> storeTracks(const std::string& path, const std::vector<Track>& tracks,
                                                  const StoreOptions& options = {});
/// Stores a whole record as it is, in place of what the file keeps.
[[nodiscard]] QMX_EXPORT Result<void> storeRecord(const std::string& path,
                                                  const std::shared_ptr<QMXTrackAndProcessingInfo>& record);

/// What storing tracks takes, in bytes.
struct StoreCost {
    SInt64 growth = 0;    ///< of the file
    SInt64 temporary = 0; ///< of the disk beyond that while it is stored
};

/// What storeTracks() with the same arguments would take now; the same errors.
[[nodiscard]] QMX_EXPORT Result<StoreCost> storeCost(const std::string& path, const std::vector<Track>& tracks,
                                                     const StoreOptions& options = {});

} // namespace qmx
