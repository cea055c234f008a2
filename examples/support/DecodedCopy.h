// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

#include <functional>
#include <string>

namespace example
{

/// The frames of a compressed recording as 16-bit linear PCM, which can be read by bytes: decoded into a file in the
/// system's folder for temporary files (TMPDIR). The file's name is removed before decoding starts, so the file ends
/// with the process however that ends. A bar shows the progress.
class DecodedCopy
{
public:
    /// A Failure that names the recording if it cannot be read to its end or the folder has no room; a silent one after
    /// Ctrl-C. `check` is called first, with the number of frames, and may throw.
    DecodedCopy(const std::string& recording, const std::function<void(SInt64 frames)>& check);

    /// The path at which this process can read it while the object exists.
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
