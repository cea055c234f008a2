// SPDX-License-Identifier: MIT
#include "Foundation/Files/FileSystem.h"

#include "Foundation/Memory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

namespace qmx
{
namespace
{

SystemError lastError()
{
    return errno != 0 ? errno : EIO;
}

SystemError resultOf(int status)
{
    return status == 0 ? 0 : lastError();
}

constexpr std::size_t largestTransfer = std::size_t{1} << 30; // the system transfers at most about 2 GiB per call

using FileNumber = std::pair<dev_t, ino_t>;

/// The mutex that all files of this number in the process share. A file keeps it while it is open, so its number is not
/// used again.
std::shared_ptr<std::mutex> mutexFor(FileNumber number)
{
    static auto& tableMutex = *new std::mutex; // never destroyed: threads may use files while the process ends
    static auto& table = *new std::map<FileNumber, std::weak_ptr<std::mutex>>;
    const std::scoped_lock lock(tableMutex);
    std::erase_if(table, [](const auto& entry) { return entry.second.expired(); });
    auto mutex = table[number].lock();
    if (!mutex)
        table[number] = mutex = std::make_shared<std::mutex>();
    return mutex;
}

class PosixFile : public File
{
public:
    PosixFile(const std::string& path, int flags, mode_t mode, bool mayWrite)
        : descriptor_(::open(path.c_str(), flags, mode)), mayWrite_(mayWrite)
    {
    }
    ~PosixFile() override { (void)PosixFile::close(); } // a caller who needs the error calls close()
    PosixFile(const PosixFile&) = delete;
    PosixFile& operator=(const PosixFile&) = delete;

    bool isOpen() const { return descriptor_ >= 0; }
    SystemError status(struct stat& status) const { return resultOf(::fstat(descriptor_, &status)); }
    /// Shares a lock with the other files of this number. Before the first lock().
    void shareLock(FileNumber number) { mutex_ = mutexFor(number); }

    Transfer read(void* data, std::size_t size, std::int64_t position) override
    {
        return transfer(size, [&](std::size_t done, std::size_t count) {
            return ::pread(descriptor_, static_cast<char*>(data) + done, count,
                           position + static_cast<std::int64_t>(done));
        });
    }

    Transfer write(const void* data, std::size_t size, std::int64_t position) override
    {
        Transfer done = transfer(size, [&](std::size_t written, std::size_t count) {
            return ::pwrite(descriptor_, static_cast<const char*>(data) + written, count,
                            position + static_cast<std::int64_t>(written));
        });
        if (done.error == 0 && done.count < size)
            done.error = EIO;
        return done;
    }

    SystemError size(std::int64_t& bytes) override
    {
        struct stat status {
        };
        if (const SystemError error = this->status(status); error != 0)
            return error;
        bytes = status.st_size;
        return 0;
    }

    SystemError truncate(std::int64_t bytes) override { return resultOf(::ftruncate(descriptor_, bytes)); }
    SystemError synchronize() override { return resultOf(::fsync(descriptor_)); }

    SystemError close() override
    {
        const int descriptor = std::exchange(descriptor_, -1);
        return descriptor < 0 ? 0 : resultOf(::close(descriptor));
    }

    // The mutex excludes the threads of this process, even if the file system has no locks or both sides only read.
    SystemError lock() override
    {
        mutex_->lock();
        return lockDescriptor(mayWrite_ ? F_WRLCK : F_RDLCK);
    }

    void unlock() override
    {
        lockDescriptor(F_UNLCK);
        mutex_->unlock();
    }

private:
    /// The lock belongs to the open descriptor, not to the process, so closing another descriptor of the file does not
    /// release it.
    SystemError lockDescriptor(short type)
    {
        // One byte far after every file's end, so that mandatory locks of a file system refuse no reads.
        struct flock place {
        };
        place.l_type = type;
        place.l_whence = SEEK_SET;
        place.l_start = off_t{1} << 62;
        place.l_len = 1;
        while (::fcntl(descriptor_, F_OFD_SETLKW, &place) != 0)
            if (errno != EINTR)
                return lastError();
        return 0;
    }

    template <class Call> static Transfer transfer(std::size_t size, Call call)
    {
        Transfer done;
        while (done.count < size) {
            const ssize_t count = call(done.count, std::min(size - done.count, largestTransfer));
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                return {done.count, lastError()};
            if (count == 0)
                break;
            done.count += static_cast<std::size_t>(count);
        }
        return done;
    }

    int descriptor_;
    bool mayWrite_;
    std::shared_ptr<std::mutex> mutex_;
};

int openFlags(FileAccess access)
{
    switch (access) {
    case FileAccess::read:
        return O_RDONLY;
    case FileAccess::readWrite:
        return O_RDWR;
    case FileAccess::createNew:
    case FileAccess::createPrivate:
        return O_RDWR | O_CREAT | O_EXCL;
    }
    return O_RDONLY;
}

class PosixFileSystem : public FileSystem
{
public:
    SystemError open(const std::string& path, FileAccess access, std::unique_ptr<File>& file) override
    {
        // a named pipe must not block the caller; it is refused below
        const mode_t mode = access == FileAccess::createPrivate ? 0600 : 0666;
        auto opened = std::make_unique<PosixFile>(path, openFlags(access) | O_CLOEXEC | O_NONBLOCK, mode,
                                                  access != FileAccess::read);
        if (!opened->isOpen())
            return lastError();
        struct stat status {
        };
        if (const SystemError error = opened->status(status); error != 0)
            return error;
        if (S_ISDIR(status.st_mode))
            return EISDIR;
        if (!S_ISREG(status.st_mode))
            return ESPIPE;
        if (!withinMemory([&] { opened->shareLock({status.st_dev, status.st_ino}); })) {
            if ((openFlags(access) & O_CREAT) != 0)
                ::unlink(path.c_str()); // created just now
            return ENOMEM;
        }
        file = std::move(opened);
        return 0;
    }

