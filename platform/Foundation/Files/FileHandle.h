// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Files/FileSystem.h>
#include <QMXCoreAudio/Foundation/Object.h>

namespace qmx
{

/// An open file with a current position, in bytes. One thread at a time. The destructor closes the file unless
/// closeFile() did; every call on a closed handle fails or returns nothing.
class QMX_EXPORT FileHandle : public Object
{
public:
    /// Opens a file for reading; null if it cannot be opened.
    static std::shared_ptr<FileHandle> fileHandleForReadingAtPath(const std::string& path);
    /// Opens an existing file for reading and writing and keeps its contents; null if it cannot be opened.
    static std::shared_ptr<FileHandle> fileHandleForUpdatingAtPath(const std::string& path);

    explicit FileHandle(std::unique_ptr<File> file);

    /// Up to `length` bytes from the current position, which moves past them; fewer at the end of the file or on an
    /// error.
    std::vector<std::uint8_t> readDataOfLength(std::size_t length);
    std::vector<std::uint8_t> readDataToEndOfFile();
    /// The same into `data`, at most its size; returns the number of bytes read.
    std::size_t readData(std::span<std::uint8_t> data);
    /// Writes all bytes at the current position and moves past those that were written. Returns the error, or 0.
    [[nodiscard]] SystemError writeData(std::span<const std::uint8_t> data);

    std::int64_t offsetInFile() const;
    /// Moves to the end; returns the new position, or -1 on failure.
    std::int64_t seekToEndOfFile();
    void seekToFileOffset(std::int64_t offset);
    [[nodiscard]] SystemError truncateFileAtOffset(std::int64_t offset);
    [[nodiscard]] SystemError synchronizeFile();
    /// Takes the file's lock and holds it while the result exists, which must end before closeFile(). Waits without
    /// limit for other holders.
    [[nodiscard]] FileLock lock();
    void closeFile();

private:
    std::unique_ptr<File> file_;
    std::int64_t offset_ = 0;
};

} // namespace qmx
