// SPDX-License-Identifier: MIT
#pragma once

#include "Recording/QMXAudioRecordingLoss.h"

#include <array>
#include <atomic>
#include <vector>

/// Notes what a recording loses: without a lock or an allocation, from several threads. Room for a fixed number of
/// entries; the sums count further losses too.
class RecordingLosses
{
public:
    void add(QMXAudioRecordingLoss::Reason reason, UInt64 frame, UInt64 frames) noexcept;

    UInt64 droppedFrames() const { return droppedFrames_; }
    UInt32 overruns() const { return overruns_; }
    /// In the order of their frames, with their places in the file; `fileFramesPerFrame` is the file's rate divided by
    /// the recorded rate.
    std::vector<QMXAudioRecordingLoss> entries(Float64 fileFramesPerFrame) const;

private:
    struct Entry {
        QMXAudioRecordingLoss loss;
        std::atomic<bool> isWritten{false};
    };
    static constexpr std::size_t capacity = 1024;

    std::array<Entry, capacity> entries_;
    std::atomic<std::size_t> count_{0};
    std::atomic<UInt64> droppedFrames_{0};
    std::atomic<UInt32> overruns_{0};
};
