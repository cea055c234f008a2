// SPDX-License-Identifier: MIT
#include "Recording/RecordingLosses.h"

#include <algorithm>

using Reason = QMXAudioRecordingLoss::Reason;

void RecordingLosses::add(Reason reason, UInt64 frame, UInt64 frames) noexcept
{
    droppedFrames_ += frames;
    if (reason == Reason::overrun)
        ++overruns_;
    if (count_ >= capacity)
        return;
    const std::size_t index = count_++;
    if (index >= capacity)
        return;
    entries_[index].loss = {reason, frame, frames, 0};
    entries_[index].isWritten.store(true, std::memory_order_release);
}

std::vector<QMXAudioRecordingLoss> RecordingLosses::entries(Float64 fileFramesPerFrame) const
{
    std::vector<QMXAudioRecordingLoss> losses;
    for (const Entry& entry : entries_)
        if (entry.isWritten.load(std::memory_order_acquire))
            losses.push_back(entry.loss);
    std::ranges::stable_sort(losses, {}, &QMXAudioRecordingLoss::frame);
    UInt64 missing = 0, lostUntil = 0; // frames lost before the current loss; the end of the last lost range
    for (QMXAudioRecordingLoss& loss : losses) {
        const UInt64 frame = std::max(loss.frame, lostUntil); // a loss inside a lost range is placed there
        loss.fileFrame = static_cast<UInt64>(static_cast<Float64>(frame - missing) * fileFramesPerFrame);
        if (loss.reason == Reason::timeGap)
            continue;
        lostUntil = std::max(frame, loss.frame + loss.frames);
        missing += lostUntil - frame;
    }
    return losses;
}
