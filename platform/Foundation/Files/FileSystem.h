// SPDX-License-Identifier: MIT
// All file calls of the library go through one small object, so that tests and embedders can put another in its place.
#pragma once

#include "Foundation/Export.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace qmx
{

/// An error number of the system (errno); 0 is success.
using SystemError = int;

/// What the system says of it, in English whatever the program's locale.
QMX_EXPORT const char* systemErrorText(SystemError error);

struct FileStatus {
    bool isDirectory = false;
    bool isRegular = false;
    std::int64_t size = 0; ///< bytes
    std::uint64_t device = 0;
    std::uint64_t fileNumber = 0; ///< with `device`, the same for two names of one file
};

/// How many bytes were transferred before `error` (0: none) stopped the transfer.
struct Transfer {
    std::size_t count = 0;
    SystemError error = 0;
};

/// An open file, addressed by position: no shared file offset. Closed by its destructor. Any thread.
///
/// A file has one lock, which every File of it shares. Whoever changes an audio file's structure (grows it, rewrites
/// its header, stores into it) holds it meanwhile; reads and writes ask for no lock. FileLock holds it for a scope.
class QMX_EXPORT File
{
public:
    virtual ~File();
    /// Reads up to `size` bytes from `position`; fewer than asked without an error means the file ends there.
    [[nodiscard]] virtual Transfer read(void* data, std::size_t size, std::int64_t position) = 0;
    /// Writes all bytes at `position`, or reports how many were written before the error.
    [[nodiscard]] virtual Transfer write(const void* data, std::size_t size, std::int64_t position) = 0;
    [[nodiscard]] virtual SystemError size(std::int64_t& bytes) = 0;
    /// Cuts or extends (with zeros, without using disk space where the system can) to `bytes`.
    [[nodiscard]] virtual SystemError truncate(std::int64_t bytes) = 0;
    /// Returns when all that was written is on the disk.
    [[nodiscard]] virtual SystemError synchronize() = 0;
    /// Closes the file and reports what the system could not store after all. Nothing else may be called then.
    [[nodiscard]] virtual SystemError close() = 0;

    /// Waits, without end, until no other File of this process and no other process holds the lock; then holds it.
    /// Processes that opened the file for reading hold it together. An error: other processes are not kept out, as on
    /// file systems without locks; the lock is held within the process all the same. Opening and closing other Files of
    /// the file does not end it. Not on a thread that already holds it, and not on real-time threads.
    [[nodiscard]] virtual SystemError lock() = 0;
    /// Gives the lock back, on the thread that took it.
    virtual void unlock() = 0;
};

/// Holds a file's lock while it lives; the file must stay open as long. See File::lock() for the waiting.
class QMX_EXPORT FileLock
{
public:
    /// Holds nothing where `file` is null.
    explicit FileLock(File* file);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    /// Whether other processes are kept out too.
    bool excludesOtherProcesses() const { return excludesOtherProcesses_; }

private:
    File* file_;
    bool excludesOtherProcesses_;
};

enum class FileAccess {
    read,
    readWrite,
    createNew,     ///< read/write; fails with EEXIST where something of that name is
    createPrivate, ///< the same, and nobody but the owner may open the file
};

class QMX_EXPORT FileSystem
{
public:
    virtual ~FileSystem();
    /// Opens `path`; `file` is null on failure. A directory is EISDIR.
    [[nodiscard]] virtual SystemError open(const std::string& path, FileAccess access, std::unique_ptr<File>& file) = 0;
    [[nodiscard]] virtual SystemError status(const std::string& path, FileStatus& status) = 0;
    [[nodiscard]] virtual SystemError rename(const std::string& from, const std::string& to) = 0;
    [[nodiscard]] virtual SystemError remove(const std::string& path) = 0;
    /// Extended attributes; ENODATA when there is none of that name, ENOTSUP where the system keeps none.
    [[nodiscard]] virtual SystemError attribute(const std::string& path, const std::string& name,
                                                std::vector<std::uint8_t>& value) = 0;
    [[nodiscard]] virtual SystemError setAttribute(const std::string& path, const std::string& name,
                                                   std::span<const std::uint8_t> value) = 0;
    /// Gives `to` the mode, the times and the users' extended attributes of `from`, as far as its file system keeps
    /// such things.
    [[nodiscard]] virtual SystemError copyAttributes(const std::string& from, const std::string& to) = 0;

    /// The file system in use; the machine's own unless another was set.
    static FileSystem& current();
    /// Puts another in its place (null: the machine's own again). The caller keeps it alive until it is replaced and
    /// every file opened through it is closed. Not while other threads open files.
    static void setCurrent(FileSystem* fileSystem);
    /// The machine's own.
    static FileSystem& posix();
};

} // namespace qmx
