// SPDX-License-Identifier: MIT
#include "Front/OutputFile.h"

#include "Foundation/Files/FileManager.h"
#include "Front/SystemFailure.h"

#include <cerrno>
#include <filesystem>
#include <random>
#include <string_view>
#include <utility>

namespace qmx
{
namespace
{

namespace fs = std::filesystem;

std::string folderOf(const std::string& path)
{
    const fs::path parent = fs::path(path).parent_path();
    return parent.empty() ? "." : parent.string();
}

/// A name that nobody has: hidden, and with the extension, by which some look at a file.
std::string temporaryName(const std::string& target)
{
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz0123456789";
    constexpr int length = 16;
    std::random_device random;
    std::uniform_int_distribution<std::size_t> choice(0, letters.size() - 1);
    std::string name = ".making-";
    for (int i = 0; i < length; ++i)
        name += letters[choice(random)];
    return name + fs::path(target).extension().string();
}

bool isSame(const FileStatus& one, const FileStatus& other)
{
    return one.device == other.device && one.fileNumber == other.fileNumber;
}

} // namespace

OutputFile::OutputFile(std::string path, std::string target, bool replaces)
    : path_(std::move(path)), target_(std::move(target)),
      temporaryPath_((fs::path(folderOf(target_)) / temporaryName(target_)).string()), replaces_(replaces)
{
}

OutputFile::OutputFile(OutputFile&& other) noexcept
    : path_(std::move(other.path_)), target_(std::move(other.target_)),
      temporaryPath_(std::exchange(other.temporaryPath_, {})), replaces_(other.replaces_)
{
}

OutputFile::~OutputFile()
{
    if (!temporaryPath_.empty())
        (void)FileManager::defaultManager().removeFileAtPath_handler(temporaryPath_, nullptr); // it may be unmade
}

Result<OutputFile> OutputFile::at(const std::string& path, bool replaces, const std::string& input)
{
    FileSystem& fileSystem = FileSystem::current();
    FileStatus folder, existing, source;
    if (path.empty() || path.ends_with('/'))
        return systemFailure(path.empty() ? ENOENT : EISDIR, path);
    if (const SystemError error = fileSystem.status(folderOf(path), folder); error != 0)
        return systemFailure(error, path);
    if (!folder.isDirectory)
        return systemFailure(ENOTDIR, path);
    std::string target = path;
    if (const SystemError error = fileSystem.status(path, existing); error == 0) {
        if (!input.empty() && fileSystem.status(input, source) == 0 && isSame(existing, source))
            return Error(paramErr, path + ": It is the input itself", path);
        if (existing.isDirectory)
            return systemFailure(EISDIR, path);
        if (!existing.isRegular)
            return Error(bdNamErr, path + ": Not a regular file", path);
        if (!replaces)
            return systemFailure(EEXIST, path);
        if (const SystemError unresolved = fileSystem.resolve(path, target); unresolved != 0)
            return systemFailure(unresolved, path);
    } else if (error != ENOENT) {
        return systemFailure(error, path);
    } else if (std::error_code ignored; fs::is_symlink(path, ignored)) {
        return Error(fnfErr, path + ": A link that leads nowhere", path);
    }
    return OutputFile(path, std::move(target), replaces);
}

Result<void> OutputFile::finish()
{
    const SystemError error =
        FileManager::defaultManager().renamePath_toPath_replaces(temporaryPath_, target_, replaces_);
    if (error != 0)
        return systemFailure(error, path_);
    temporaryPath_.clear();
    return {};
}

} // namespace qmx
