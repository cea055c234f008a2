// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <functional>
#include <string>

namespace example
{

/// The frames of a compressed recording as 16-bit linear PCM, which can be read by bytes: decoded into a file in the
/// system's folder for temporary files (TMPDIR). The file has no name there any more when decoding begins, so it goes
/// with the process whatever ends it. A bar shows the progress.
class DecodedCopy
{
public:
    /// A Failure that names the recording when it cannot be read to its end, or when the folder has no room; a silent
    /// one after Ctrl-C.
    /// `check` gets the number of frames first, and may throw.
    DecodedCopy(const std::string& recording, const std::function<void(SInt64 frames)>& check);

    /// Where this process reads it, while the object lives.
    std::string path() const;

private:
    struct Descriptor {
        Descriptor() = default;
        ~Descriptor();
        Descriptor(const Descriptor&) = delete;
        Descriptor& operator=(const Descriptor&) = delete;
        int number = -1;
    };
    Descriptor file_;
};

} // namespace example