    SystemError status(const std::string& path, FileStatus& result) override
    {
        struct stat status {
        };
        if (::stat(path.c_str(), &status) != 0)
            return lastError();
        result = {.isDirectory = S_ISDIR(status.st_mode),
                  .isRegular = S_ISREG(status.st_mode),
                  .size = status.st_size,
                  .device = status.st_dev,
                  .fileNumber = status.st_ino,
                  .modificationTime = std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec};
        return 0;
    }

    SystemError rename(const std::string& from, const std::string& to) override
    {
        return resultOf(std::rename(from.c_str(), to.c_str()));
    }

    SystemError renameToNew(const std::string& from, const std::string& to) override
    {
        if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
            return 0;
        if (errno != EINVAL && errno != ENOSYS)
            return lastError();
        // the file system has no such operation
        struct stat ignored {
        };
        return ::lstat(to.c_str(), &ignored) == 0 ? EEXIST : rename(from, to);
    }

    SystemError remove(const std::string& path) override { return resultOf(::unlink(path.c_str())); }

    SystemError attribute(const std::string& path, const std::string& name, std::vector<std::uint8_t>& value) override
    {
        const ssize_t size = ::getxattr(path.c_str(), name.c_str(), nullptr, 0);
        if (size < 0)
            return lastError();
        value.resize(static_cast<std::size_t>(size));
        const ssize_t read = ::getxattr(path.c_str(), name.c_str(), value.data(), value.size());
        if (read < 0)
            return lastError();
        value.resize(static_cast<std::size_t>(read));
        return 0;
    }

    SystemError setAttribute(const std::string& path, const std::string& name,
                             std::span<const std::uint8_t> value) override
    {
        return resultOf(::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0));
    }

    SystemError copyAttributes(const std::string& from, const std::string& to) override
    {
        struct stat status {
        };
        if (::stat(from.c_str(), &status) != 0)
            return lastError();
        copyExtendedAttributes(from, to); // before the new mode can forbid it
        SystemError error = resultOf(::chmod(to.c_str(), status.st_mode & 0777));
        const timespec times[] = {status.st_atim, status.st_mtim};
        if (error == 0 || isNotKept(error))
            error = resultOf(::utimensat(AT_FDCWD, to.c_str(), times, 0));
        return isNotKept(error) ? 0 : error;
    }

    SystemError copyPermissions(const std::string& from, const std::string& to) override
    {
        struct stat status {
        };
        if (::stat(from.c_str(), &status) != 0)
            return lastError();
        // only the system's administrator may give a file away, and others only to groups of their own
        if (::chown(to.c_str(), status.st_uid, status.st_gid) != 0)
            (void)resultOf(::chown(to.c_str(), static_cast<uid_t>(-1), status.st_gid));
        const SystemError error = resultOf(::chmod(to.c_str(), status.st_mode & 0777));
        return isNotKept(error) ? 0 : error;
    }

    SystemError resolve(const std::string& path, std::string& resolved) override
    {
        const std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), &std::free);
        if (!real)
            return lastError();
        resolved = real.get();
        return 0;
    }

private:
    /// The owner may change a file's mode and times, unless its file system keeps none.
    static bool isNotKept(SystemError error) { return error == EPERM || error == ENOTSUP; }

    // Extended attributes are optional: one that the target cannot store is left out.
    void copyExtendedAttributes(const std::string& from, const std::string& to)
    {
        const ssize_t size = ::listxattr(from.c_str(), nullptr, 0);
        std::string names(static_cast<std::size_t>(std::max<ssize_t>(size, 0)), '\0');
        names.resize(
            static_cast<std::size_t>(std::max<ssize_t>(::listxattr(from.c_str(), names.data(), names.size()), 0)));
        for (std::size_t at = 0; at < names.size(); at = names.find('\0', at) + 1) {
            const std::string name = names.c_str() + at;
            std::vector<std::uint8_t> value;
            if (name.starts_with("user.") && attribute(from, name, value) == 0)
                (void)setAttribute(to, name, value);
        }
    }
};

std::atomic<FileSystem*> replacement{nullptr};

} // namespace

const char* systemErrorText(SystemError error)
{
    const char* const text = strerrordesc_np(error);
    return text ? text : "unknown error";
}

File::~File() = default;

FileLock::FileLock(File* file) : file_(file), excludesOtherProcesses_(file && file->lock() == 0) {}

FileLock::~FileLock()
{
    if (file_)
        file_->unlock();
}

FileSystem::~FileSystem() = default;

FileSystem& FileSystem::current()
{
    FileSystem* set = replacement.load(std::memory_order_acquire);
    return set ? *set : posix();
}

void FileSystem::setCurrent(FileSystem* fileSystem)
{
    replacement.store(fileSystem, std::memory_order_release);
}

FileSystem& FileSystem::posix()
{
    static auto* const instance = new PosixFileSystem; // never destroyed: threads may use files while the process ends
    return *instance;
}

} // namespace qmx
