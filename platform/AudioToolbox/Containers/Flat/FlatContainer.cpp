// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Flat/FlatContainer.h"

#include <algorithm>
#include <limits>

namespace qmx
{
namespace
{

constexpr UInt64 blockBytes = 4096; // the header follows after this much was added

} // namespace

void FlatContainer::setAudio(UInt64 start, UInt64 limit)
{
    start_ = start;
    bytes_ = std::min(limit, file_.length() - std::min(file_.length(), start));
}

// If the disk refuses, the file is used all the same, and closing it tries again.
void FlatContainer::takeRest()
{
    const UInt64 stored = file_.length() - std::min(file_.length(), start_);
    const UInt64 whole = stored - stored % format_.mBytesPerFrame;
    if (whole <= bytes_)
        return;
    unwrittenBytes_ = whole - bytes_;
    bytes_ = whole;
    if (finish() == noErr && whole < stored)
        file_.truncate(start_ + whole);
}

OSStatus FlatContainer::readBytes(UInt64 start, UInt32& count, void* buffer)
{
    const UInt64 wanted = count;
    count = 0;
    if (start >= byteCount())
        return kAudioFileEndOfFileError;
    const Transfer done =
        file_.read(start_ + start, buffer, static_cast<std::size_t>(std::min(wanted, byteCount() - start)));
    count = static_cast<UInt32>(done.count);
    return statusForSystemError(done.error);
}

OSStatus FlatContainer::writeBytes(UInt64 start, UInt32& count, const void* buffer)
{
    constexpr auto largest = static_cast<UInt64>(std::numeric_limits<SInt64>::max());
    const UInt32 wanted = count;
    count = 0;
    if (start > largest - start_ - wanted)
        return kAudioFileDoesNotAllow64BitDataSizeError;
    // foreign bytes after the audio would show in a gap
    if (start > bytes_ && file_.length() > start_ + bytes_)
        if (const OSStatus status = file_.truncate(start_ + bytes_); status != noErr)
            return status;
    const Transfer done = file_.write(start_ + start, buffer, wanted);
    count = static_cast<UInt32>(done.count);
    if (done.count > 0 && start + done.count > bytes_) {
        unwrittenBytes_ += start + done.count - bytes_;
        bytes_ = start + done.count;
    }
    if (done.error != 0)
        return statusForSystemError(done.error);
    return unwrittenBytes_ >= blockBytes && !defersSizeUpdates() ? finish() : noErr;
}

OSStatus FlatContainer::finish()
{
    const OSStatus status = unwrittenBytes_ > 0 ? writeSize(bytes_) : noErr;
    if (status == noErr)
        unwrittenBytes_ = 0;
    return status;
}

} // namespace qmx
