// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace example
{

/// A file that is made in a folder of its own beside its place, and moved there when it is whole: nobody ever sees half
/// of it. The folder goes with the object.
class OutputFile
{
public:
    /// A Failure when `path` cannot be written, exists (unless `mayReplace`), or is the file `input` itself.
    OutputFile(const std::string& path, const std::string& input, bool mayReplace);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Where to make it, under its own name.
    std::string temporaryPath() const;
    /// Moves it, and the sidecar that belongs to it, to its place.
    void finish();

private:
    std::string path_, folder_;
};

} // namespace example
