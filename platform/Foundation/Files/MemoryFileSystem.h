// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Files/FileSystem.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>

namespace qmx
{

/// A file system in memory with faults chosen by the caller, for tests of disks that fail, fill up or stall, and of
/// processes killed between two writes. Any thread.
class QMX_EXPORT MemoryFileSystem : public FileSystem
{
public:
    using Bytes = std::vector<std::uint8_t>;

    SystemError open(const std::string& path, FileAccess access, std::unique_ptr<File>& file) override;
    SystemError status(const std::string& path, FileStatus& status) override;
    SystemError rename(const std::string& from, const std::string& to) override;
    SystemError renameToNew(const std::string& from, const std::string& to) override;
    SystemError remove(const std::string& path) override;
    SystemError attribute(const std::string& path, const std::string& name, std::vector<std::uint8_t>& value) override;
    SystemError setAttribute(const std::string& path, const std::string& name,
                             std::span<const std::uint8_t> value) override;
    SystemError copyAttributes(const std::string& from, const std::string& to) override;
    SystemError copyPermissions(const std::string& from, const std::string& to) override;
    SystemError resolve(const std::string& path, std::string& resolved) override;

    /// The file's contents; empty if there is no file.
    Bytes contents(const std::string& path) const;
    void setContents(const std::string& path, Bytes bytes);

    /// The number of changes so far; each write, truncate, create, rename, remove and attribute change counts as one.
    std::size_t changesMade() const;
    /// The `ordinal`-th change from now on, from 1, fails with `error`; a write first stores `keep` of its bytes.
    void failChange(std::size_t ordinal, SystemError error, std::size_t keep = 0);
    /// From the `ordinal`-th change from now on, calls succeed but store nothing, as if the process had been killed
    /// there; if that change is a write, it stores `keep` of its bytes.
    void killAtChange(std::size_t ordinal, std::size_t keep = 0);
    /// From now on reads fail with `error` at the byte at `position` of a file, after the bytes before it; 0 ends it.
    void failReads(SystemError error, std::size_t position = 0);
    /// From now on File::synchronize() fails with `error`; 0 ends it.
    void failSynchronization(SystemError error);
    /// Limits the bytes of all files together; a write past the limit stores the part that fits and fails with ENOSPC.
    void setCapacity(std::size_t bytes);
    /// While true, reads and writes wait.
    void setStalled(bool stalled);
    /// Returns when a write waits because of setStalled().
    void waitForStalledWrite();
    /// From now on locks report `error` and work within the process only; 0 ends it.
    void failLocks(SystemError error);
    /// Ends all faults.
    void clearFaults();

private:
    class OpenFile;
    struct Node {
        Bytes bytes;
        std::map<std::string, Bytes> attributes;
        std::uint64_t number = 0;
        std::int64_t modificationTime = 0;
        std::mutex lock;
    };
    struct Verdict {
        std::size_t stores; // bytes of the change to store
        SystemError error;
    };

    Verdict judgeChange(std::size_t bytes, std::size_t keep);
    Transfer write(Node& node, const void* data, std::size_t size, std::int64_t position);
    SystemError truncate(Node& node, std::int64_t size);
    std::size_t usedBytes() const;

    mutable std::mutex mutex_;
    std::condition_variable stallChanged_;
    std::map<std::string, std::shared_ptr<Node>> nodes_;
    std::uint64_t lastNumber_ = 0;
    std::int64_t time_ = 0; // passes with each change of contents
    std::size_t changes_ = 0;
    std::size_t failsAt_ = 0, killedAt_ = 0, keep_ = 0;
    SystemError changeError_ = 0, readError_ = 0, synchronizationError_ = 0, lockError_ = 0;
    std::size_t readErrorAt_ = 0;
    std::size_t capacity_ = SIZE_MAX;
    bool stalled_ = false;
    std::size_t waiting_ = 0;
};

} // namespace qmx
