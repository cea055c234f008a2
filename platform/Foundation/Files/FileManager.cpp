// SPDX-License-Identifier: MIT
#include "Foundation/Files/FileManager.h"

#include "Foundation/ByteFields.h"
#include "Foundation/Files/Fork.h"
#include "Foundation/Memory.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace qmx
{
namespace
{

// Type and creator are the first 8 of the 32 bytes that other systems' tools store under this name.
constexpr const char* finderInfoName = "user.com.apple.FinderInfo";
constexpr std::size_t finderInfoSize = 32, typeOffset = 0, creatorOffset = 4;
using FinderInfo = std::array<std::uint8_t, finderInfoSize>;

OSType codeAt(const std::uint8_t* bytes)
{
    return load32(bytes, ByteOrder::big);
}

std::optional<FinderInfo> infoAt(std::span<const std::uint8_t> bytes, std::size_t offset)
{
    if (offset > bytes.size() || bytes.size() - offset < finderInfoSize)
        return std::nullopt;
    FinderInfo info;
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), finderInfoSize, info.begin());
    return info;
}

std::optional<FinderInfo> infoFromAttribute(const std::string& path, const std::string& name, std::size_t offset)
{
    std::vector<std::uint8_t> value;
    if (FileSystem::current().attribute(path, name, value) != 0)
        return std::nullopt;
    return infoAt(value, offset);
}

// The Finder info entry (ID 9) of the AppleDouble file beside a file, which archives and foreign disks leave there.
std::optional<FinderInfo> infoFromSidecar(const std::string& path)
{
    constexpr std::size_t headerSize = 26, entrySize = 12, largest = 4096;
    constexpr OSType magic = 0x00051607;
    std::unique_ptr<File> file;
    if (FileSystem::current().open(forkPath(path), FileAccess::read, file) != 0)
        return std::nullopt;
    std::vector<std::uint8_t> bytes(largest);
    bytes.resize(file->read(bytes.data(), bytes.size(), 0).count);
    if (bytes.size() < headerSize || codeAt(bytes.data()) != magic)
        return std::nullopt;
    const std::size_t entries = load16(bytes.data() + 24, ByteOrder::big);
    for (std::size_t i = 0; i < entries && headerSize + (i + 1) * entrySize <= bytes.size(); ++i) {
        const std::uint8_t* entry = bytes.data() + headerSize + i * entrySize;
        if (codeAt(entry) == 9)
            return infoAt(bytes, codeAt(entry + 4));
    }
    return std::nullopt;
}

// Tries the most trusted place first: the library's own, which is also the most common.
std::optional<FinderInfo> finderInfo(const std::string& path)
{
    auto info = infoFromAttribute(path, finderInfoName, 0);
    if (!info)
        info = infoFromAttribute(path, "user.org.netatalk.Metadata", 122);
    if (!info)
        info = infoFromAttribute(path, "user.DosStream.AFP_AfpInfo:$DATA", 16);
    return info ? info : infoFromSidecar(path);
}

SystemError copyContents(File& from, File& to)
{
    std::vector<std::uint8_t> block(std::size_t{1} << 20);
    for (std::int64_t position = 0;;) {
        const Transfer read = from.read(block.data(), block.size(), position);
        if (read.error != 0 || read.count == 0)
            return read.error;
        const Transfer written = to.write(block.data(), read.count, position);
        if (written.error != 0)
            return written.error;
        position += static_cast<std::int64_t>(read.count);
    }
}

SystemError removeWithFork(const std::string& path)
{
    const SystemError error = FileSystem::current().remove(path);
    if (error != 0 && error != ENOENT)
        return error;
    const SystemError forkError = removeFork(path); // it may have stayed without its file
    return error == 0 ? forkError : error;
}

// On success the copy is on the disk.
SystemError fillCopy(const std::string& source, File& from, const std::string& destination, File& to)
{
    SystemError error = copyContents(from, to);
    if (error == 0)
        error = FileSystem::current().copyAttributes(source, destination);
    if (error == 0)
        error = to.synchronize();
    const SystemError closed = to.close();
    return error == 0 ? closed : error;
}

