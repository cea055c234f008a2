// SPDX-License-Identifier: MIT
// An AIFF file whose record is read or written: opened, locked against recorders and other stores, and settled. Calls
// wait without end while another holds the file's lock. What they call is not to take long, nor to open the same file.
// Internal to the track store.
#pragma once

#include "Foundation/Files/FileHandle.h"

#include <functional>
#include <optional>
#include <string>

namespace qmx
{

/// Why nothing was stored; none where it was.
using Refusal = std::optional<std::string>;

/// Calls `read` with the file as it is, or as it will be once a store that was cut off is completed or taken back; what
/// can be completed is afterwards completed on disk, where the file can be written to and other processes can be kept
/// out. Nothing is read where the file cannot be opened or its form does not have its size; what is no form at all is
/// read, which is intended.
void readStoredFile(const std::string& path, const std::function<void(FileHandle&)>& read);

/// Calls `store` with the file, settled and open for writing; it may refuse. What is no AIFF or AIFF-C file by its
/// first bytes, or has a form of another size than the file's, is refused before and stays as it is. Refusals are
/// logged, without the lock. Whether the record was stored.
bool storeInFile(const std::string& path, const std::function<Refusal(FileHandle&)>& store);

/// Completes, or takes back, a store that was cut off; whether there was one. Where `needsLock`, only if other
/// processes can be kept out.
bool settleFileAtPath(const std::string& path, bool needsLock = false);

} // namespace qmx
