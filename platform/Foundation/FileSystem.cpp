// SPDX-License-Identifier: MIT
#include "Foundation/FileSystem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

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

constexpr std::size_t largestTransfer = std::size_t{1} << 30; // the system moves at most about 2 GiB a call

class PosixFile : public File
{
public:
    PosixFile(const std::string& path, int flags) : descriptor_(::open(path.c_str(), flags, 0666)) {}
    ~PosixFile() override
    {
        if (isOpen())
            ::close(descriptor_);
    }
    PosixFile(const PosixFile&) = delete;
    PosixFile& operator=(const PosixFile&) = delete;

    bool isOpen() const { return descriptor_ >= 0; }
    SystemError status(struct stat& status) const { return resultOf(::fstat(descriptor_, &status)); }

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

private:
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
};

int openFlags(FileAccess access)
{
    switch (access) {
    case FileAccess::read:
        return O_RDONLY;
    case FileAccess::readWrite:
        return O_RDWR;
    case FileAccess::createNew:
        return O_RDWR | O_CREAT | O_EXCL;
    }
    return O_RDONLY;
}

class PosixFileSystem : public FileSystem
{
public:
    SystemError open(const std::string& path, FileAccess access, std::unique_ptr<File>& file) override
    {
        // a named pipe must not block the caller: such things are refused below
        auto opened = std::make_unique<PosixFile>(path, openFlags(access) | O_CLOEXEC | O_NONBLOCK);
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
                  .fileNumber = status.st_ino};
        return 0;
    }

    SystemError rename(const std::string& from, const std::string& to) override
    {
        return resultOf(std::rename(from.c_str(), to.c_str()));
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
};

std::atomic<FileSystem*> replacement{nullptr};

} // namespace

const char* systemErrorText(SystemError error)
{
    const char* const text = strerrordesc_np(error);
    return text ? text : "unknown error";
}

File::~File() = default;
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
