// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace example
{

/// A file that is made in a temporary folder beside its destination and moved there when it is complete, so that an
/// incomplete one is never seen. The destructor removes the folder.
class OutputFile
{
public:
    /// A Failure if `path` cannot be written, exists (unless `mayReplace`), or is the file `input` itself.
    OutputFile(const std::string& path, const std::string& input, bool mayReplace);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// The path to make it at, which ends in its own name.
    std::string temporaryPath() const;
    /// Moves it, and its sidecar file, to its destination.
    void finish();

private:
    std::string path_, folder_;
};

} // namespace example
