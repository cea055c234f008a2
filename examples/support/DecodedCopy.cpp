// SPDX-License-Identifier: MIT
#include "support/DecodedCopy.h"

#include "support/Failure.h"
#include "support/FrameCopy.h"
#include "support/Interrupt.h"
#include "support/ProgressBar.h"
#include "support/StatusText.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace example
{
namespace
{

namespace fs = std::filesystem;

/// A new folder inside the one for temporary files. The destructor removes it and its contents.
class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::error_code error;
        path_ = fs::temp_directory_path(error) / "split-XXXXXX";
        if (error || !mkdtemp(path_.data()))
            throw Failure{"cannot write " + path_ + ": " + (error ? error.message() : systemErrorText(errno))};
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

void checkRoom(const std::string& folder, SInt64 bytes, const std::string& recording)
{
    std::error_code error;
    const fs::space_info space = fs::space(folder, error);
    constexpr SInt64 mebibyte = 1 << 20;
    if (!error && space.available < static_cast<std::uintmax_t>(bytes))
        throw Failure{recording + ": takes " + std::to_string(bytes / mebibyte + 1) + " MiB to decode in " +
                      fs::path(folder).parent_path().string() +
                      ", which has no room for it (TMPDIR names another folder)"};
}

} // namespace

DecodedCopy::DecodedCopy(const std::string& recording, const std::function<void(SInt64 frames)>& checkFrames)
{
    const auto source = QMXExtAudioFile::initForReading_clientFormat(recording, nullptr);
    check(source->open(), "cannot read", recording);
    const auto format = linearFormat(*source->fileStreamFormat(), kAudioFormatFlagIsSignedInteger, 16);
    check(source->setClientStreamFormat(format), "cannot read", recording);
    const SInt64 frames = source->lengthInFrames();
    checkFrames(frames);

    std::shared_ptr<QMXExtAudioFile> target;
    {
        const TemporaryFolder folder;
        checkRoom(folder.path(), frames * format.mBytesPerFrame, recording);
        const std::string name = folder.path() + "/decoded.caf";
        target =
            QMXExtAudioFile::initForWriting_fileType_clientFormat_fileFormat(name, kAudioFileCAFType, &format, &format);
        (void)target->open(); // lastStatus() has the first step that failed
        check(target->lastStatus(), "cannot write", name);
        file_.number = open(name.c_str(), O_RDONLY | O_CLOEXEC);
        if (file_.number < 0)
            throw Failure{"cannot write " + name + ": " + systemErrorText(errno)};
    }
    ProgressBar bar;
    copyFrames(*source, frames, *target, "the decoded copy of " + recording, [&](double fraction) {
        endIfInterrupted();
        bar.show("decoding", fraction);
    });
}

DecodedCopy::Descriptor::~Descriptor()
{
    if (number >= 0)
        close(number);
}

std::string DecodedCopy::path() const
{
    return "/proc/self/fd/" + std::to_string(file_.number);
}

} // namespace example
