// SPDX-License-Identifier: MIT
// All file calls of the library go through one small object, which tests and embedders can replace.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

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

/// The system's text for an error, in English whatever the program's locale.
QMX_EXPORT const char* systemErrorText(SystemError error);

struct FileStatus {
    bool isDirectory = false;
    bool isRegular = false;
    std::int64_t size = 0; ///< bytes
    std::uint64_t device = 0;
    std::uint64_t fileNumber = 0; ///< with `device`, identifies the file: the same for all its names
    /// Of its contents, in nanoseconds from a start that is the file system's own; for telling whether they changed.
    std::int64_t modificationTime = 0;

    bool operator==(const FileStatus&) const = default;
};

/// The number of bytes transferred before `error` (0: none) stopped the transfer.
struct Transfer {
    std::size_t count = 0;
    SystemError error = 0;
};

/// An open file, addressed by byte position: it has no file offset. Closed by its destructor. Any thread.
///
/// A file has one lock, which every File of it shares. Every change of an audio file's structure (growing it, rewriting
/// its header, storing into it) is made under it; reads and writes need no lock. FileLock holds it for a scope.
class QMX_EXPORT File
{
public:
    virtual ~File();
    /// Reads up to `size` bytes from `position`; fewer without an error mean that the file ends there.
    [[nodiscard]] virtual Transfer read(void* data, std::size_t size, std::int64_t position) = 0;
    /// Writes all bytes at `position`, or reports how many were written before the error.
    [[nodiscard]] virtual Transfer write(const void* data, std::size_t size, std::int64_t position) = 0;
    [[nodiscard]] virtual SystemError size(std::int64_t& bytes) = 0;
    /// Cuts or extends (with zeros, without using disk space where the system can) to `bytes`.
    [[nodiscard]] virtual SystemError truncate(std::int64_t bytes) = 0;
    /// Returns when everything written is on the disk.
    [[nodiscard]] virtual SystemError synchronize() = 0;
    /// Closes the file; an error means that the system could not store everything. Nothing else may be called after it.
    [[nodiscard]] virtual SystemError close() = 0;

    /// Takes the lock. Waits without limit until no other File of this process and no other process holds it; processes
    /// that opened the file for reading share it. On an error, as on file systems without locks, the lock is held
    /// within this process but does not keep other processes out. Opening and closing other Files of the same file does
    /// not release it. Not on a thread that already holds it, and not on real-time threads.
    [[nodiscard]] virtual SystemError lock() = 0;
    /// Releases the lock, on the thread that took it.
    virtual void unlock() = 0;
};

/// Holds a file's lock while it exists; the file must stay open as long. It waits as File::lock() does.
class QMX_EXPORT FileLock
{
public:
    /// Holds nothing if `file` is null.
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
    createNew,     ///< read/write; fails with EEXIST if the name exists
    createPrivate, ///< the same, and only the owner may open the file
};

class QMX_EXPORT FileSystem
{
public:
    virtual ~FileSystem();
    /// Opens `path`; `file` is null on failure. A directory is EISDIR.
    [[nodiscard]] virtual SystemError open(const std::string& path, FileAccess access, std::unique_ptr<File>& file) = 0;
    [[nodiscard]] virtual SystemError status(const std::string& path, FileStatus& status) = 0;
    [[nodiscard]] virtual SystemError rename(const std::string& from, const std::string& to) = 0;
    /// The same, but EEXIST if anything has the name `to`. Looking and renaming are one step where the
    /// file system can.
    [[nodiscard]] virtual SystemError renameToNew(const std::string& from, const std::string& to) = 0;
    [[nodiscard]] virtual SystemError remove(const std::string& path) = 0;
    /// Extended attributes; ENODATA if there is none of that name, ENOTSUP if the file system keeps none.
    [[nodiscard]] virtual SystemError attribute(const std::string& path, const std::string& name,
                                                std::vector<std::uint8_t>& value) = 0;
    [[nodiscard]] virtual SystemError setAttribute(const std::string& path, const std::string& name,
                                                   std::span<const std::uint8_t> value) = 0;
    /// Copies the mode, the times and the user's extended attributes of `from` to `to`, as far as its file system keeps
    /// them.
    [[nodiscard]] virtual SystemError copyAttributes(const std::string& from, const std::string& to) = 0;
    /// Gives `to` the mode of `from` and, as far as this process may, its owner and group.
    [[nodiscard]] virtual SystemError copyPermissions(const std::string& from, const std::string& to) = 0;
    /// The absolute path to which the symbolic links in `path` lead.
    [[nodiscard]] virtual SystemError resolve(const std::string& path, std::string& resolved) = 0;

    /// The file system in use; posix() unless another one was set.
    static FileSystem& current();
    /// Replaces the file system in use (null: posix() again). The caller keeps it alive until it is replaced and every
    /// file opened through it is closed. Not while other threads open files.
    static void setCurrent(FileSystem* fileSystem);
    /// The machine's own file system.
    static FileSystem& posix();
};

} // namespace qmx