SystemError copyFile(const std::string& source, const std::string& destination)
{
    FileSystem& fileSystem = FileSystem::current();
    std::unique_ptr<File> from, to;
    if (const SystemError error = fileSystem.open(source, FileAccess::read, from); error != 0)
        return error;
    if (const SystemError error = fileSystem.open(destination, FileAccess::createPrivate, to); error != 0)
        return error;
    const SystemError error = withinMemory(ENOMEM, [&] { return fillCopy(source, *from, destination, *to); });
    if (error != 0)
        (void)fileSystem.remove(destination); // the first error counts
    return error;
}

SystemError renameFile(const std::string& source, const std::string& destination)
{
    return FileSystem::current().renameToNew(source, destination);
}

// Moves or copies the fork of `source` with its file. A fork at the destination, which has no file, is removed.
SystemError transferFork(const std::string& source, const std::string& destination,
                         SystemError (*transfer)(const std::string&, const std::string&))
{
    bool isThere = false;
    if (const SystemError error = findFork(source, isThere); error != 0)
        return error; // it may be this file's fork
    if (const SystemError error = removeFork(destination); error != 0)
        return error;
    return isThere ? transfer(forkPath(source), forkPath(destination)) : 0;
}

SystemError copyWithFork(const std::string& source, const std::string& destination)
{
    SystemError error = copyFile(source, destination);
    if (error != 0)
        return error;
    error = withinMemory(ENOMEM, [&] { return transferFork(source, destination, copyFile); });
    if (error != 0)
        (void)FileSystem::current().remove(destination); // the first error counts
    return error;
}

// Removes the source only when its copy is on the other disk.
SystemError moveByCopying(const std::string& source, const std::string& destination)
{
    if (const SystemError error = copyWithFork(source, destination); error != 0)
        return error;
    const SystemError error = FileSystem::current().remove(source);
    if (error == 0)
        (void)removeFork(source); // a fork that stays without its file does no harm
    else
        (void)removeWithFork(destination); // the first error counts
    return error;
}

SystemError moveWithFork(const std::string& source, const std::string& destination)
{
    SystemError error = renameFile(source, destination);
    if (error == EXDEV)
        return moveByCopying(source, destination);
    if (error != 0)
        return error;
    error = withinMemory(ENOMEM, [&] { return transferFork(source, destination, renameFile); });
    if (error != 0)
        (void)FileSystem::current().rename(destination, source); // the first error counts
    return error;
}

SystemError synchronize(const std::string& path)
{
    std::unique_ptr<File> file;
    const SystemError error = FileSystem::current().open(path, FileAccess::readWrite, file);
    return error == 0 ? file->synchronize() : error;
}

SystemError synchronizeWithFork(const std::string& path)
{
    bool isThere = false;
    SystemError error = synchronize(path);
    if (error == 0)
        error = findFork(path, isThere);
    return isThere && error == 0 ? synchronize(forkPath(path)) : error;
}

SystemError replaceFile(const std::string& source, const std::string& destination)
{
    FileSystem& fileSystem = FileSystem::current();
    const SystemError error = fileSystem.copyPermissions(destination, source);
    return error == 0 || error == ENOENT ? fileSystem.rename(source, destination) : error; // there may be none
}

// The fork goes first, and nothing fails after the file: an error means that the old file has its name.
SystemError replaceWithFork(const std::string& source, const std::string& destination)
{
    FileSystem& fileSystem = FileSystem::current();
    const std::string fork = forkPath(source), replacedFork = forkPath(destination);
    const bool replacesFork = hasFork(destination); // any other file of that name is not replaced
    bool movesFork = false;
    SystemError error = findFork(source, movesFork);
    if (movesFork && error == 0)
        error = replacesFork ? fileSystem.rename(fork, replacedFork) : fileSystem.renameToNew(fork, replacedFork);
    if (error != 0)
        return error;
    error = replaceFile(source, destination);
    if (error != 0 && movesFork)
        (void)fileSystem.rename(replacedFork, fork); // the first error counts
    if (error == 0 && replacesFork && !movesFork)
        (void)fileSystem.remove(replacedFork); // a fork that stays does little harm
    return error;
}

