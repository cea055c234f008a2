// SPDX-License-Identifier: MIT
#include "Front/InputFile.h"

#include "AudioToolbox/AudioFile.h"
#include "Front/SystemFailure.h"

#include <cerrno>
#include <memory>

namespace qmx
{

std::optional<Error> objectionToReading(const std::string& path)
{
    FileSystem& fileSystem = FileSystem::current();
    FileStatus status;
    std::unique_ptr<File> file;
    SystemError error = fileSystem.status(path, status);
    if (error == 0 && status.isDirectory)
        error = EISDIR;
    if (error == 0 && !status.isRegular)
        return Error(bdNamErr, path + ": Not a regular file", path);
    if (error == 0)
        error = fileSystem.open(path, FileAccess::read, file);
    if (error != 0)
        return systemFailure(error, path);
    if (status.size == 0)
        return Error(kAudioFileUnsupportedFileTypeError, path + ": The file is empty", path);
    return std::nullopt;
}

} // namespace qmx
