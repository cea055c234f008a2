// SPDX-License-Identifier: MIT
#include "support/OutputFile.h"

#include "support/Failure.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace example
{

namespace fs = std::filesystem;

OutputFile::OutputFile(const std::string& path, const std::string& input, bool mayReplace) : path_(path)
{
    std::error_code error;
    if (fs::equivalent(path, input, error))
        throw Failure{path + ": is the input itself"};
    const fs::file_status status = fs::symlink_status(path, error);
    if (fs::is_directory(fs::status(path, error)))
        throw Failure{"cannot write " + path + ": " + systemErrorText(EISDIR)};
    if (fs::exists(status) && !mayReplace)
        throw Failure{path + ": exists (--force replaces it)"};
    const fs::path whole(path);
    const fs::path parent = whole.has_parent_path() ? whole.parent_path() : ".";
    std::string folder = parent / (".making-XXXXXX");
    if (!mkdtemp(folder.data()))
        throw Failure{"cannot write " + path + ": " + systemErrorText(errno)};
    folder_ = folder;
}

OutputFile::~OutputFile()
{
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

std::string OutputFile::temporaryPath() const
{
    return folder_ / fs::path(path_).filename();
}

void OutputFile::finish()
{
    const fs::path target(path_);
    std::error_code error;
    for (const std::string& name : {target.filename().string(), std::string("._").append(target.filename())}) {
        if (!fs::exists(fs::path(folder_) / name, error))
            continue;
        fs::rename(fs::path(folder_) / name, target.parent_path() / name, error);
        if (error)
            throw Failure{"cannot write " + path_ + ": " + error.message()};
    }
}

} // namespace example
