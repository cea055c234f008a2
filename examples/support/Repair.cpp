// SPDX-License-Identifier: MIT
#include "support/Repair.h"

#include "support/Failure.h"

#include <QMXCoreAudio/FileRelated/QMXAudioFile.h>
#include <QMXCoreAudio/Foundation/ByteFields.h>
#include <QMXCoreAudio/Tracks/Store/QMXAIFFUtility.h>
#include <QMXCoreAudio/qmx.h>

#include <array>
#include <limits>

namespace example
{
namespace
{

/// Sets the form's size to the file's. The library's own repair keeps an odd size odd, because a form may leave out the
/// last chunk's pad byte.
void setFormSize(const std::string& path)
{
    const auto file = qmx::FileHandle::fileHandleForUpdatingAtPath(path);
    if (!file)
        return;
    const qmx::FileLock lock = file->lock();
    const SInt64 size = file->seekToEndOfFile() - 8;
    if (size < 4 || size > std::numeric_limits<UInt32>::max())
        return;
    std::array<UInt8, 4> field{};
    qmx::store32(field.data(), static_cast<UInt32>(size), qmx::ByteOrder::big);
    file->seekToFileOffset(4);
    (void)file->writeData(field); // the caller checks the file afterwards
}

} // namespace

std::string repairRecording(const std::string& path)
{
    if (!valueOf(qmx::Format::of(path)).keepsTracks())
        throw Failure{path + ": only AIFF and AIFF-C files can be repaired"};
    if (QMXAIFFUtility::validateFileAtPath(path))
        return "nothing to repair";
    std::string done;
    if (QMXAIFFUtility::settleStoreInFileAtPath(path)) {
        done = "a store that was cut off was completed or taken back";
    } else {
        done = "the sizes were brought in line with the file's length";
        const auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::readWrite);
        if (file->open())        // corrects outdated sizes
            (void)file->close(); // the result is checked below
        if (!QMXAIFFUtility::validateFileAtPath(path))
            setFormSize(path);
    }
    if (!QMXAIFFUtility::validateFileAtPath(path))
        throw Failure{path + ": cannot be repaired"};
    return done;
}

} // namespace example
