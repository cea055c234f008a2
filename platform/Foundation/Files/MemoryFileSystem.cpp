// SPDX-License-Identifier: MIT
#include "Foundation/Files/MemoryFileSystem.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace qmx
{

class MemoryFileSystem::OpenFile : public File
{
public:
    OpenFile(MemoryFileSystem& owner, std::shared_ptr<Node> node, bool mayWrite)
        : owner_(owner), node_(std::move(node)), mayWrite_(mayWrite)
    {
    }

    Transfer read(void* data, std::size_t size, std::int64_t position) override
    {
        std::unique_lock lock(owner_.mutex_);
        owner_.stallChanged_.wait(lock, [this] { return !owner_.stalled_; });
        if (position < 0)
            return {0, EINVAL};
        const auto start = static_cast<std::size_t>(position);
        const bool fails = owner_.readError_ != 0 && start + size > owner_.readErrorAt_;
        const std::size_t end = fails ? std::min(owner_.readErrorAt_, node_->bytes.size()) : node_->bytes.size();
        const std::size_t count = std::min(size, end - std::min(end, start));
        if (count > 0)
            std::memcpy(data, node_->bytes.data() + start, count);
        return {count, fails ? owner_.readError_ : 0};
    }

    Transfer write(const void* data, std::size_t size, std::int64_t position) override
    {
        return mayWrite_ ? owner_.write(*node_, data, size, position) : Transfer{0, EBADF};
    }

    SystemError size(std::int64_t& bytes) override
    {
        const std::scoped_lock lock(owner_.mutex_);
        bytes = static_cast<std::int64_t>(node_->bytes.size());
        return 0;
    }

    SystemError truncate(std::int64_t bytes) override { return mayWrite_ ? owner_.truncate(*node_, bytes) : EBADF; }

    SystemError synchronize() override
    {
        const std::scoped_lock lock(owner_.mutex_);
        return owner_.synchronizationError_;
    }

    SystemError close() override { return 0; }

    SystemError lock() override
    {
        node_->lock.lock();
        const std::scoped_lock lock(owner_.mutex_);
        return owner_.lockError_;
    }

    void unlock() override { node_->lock.unlock(); }

private:
    MemoryFileSystem& owner_;
    std::shared_ptr<Node> node_;
    bool mayWrite_;
};

// Counts a change of `bytes` bytes and decides how many are stored: `keep` if it is the one that fails. With the lock
// held.
MemoryFileSystem::Verdict MemoryFileSystem::judgeChange(std::size_t bytes, std::size_t keep)
{
    ++changes_;
    if (killedAt_ != 0 && changes_ >= killedAt_)
        return {changes_ == killedAt_ ? std::min(keep, bytes) : 0, 0};
    if (failsAt_ != 0 && changes_ == failsAt_)
        return {std::min(keep, bytes), changeError_};
    return {bytes, 0};
}

Transfer MemoryFileSystem::write(Node& node, const void* data, std::size_t size, std::int64_t position)
{
    std::unique_lock lock(mutex_);
    ++waiting_;
    stallChanged_.notify_all();
    stallChanged_.wait(lock, [this] { return !stalled_; });
    --waiting_;
    if (position < 0)
        return {0, EINVAL};
    Verdict verdict = judgeChange(size, keep_);
    const auto start = static_cast<std::size_t>(position);
    const std::size_t others = usedBytes() - node.bytes.size();
    const std::size_t room = capacity_ - std::min(capacity_, others);
    const std::size_t fits = room - std::min(room, start);
    if (verdict.stores > fits && start + verdict.stores > node.bytes.size())
        verdict = {std::max(fits, node.bytes.size() - std::min(node.bytes.size(), start)), ENOSPC};
    if (verdict.stores > 0) {
        if (node.bytes.size() < start + verdict.stores)
            node.bytes.resize(start + verdict.stores);
        std::memcpy(node.bytes.data() + start, data, verdict.stores);
        node.modificationTime = ++time_;
    }
    return {verdict.error == 0 ? size : verdict.stores, verdict.error};
}

SystemError MemoryFileSystem::truncate(Node& node, std::int64_t size)
{
    const std::scoped_lock lock(mutex_);
    if (size < 0)
        return EINVAL;
    const Verdict verdict = judgeChange(1, 0);
    const auto bytes = static_cast<std::size_t>(size);
    if (bytes > node.bytes.size() && usedBytes() - node.bytes.size() + bytes > capacity_)
        return ENOSPC;
    if (verdict.stores > 0) {
        node.bytes.resize(bytes);
        node.modificationTime = ++time_;
    }
    return verdict.error;
}

std::size_t MemoryFileSystem::usedBytes() const
{
    std::size_t used = 0;
    for (const auto& [path, node] : nodes_)
        used += node->bytes.size();
    return used;
}

SystemError MemoryFileSystem::open(const std::string& path, FileAccess access, std::unique_ptr<File>& file)
{
    const std::scoped_lock lock(mutex_);
    auto found = nodes_.find(path);
    if (access == FileAccess::createNew || access == FileAccess::createPrivate) {
        if (found != nodes_.end())
            return EEXIST;
        const Verdict verdict = judgeChange(1, 0);
        if (verdict.error != 0)
            return verdict.error;
        auto node = std::make_shared<Node>();
        node->number = ++lastNumber_;
        if (verdict.stores > 0)
            nodes_[path] = node;
        file = std::make_unique<OpenFile>(*this, std::move(node), true);
        return 0;
    }
    if (found == nodes_.end())
        return ENOENT;
    file = std::make_unique<OpenFile>(*this, found->second, access == FileAccess::readWrite);
    return 0;
}

SystemError MemoryFileSystem::status(const std::string& path, FileStatus& result)
{
    const std::scoped_lock lock(mutex_);
    const auto found = nodes_.find(path);
    if (found != nodes_.end()) {
        result = {.isRegular = true,
                  .size = static_cast<std::int64_t>(found->second->bytes.size()),
                  .fileNumber = found->second->number,
                  .modificationTime = found->second->modificationTime};
        return 0;
    }
    // a directory is the root and everything before a slash in a file's path
    const std::string prefix = path.ends_with('/') ? path : path + "/";
    const auto inside = nodes_.lower_bound(prefix);
    if (prefix != "/" && (inside == nodes_.end() || !inside->first.starts_with(prefix)))
        return ENOENT;
    result = {.isDirectory = true};
    return 0;
}

SystemError MemoryFileSystem::rename(const std::string& from, const std::string& to)
{
    const std::scoped_lock lock(mutex_);
    const auto found = nodes_.find(from);
    if (found == nodes_.end())
        return ENOENT;
    const Verdict verdict = judgeChange(1, 0);
    if (verdict.stores > 0 && from != to) {
        nodes_[to] = found->second;
        nodes_.erase(from);
    }
    return verdict.error;
}

SystemError MemoryFileSystem::renameToNew(const std::string& from, const std::string& to)
{
    FileStatus ignored;
    return status(to, ignored) == 0 ? EEXIST : rename(from, to);
}

SystemError MemoryFileSystem::remove(const std::string& path)
{
    const std::scoped_lock lock(mutex_);
    if (!nodes_.contains(path))
        return ENOENT;
    const Verdict verdict = judgeChange(1, 0);
    if (verdict.stores > 0)
        nodes_.erase(path);
    return verdict.error;
}

SystemError MemoryFileSystem::attribute(const std::string& path, const std::string& name,
                                        std::vector<std::uint8_t>& value)
{
    const std::scoped_lock lock(mutex_);
    const auto found = nodes_.find(path);
    if (found == nodes_.end())
        return ENOENT;
    const auto attribute = found->second->attributes.find(name);
    if (attribute == found->second->attributes.end())
        return ENODATA;
    value = attribute->second;
    return 0;
}

SystemError MemoryFileSystem::setAttribute(const std::string& path, const std::string& name,
                                           std::span<const std::uint8_t> value)
{
    const std::scoped_lock lock(mutex_);
    const auto found = nodes_.find(path);
    if (found == nodes_.end())
        return ENOENT;
    const Verdict verdict = judgeChange(1, 0);
    if (verdict.stores > 0)
        found->second->attributes[name].assign(value.begin(), value.end());
    return verdict.error;
}

SystemError MemoryFileSystem::copyAttributes(const std::string& from, const std::string& to)
{
    const std::scoped_lock lock(mutex_);
    const auto source = nodes_.find(from), target = nodes_.find(to);
    if (source == nodes_.end() || target == nodes_.end())
        return ENOENT;
    const Verdict verdict = judgeChange(1, 0);
    if (verdict.stores > 0)
        target->second->attributes = source->second->attributes;
    return verdict.error;
}

// It keeps no modes and no owners, and it has no links.
SystemError MemoryFileSystem::copyPermissions(const std::string& from, const std::string& to)
{
    FileStatus ignored;
    const SystemError error = status(from, ignored);
    return error == 0 ? status(to, ignored) : error;
}

SystemError MemoryFileSystem::resolve(const std::string& path, std::string& resolved)
{
    FileStatus ignored;
    const SystemError error = status(path, ignored);
    if (error == 0)
        resolved = path;
    return error;
}

MemoryFileSystem::Bytes MemoryFileSystem::contents(const std::string& path) const
{
    const std::scoped_lock lock(mutex_);
    const auto found = nodes_.find(path);
    return found == nodes_.end() ? Bytes{} : found->second->bytes;
}

void MemoryFileSystem::setContents(const std::string& path, Bytes bytes)
{
    const std::scoped_lock lock(mutex_);
    auto& node = nodes_[path];
    if (!node) {
        node = std::make_shared<Node>();
        node->number = ++lastNumber_;
    }
    node->bytes = std::move(bytes);
    node->modificationTime = ++time_;
}

std::size_t MemoryFileSystem::changesMade() const
{
    const std::scoped_lock lock(mutex_);
    return changes_;
}

void MemoryFileSystem::failChange(std::size_t ordinal, SystemError error, std::size_t keep)
{
    const std::scoped_lock lock(mutex_);
    failsAt_ = changes_ + ordinal;
    changeError_ = error;
    keep_ = keep;
}

void MemoryFileSystem::killAtChange(std::size_t ordinal, std::size_t keep)
{
    const std::scoped_lock lock(mutex_);
    killedAt_ = changes_ + ordinal;
    keep_ = keep;
}

void MemoryFileSystem::failReads(SystemError error, std::size_t position)
{
    const std::scoped_lock lock(mutex_);
    readError_ = error;
    readErrorAt_ = position;
}

void MemoryFileSystem::failSynchronization(SystemError error)
{
    const std::scoped_lock lock(mutex_);
    synchronizationError_ = error;
}

void MemoryFileSystem::failLocks(SystemError error)
{
    const std::scoped_lock lock(mutex_);
    lockError_ = error;
}

void MemoryFileSystem::setCapacity(std::size_t bytes)
{
    const std::scoped_lock lock(mutex_);
    capacity_ = bytes;
}

void MemoryFileSystem::setStalled(bool stalled)
{
    const std::scoped_lock lock(mutex_);
    stalled_ = stalled;
    stallChanged_.notify_all();
}

void MemoryFileSystem::waitForStalledWrite()
{
    std::unique_lock lock(mutex_);
    stallChanged_.wait(lock, [this] { return waiting_ > 0; });
}

void MemoryFileSystem::clearFaults()
{
    const std::scoped_lock lock(mutex_);
    failsAt_ = killedAt_ = keep_ = 0;
    changeError_ = readError_ = synchronizationError_ = lockError_ = 0;
    capacity_ = SIZE_MAX;
    stalled_ = false;
    stallChanged_.notify_all();
}

} // namespace qmx
