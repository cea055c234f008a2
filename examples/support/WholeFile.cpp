// SPDX-License-Identifier: MIT
#include "support/WholeFile.h"

#include "support/Failure.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace example
{
namespace
{

[[noreturn]] void failWith(const std::string& path, int error)
{
    throw Failure{"cannot write " + path + ": " + systemErrorText(error)};
}

/// Writes everything and closes; returns the error number, or 0.
int writeAndClose(int descriptor, std::string_view contents)
{
    int error = 0;
    while (error == 0 && !contents.empty()) {
        const ssize_t written = write(descriptor, contents.data(), contents.size());
        if (written >= 0)
            contents.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            error = errno;
    }
    if (close(descriptor) != 0 && error == 0)
        error = errno;
    return error;
}

/// The path that links lead to; `path` itself if it does not exist yet.
std::string finalPath(const std::string& path)
{
    std::error_code error;
    const auto resolved = std::filesystem::canonical(path, error);
    return error ? path : resolved.string();
}

} // namespace

void writeWholeFile(const std::string& path, const std::string& contents)
{
    const std::string target = finalPath(path);
    struct stat status {
    };
    const bool exists = stat(target.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        const int descriptor = open(target.c_str(), O_WRONLY | O_CLOEXEC);
        const int error = descriptor < 0 ? errno : writeAndClose(descriptor, contents);
        if (error != 0)
            failWith(path, error);
        return;
    }
    std::string temporary = target + ".XXXXXX";
    const int descriptor = mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0)
        failWith(path, errno);
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(descriptor, exists ? status.st_mode & 0777 : 0666 & ~mask);
    int error = writeAndClose(descriptor, contents);
    if (error == 0 && std::rename(temporary.c_str(), target.c_str()) != 0)
        error = errno;
    if (error != 0) {
        unlink(temporary.c_str());
        failWith(path, error);
    }
}

} // namespace example
