// SPDX-License-Identifier: MIT
#include "Foundation/Files/FileHandle.h"

#include <algorithm>
#include <cerrno>

namespace qmx
{
namespace
{

std::shared_ptr<FileHandle> openAt(const std::string& path, FileAccess access)
{
    std::unique_ptr<File> file;
    return FileSystem::current().open(path, access, file) == 0 ? std::make_shared<FileHandle>(std::move(file))
                                                               : nullptr;
}

} // namespace

std::shared_ptr<FileHandle> FileHandle::fileHandleForReadingAtPath(const std::string& path)
{
    return openAt(path, FileAccess::read);
}

std::shared_ptr<FileHandle> FileHandle::fileHandleForUpdatingAtPath(const std::string& path)
{
    return openAt(path, FileAccess::readWrite);
}

FileHandle::FileHandle(std::unique_ptr<File> file) : file_(std::move(file)) {}

std::vector<std::uint8_t> FileHandle::readDataOfLength(std::size_t length)
{
    std::int64_t size = 0;
    if (!file_ || file_->size(size) != 0 || offset_ >= size)
        return {};
    // allocates no more than the file holds
    std::vector<std::uint8_t> data(std::min(length, static_cast<std::size_t>(size - offset_)));
    data.resize(readData(data));
    return data;
}

std::size_t FileHandle::readData(std::span<std::uint8_t> data)
{
    const std::size_t count = file_ ? file_->read(data.data(), data.size(), offset_).count : 0;
    offset_ += static_cast<std::int64_t>(count);
    return count;
}

std::vector<std::uint8_t> FileHandle::readDataToEndOfFile()
{
    return readDataOfLength(SIZE_MAX);
}

SystemError FileHandle::writeData(std::span<const std::uint8_t> data)
{
    if (!file_)
        return EBADF;
    const Transfer written = file_->write(data.data(), data.size(), offset_);
    offset_ += static_cast<std::int64_t>(written.count);
    return written.error;
}

std::int64_t FileHandle::offsetInFile() const
{
    return offset_;
}

std::int64_t FileHandle::seekToEndOfFile()
{
    std::int64_t size = 0;
    if (!file_ || file_->size(size) != 0)
        return -1;
    offset_ = size;
    return offset_;
}

void FileHandle::seekToFileOffset(std::int64_t offset)
{
    offset_ = std::max<std::int64_t>(0, offset);
}

SystemError FileHandle::truncateFileAtOffset(std::int64_t offset)
{
    if (!file_)
        return EBADF;
    const SystemError error = file_->truncate(offset);
    if (error == 0)
        offset_ = offset;
    return error;
}

SystemError FileHandle::synchronizeFile()
{
    return file_ ? file_->synchronize() : EBADF;
}

FileLock FileHandle::lock()
{
    return FileLock(file_.get());
}

void FileHandle::closeFile()
{
    file_.reset();
}

} // namespace qmx
