// SPDX-License-Identifier: MIT
// An AIFF file whose record is read or written: opened, locked against recorders and other stores, and settled. Calls
// wait indefinitely while another holds the file's lock. Their callbacks must not take long, nor open the same file.
// Internal to the track store.
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Formats/LastFailure.h"
#include "Foundation/Files/FileHandle.h"
#include "Foundation/Memory.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QMXTrackAndProcessingInfo;

namespace qmx
{

/// Why a file's record is not read or stored.
struct StoreFailure {
    OSStatus status;
    std::string reason; ///< a part of a sentence
};
/// None on success.
using Refusal = std::optional<StoreFailure>;

/// For an error number of the system; none for 0.
Refusal refusalFor(SystemError error);

/// Runs `operation` and keeps the reason of a refusal: a sentence of `path`, `refused` and the reason. False if
/// refused, and when memory runs out.
template <class Operation>
[[nodiscard]] bool attempt(LastFailure& failure, const std::string& path, const char* refused,
                           const Operation& operation)
{
    failure.clear();
    const bool hasMemory = withinMemory([&] {
        if (const Refusal refusal = operation())
            failure.keepFirst(refusal->status, path, refused, refusal->reason);
    });
    if (!hasMemory)
        failure.keepFirst(memFullErr, path, refused);
    return failure.status() == noErr;
}

inline constexpr const char* notStored = "could not be stored into";

/// What a reader found of chunks of ours in a file.
struct FoundArchive {
    bool hasChunk = false;      ///< even if none of them is usable
    std::vector<UInt8> bytes{}; ///< of the usable one
};
using StoredRecord = std::shared_ptr<QMXTrackAndProcessingInfo>;

/// The record in the archive that `find` returns, null for an archived nil; none without such an archive. `find` gets
/// the file as it is, or as it will be once a store that was cut off is completed or undone; a completion is then
/// written to disk, if the file can be written to and other processes can be kept out. A file that cannot be opened, a
/// form size that does not match the file's (a file that is no form at all is read, which is intended), chunks of which
/// none can be read, and short memory are failures; a file without chunks is none.
std::optional<StoredRecord> readRecord(const std::string& path, LastFailure& failure,
                                       const std::function<FoundArchive(FileHandle&)>& find);

/// Calls `store` with the file, settled and open for writing, and the record's archive; it may refuse. A file that is
/// not AIFF or AIFF-C by its first bytes, or whose form size does not match its length, is refused first and left as it
/// is. Refusals are logged, without the lock. Returns whether the record was stored; `failure` says why not.
[[nodiscard]] bool storeRecord(const std::string& path, const StoredRecord& record, LastFailure& failure,
                               const std::function<Refusal(FileHandle&, std::span<const UInt8>)>& store);

/// What a store takes, in bytes.
struct StoreSize {
    SInt64 growth = 0;    ///< of the file
    SInt64 temporary = 0; ///< beyond that, while it lasts
};
/// What storing the record in the chunk that AIFF files keep would take now; none if it would be refused, which
/// `failure` explains. The file is not changed.
std::optional<StoreSize> measureStore(const std::string& path, const StoredRecord& record, LastFailure& failure);

/// Completes or undoes a store that was cut off; returns whether there was one. With `needsLock`, only if other
/// processes can be kept out.
bool settleFileAtPath(const std::string& path, bool needsLock = false);

} // namespace qmx
