// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Files/FileSystem.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>

namespace qmx
{

/// A file system in memory whose faults are chosen by the caller: for tests of what happens when a disk fails, fills,
/// stalls, or when the process is killed between two writes. Any thread.
class QMX_EXPORT MemoryFileSystem : public FileSystem
{
public:
    using Bytes = std::vector<std::uint8_t>;

    SystemError open(const std::string& path, FileAccess access, std::unique_ptr<File>& file) override;
    SystemError status(const std::string& path, FileStatus& status) override;
    SystemError rename(const std::string& from, const std::string& to) override;
    SystemError remove(const std::string& path) override;
    SystemError attribute(const std::string& path, const std::string& name, std::vector<std::uint8_t>& value) override;
    SystemError setAttribute(const std::string& path, const std::string& name,
                             std::span<const std::uint8_t> value) override;
    SystemError copyAttributes(const std::string& from, const std::string& to) override;

    /// The file's contents; empty where there is none.
    Bytes contents(const std::string& path) const;
    void setContents(const std::string& path, Bytes bytes);

    /// Calls that change something (write, truncate, create, rename, remove, attribute) are counted from 1.
    std::size_t changesMade() const;
    /// The `ordinal`-th change from now on fails with `error`; a write first stores `keep` of its bytes.
    void failChange(std::size_t ordinal, SystemError error, std::size_t keep = 0);
    /// From the `ordinal`-th change from now on nothing is stored any more though calls succeed, as if the process had
    /// been killed there; of a write that is that change, `keep` bytes are stored.
    void killAtChange(std::size_t ordinal, std::size_t keep = 0);
    /// Reads from now on fail with `error` where they come to the byte at `position` of a file, and give what lies
    /// before it; 0 ends it.
    void failReads(SystemError error, std::size_t position = 0);
    /// Bringing files to disk from now on fails with `error`; 0 ends it.
    void failSynchronization(SystemError error);
    /// Files together hold at most this many bytes; a write past it stores what fits and fails with ENOSPC.
    void setCapacity(std::size_t bytes);
    /// While true, writes wait; setting false lets them go on.
    void setStalled(bool stalled);
    /// Returns once a write waits in a stall.
    void waitForStalledWrite();
    /// From now on locks keep nobody out but the process itself, and report `error`; 0 ends it.
    void failLocks(SystemError error);
    /// Ends all faults.
    void clearFaults();

private:
    class OpenFile;
    struct Node {
        Bytes bytes;
        std::map<std::string, Bytes> attributes;
        std::uint64_t number = 0;
        std::mutex lock;
    };
    struct Verdict {
        std::size_t stores; // bytes of the change that are stored
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
    std::size_t changes_ = 0;
    std::size_t failsAt_ = 0, killedAt_ = 0, keep_ = 0;
    SystemError changeError_ = 0, readError_ = 0, synchronizationError_ = 0, lockError_ = 0;
    std::size_t readErrorAt_ = 0;
    std::size_t capacity_ = SIZE_MAX;
    bool stalled_ = false;
    std::size_t waiting_ = 0;
};

} // namespace qmx
