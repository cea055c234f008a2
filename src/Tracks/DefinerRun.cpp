// SPDX-License-Identifier: MIT
#include "Tracks/DefinerRun.h"

#include "FileRelated/QMXAudioFile.h"
#include "Foundation/Text/Format.h"
#include "Tracks/QMXAudioTrackInfo.h"

#include <atomic>
#include <string_view>

namespace qmx::definerRun
{
namespace
{
std::atomic<bool> wasCancelled{false};
} // namespace

LastFailure& failure()
{
    static auto& failure = *new LastFailure; // never destroyed: a thread may still ask at the end of the process
    return failure;
}

void fail(OSStatus status, const QMXAudioFile& file, const char* what)
{
    const auto& path = file.path();
    failure().keepFirst(status, path ? std::string_view(*path) : std::string_view(), what);
}

void start() noexcept
{
    wasCancelled.store(false, std::memory_order_relaxed);
}

void cancel() noexcept
{
    wasCancelled.store(true, std::memory_order_relaxed);
}

bool isCancelled() noexcept
{
    return wasCancelled.load(std::memory_order_relaxed);
}

std::shared_ptr<QMXAudioTrackInfo> untitledTrack(std::size_t index, UInt64 begin, UInt64 end)
{
    auto track = std::make_shared<QMXAudioTrackInfo>();
    track->setTrackTitle(format("Untitled Track %d", static_cast<SInt32>(2 * index))); // intended: 0, 2, 4, ...
    track->setTrackBegin(static_cast<SInt64>(begin));
    track->setTrackEnd(static_cast<SInt64>(end));
    return track;
}

std::shared_ptr<QMXAudioFile> openedFile(const std::string& path)
{
    auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::read);
    if (!file)
        throw std::bad_alloc();
    file->setUseCache(false);
    if (!file->open())
        failure().keepFirstOf(*file);
    return file;
}

} // namespace qmx::definerRun
