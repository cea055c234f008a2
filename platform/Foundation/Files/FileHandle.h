// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Files/FileSystem.h"
#include "Foundation/Object.h"

namespace qmx
{

/// An open file with a current position. One thread at a time. The file closes with the object, or earlier by
/// closeFile(); every call on a closed handle fails or gives nothing.
class QMX_EXPORT FileHandle : public Object
{
public:
    /// Null where the file cannot be opened.
    static std::shared_ptr<FileHandle> fileHandleForReadingAtPath(const std::string& path);
    /// Opens for reading and writing; the file is neither created nor emptied.
    static std::shared_ptr<FileHandle> fileHandleForUpdatingAtPath(const std::string& path);

    explicit FileHandle(std::unique_ptr<File> file);

    /// Up to `length` bytes from the current position, which moves past them; fewer at the end of the file or on an
    /// error.
    std::vector<std::uint8_t> readDataOfLength(std::size_t length);
    std::vector<std::uint8_t> readDataToEndOfFile();
    /// The same into `data`, whose size is the most that is read: how many bytes came.
    std::size_t readData(std::span<std::uint8_t> data);
    /// Writes all bytes at the current position and moves past what was written. The error, or 0.
    [[nodiscard]] SystemError writeData(std::span<const std::uint8_t> data);

    std::int64_t offsetInFile() const;
    /// Moves to the end; the new position, or -1.
    std::int64_t seekToEndOfFile();
    void seekToFileOffset(std::int64_t offset);
    [[nodiscard]] SystemError truncateFileAtOffset(std::int64_t offset);
    [[nodiscard]] SystemError synchronizeFile();
    /// Holds the file's lock until the result is gone, before closeFile(). Waits without end for other holders.
    [[nodiscard]] FileLock lock();
    void closeFile();

private:
    std::unique_ptr<File> file_;
    std::int64_t offset_ = 0;
};

} // namespace qmx
