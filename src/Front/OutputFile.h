// SPDX-License-Identifier: MIT
// A file that is made under another name beside its own, which it gets when it is complete, so that an incomplete one
// is never seen. Internal to the front.
#pragma once

#include "Front/Result.h"

#include <string>

namespace qmx
{

/// Removes what was made unless it was finished. Any one thread.
class OutputFile
{
public:
    /// An error of `path` if it is a folder or no regular file, if its folder is missing, if it exists (unless
    /// `replaces`), if it is a link that leads nowhere, and if it is `input`. Nothing is made yet. Where `path` is a
    /// link, the file is the one to which it leads.
    static Result<OutputFile> at(const std::string& path, bool replaces, const std::string& input = {});
    ~OutputFile();
    OutputFile(OutputFile&& other) noexcept;
    OutputFile& operator=(OutputFile&&) = delete;

    /// The path as it was given.
    const std::string& path() const { return path_; }
    /// The path at which the file is to be made, new: in the same folder and with the same extension.
    const std::string& temporaryPath() const { return temporaryPath_; }
    /// Gives the file its name, and the permissions of the one it replaces. An error for one that has appeared there
    /// meanwhile, unless it may be replaced.
    Result<void> finish();

private:
    OutputFile(std::string path, std::string target, bool replaces);

    std::string path_, target_, temporaryPath_;
    bool replaces_;
};

} // namespace qmx
