// SPDX-License-Identifier: MIT
#pragma once

#include "CoreServices/Files.h"
#include "Foundation/ByteFields.h"
#include "Foundation/Files/FileSystem.h"

#include <memory>
#include <span>

namespace qmx
{

/// Bytes to be written at a place of a file.
struct Patch {
    UInt64 position = 0;
    Bytes bytes;
};

/// A file as containers use it: statuses in place of system errors, and the length at which we left it, by which the
/// appends of another writer are noticed.
class QMX_MODULE_EXPORT ContainerFile
{
public:
    explicit ContainerFile(std::unique_ptr<File> file) : file_(std::move(file)) {}

    /// Holds the file's lock until the result is destroyed.
    [[nodiscard]] FileLock lock() { return FileLock(file_.get()); }

    UInt64 length() const { return length_; }
    /// Queries the length; `changed` says whether another writer changed it.
    [[nodiscard]] OSStatus refreshLength(bool& changed);

    /// Up to `size` bytes; fewer than asked without an error means that the file ends there.
    Transfer read(UInt64 position, void* data, std::size_t size);
    /// All of `bytes`, or 'dta?' if the file ends before.
    [[nodiscard]] OSStatus readAll(UInt64 position, std::span<UInt8> bytes);

    Transfer write(UInt64 position, const void* data, std::size_t size);
    [[nodiscard]] OSStatus writeAll(UInt64 position, std::span<const UInt8> bytes);
    /// Overwrites existing bytes that others rely on: on failure the old ones are restored as far as the disk allows.
    [[nodiscard]] OSStatus replace(UInt64 position, std::span<const UInt8> bytes);
    /// Writes all patches. Those near each other are one write together with freshly read bytes between them, so that a
    /// process killed here leaves all or none of them, and another writer's bytes between them stay. Bytes that are
    /// already there are not written.
    [[nodiscard]] OSStatus apply(std::vector<Patch> patches);
    /// The areas must not overlap.
    [[nodiscard]] OSStatus copy(UInt64 from, UInt64 to, UInt64 count);
    [[nodiscard]] OSStatus truncate(UInt64 length);

private:
    [[nodiscard]] OSStatus applyGroup(std::span<const Patch> patches);

    std::unique_ptr<File> file_;
    UInt64 length_ = 0;
};

} // namespace qmx
