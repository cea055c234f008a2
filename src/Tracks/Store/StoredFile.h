// SPDX-License-Identifier: MIT
// An AIFF file whose record is read or written: opened, locked against recorders and other stores, and settled. Calls
// wait without end while another holds the file's lock. What they call is not to take long, nor to open the same file.
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
/// None where all went well.
using Refusal = std::optional<StoreFailure>;

/// For an error number of the system; none for 0.
Refusal refusalFor(SystemError error);

/// Runs `operation` and keeps why it is refused: a sentence of `path`, `refused` and the reason. False where it is, and
/// where memory runs out.
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
    bool hasChunk = false;      ///< also where none of them is usable
    std::vector<UInt8> bytes{}; ///< of the usable one
};
using StoredRecord = std::shared_ptr<QMXTrackAndProcessingInfo>;

/// The record in the archive that `find` gives, null for an archived nil; none where there is no such archive. `find`
/// gets the file as it is, or as it will be once a store that was cut off is completed or taken back; what can be
/// completed is afterwards completed on disk, where the file can be written to and other processes can be kept out.
/// A file that cannot be opened, a form of another size than the file's (what is no form at all is read, which is
/// intended), chunks of which none can be read and short memory are a failure; a file without chunks is none.
std::optional<StoredRecord> readRecord(const std::string& path, LastFailure& failure,
                                       const std::function<FoundArchive(FileHandle&)>& find);

/// Calls `store` with the file, settled and open for writing, and the record's archive; it may refuse. What is no AIFF
/// or AIFF-C file by its first bytes, or has a form of another size than the file's, is refused before and stays as it
/// is. Refusals are logged, without the lock. Whether the record was stored; `failure` says why not.
[[nodiscard]] bool storeRecord(const std::string& path, const StoredRecord& record, LastFailure& failure,
                               const std::function<Refusal(FileHandle&, std::span<const UInt8>)>& store);

/// Completes, or takes back, a store that was cut off; whether there was one. Where `needsLock`, only if other
/// processes can be kept out.
bool settleFileAtPath(const std::string& path, bool needsLock = false);

} // namespace qmx