// Whether the operation counts as done: it succeeded, or the handler goes on all the same.
bool finish(SystemError error, const std::string& path, FileManagerHandler* handler)
{
    if (error == 0)
        return true;
    return handler && handler->fileManager_shouldProceedAfterError(path, systemErrorText(error));
}

} // namespace

FileManagerHandler::~FileManagerHandler() = default;
bool FileManagerHandler::fileManager_shouldProceedAfterError(const std::string&, const std::string&)
{
    return false;
}
void FileManagerHandler::fileManager_willProcessPath(const std::string&) {}

FileManager& FileManager::defaultManager()
{
    static auto* const instance = new FileManager; // never destroyed: threads may use it while the process ends
    return *instance;
}

bool FileManager::fileExistsAtPath(const std::string& path, bool* isDirectory)
{
    FileStatus status;
    const bool exists = FileSystem::current().status(path, status) == 0;
    if (isDirectory)
        *isDirectory = exists && status.isDirectory;
    return exists;
}

bool FileManager::movePath_toPath_handler(const std::string& source, const std::string& destination,
                                          FileManagerHandler* handler)
{
    if (handler)
        handler->fileManager_willProcessPath(source);
    return finish(withinMemory(ENOMEM, [&] { return moveWithFork(source, destination); }), source, handler);
}

bool FileManager::copyPath_toPath_handler(const std::string& source, const std::string& destination,
                                          FileManagerHandler* handler)
{
    if (handler)
        handler->fileManager_willProcessPath(source);
    return finish(copyFileAtPath_toPath(source, destination), source, handler);
}

SystemError FileManager::copyFileAtPath_toPath(const std::string& source, const std::string& destination)
{
    return withinMemory(ENOMEM, [&] { return copyWithFork(source, destination); });
}

SystemError FileManager::renamePath_toPath_replaces(const std::string& source, const std::string& destination,
                                                    bool replaces)
{
    return withinMemory(ENOMEM, [&] {
        const SystemError error = synchronizeWithFork(source);
        return error == 0 ? (replaces ? replaceWithFork : moveWithFork)(source, destination) : error;
    });
}

bool FileManager::removeFileAtPath_handler(const std::string& path, FileManagerHandler* handler)
{
    if (handler)
        handler->fileManager_willProcessPath(path);
    return finish(withinMemory(ENOMEM, [&] { return removeWithFork(path); }), path, handler);
}

bool FileManager::changeFileAttributes_atPath(const FileAttributes& attributes, const std::string& path)
{
    return withinMemory(false, [&] {
        FinderInfo info = finderInfo(path).value_or(FinderInfo{});
        if (attributes.NSFileHFSTypeCode)
            store32(info.data() + typeOffset, *attributes.NSFileHFSTypeCode, ByteOrder::big);
        if (attributes.NSFileHFSCreatorCode)
            store32(info.data() + creatorOffset, *attributes.NSFileHFSCreatorCode, ByteOrder::big);
        return FileSystem::current().setAttribute(path, finderInfoName, info) == 0;
    });
}

FileAttributes FileManager::fileAttributesAtPath(const std::string& path)
{
    return withinMemory(FileAttributes(), [&]() -> FileAttributes {
        FileStatus status;
        if (FileSystem::current().status(path, status) != 0)
            return {};
        FileAttributes attributes;
        attributes.NSFileSize = status.size;
        if (const auto info = finderInfo(path)) {
            attributes.NSFileHFSTypeCode = codeAt(info->data() + typeOffset);
            attributes.NSFileHFSCreatorCode = codeAt(info->data() + creatorOffset);
        }
        return attributes;
    });
}

} // namespace qmx
