// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/ContainerFile.h"

#include "AudioToolbox/AudioFile.h"
#include "Foundation/Memory.h"

#include <algorithm>

namespace qmx
{
namespace
{

constexpr UInt64 largestGroup = 4096; // bytes between the first and the last of patches written at once
constexpr std::size_t copyBlock = std::size_t{1} << 18;

UInt64 endOf(const Patch& patch)
{
    return patch.position + patch.bytes.size();
}

} // namespace

OSStatus ContainerFile::refreshLength(bool& changed)
{
    std::int64_t size = 0;
    if (const SystemError error = file_->size(size); error != 0)
        return statusForSystemError(error);
    changed = static_cast<UInt64>(size) != length_;
    length_ = static_cast<UInt64>(size);
    return noErr;
}

Transfer ContainerFile::read(UInt64 position, void* data, std::size_t size)
{
    return file_->read(data, size, static_cast<std::int64_t>(position));
}

OSStatus ContainerFile::readAll(UInt64 position, std::span<UInt8> bytes)
{
    const Transfer done = read(position, bytes.data(), bytes.size());
    if (done.error != 0)
        return statusForSystemError(done.error);
    return done.count == bytes.size() ? noErr : kAudioFileInvalidFileError;
}

Transfer ContainerFile::write(UInt64 position, const void* data, std::size_t size)
{
    const Transfer done = file_->write(data, size, static_cast<std::int64_t>(position));
    if (done.count > 0)
        length_ = std::max(length_, position + done.count);
    return done;
}

OSStatus ContainerFile::writeAll(UInt64 position, std::span<const UInt8> bytes)
{
    return statusForSystemError(write(position, bytes.data(), bytes.size()).error);
}

OSStatus ContainerFile::replace(UInt64 position, std::span<const UInt8> bytes)
{
    return withinMemory(memFullErr, [&] {
        Bytes old(bytes.size());
        if (const OSStatus status = readAll(position, old); status != noErr)
            return status;
        const OSStatus status = writeAll(position, bytes);
        if (status != noErr)
            (void)writeAll(position, old); // as far as the disk lets us
        return status;
    });
}

OSStatus ContainerFile::applyGroup(std::span<const Patch> patches)
{
    const UInt64 start = patches.front().position;
    Bytes old(endOf(patches.back()) - start);
    if (const OSStatus status = readAll(start, old); status != noErr)
        return status;
    Bytes bytes = old;
    for (const Patch& patch : patches)
        std::ranges::copy(patch.bytes, bytes.begin() + static_cast<std::ptrdiff_t>(patch.position - start));
    return bytes == old ? noErr : replace(start, bytes);
}

OSStatus ContainerFile::apply(std::vector<Patch> patches)
{
    std::ranges::sort(patches, {}, &Patch::position);
    auto first = patches.begin();
    while (first != patches.end()) {
        const auto last = std::find_if(
            first, patches.end(), [&](const Patch& patch) { return endOf(patch) - first->position > largestGroup; });
        if (const OSStatus status = applyGroup({first, last}); status != noErr)
            return status;
        first = last;
    }
    return noErr;
}

OSStatus ContainerFile::copy(UInt64 from, UInt64 to, UInt64 count)
{
    Bytes block(static_cast<std::size_t>(std::min<UInt64>(count, copyBlock)));
    for (UInt64 done = 0; done < count; done += block.size()) {
        block.resize(static_cast<std::size_t>(std::min<UInt64>(count - done, block.size())));
        if (const OSStatus status = readAll(from + done, block); status != noErr)
            return status;
        if (const OSStatus status = writeAll(to + done, block); status != noErr)
            return status;
    }
    return noErr;
}

OSStatus ContainerFile::truncate(UInt64 length)
{
    if (const SystemError error = file_->truncate(static_cast<std::int64_t>(length)); error != 0)
        return statusForSystemError(error);
    length_ = length;
    return noErr;
}

} // namespace qmx
