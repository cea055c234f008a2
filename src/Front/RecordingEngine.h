// SPDX-License-Identifier: MIT
// The described recorder behind a Recorder. Internal to the front.
#pragma once

#include "Devices/QMXAudioDevice.h"
#include "Front/Format.h"
#include "Recording/QMXAUAudioRecorder.h"
#include "Recording/QMXAudioRecorder.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qmx
{

/// What to record, where to: checked and complete.
struct RecordingPlan {
    std::shared_ptr<QMXAudioDevice> device; ///< an object of the recording's own
    std::string path;
    Format format;
    std::vector<SInt32> channels; ///< of the device, counted from 0
    bool replaces = false;
};

/// Main thread. Releasing it ends the recording.
class RecordingEngine
{
public:
    virtual ~RecordingEngine() = default;

    /// Starts, or goes on after a pause.
    virtual Result<void> start() = 0;
    virtual Result<void> pause() = 0;
    /// Writes what waits and closes the file; the reason if something of what was captured cannot be written.
    virtual std::optional<Error> stop() = 0;
    /// Goes on with another object for a device that has come back.
    virtual Result<void> goOnWith(std::shared_ptr<QMXAudioDevice> device) = 0;

    /// What failed first; none while all is well.
    virtual std::optional<Error> failure() const = 0;
    /// Frames captured so far, at the rate that the device had at the start.
    virtual SInt64 capturedFrames() const = 0;
    virtual UInt64 lostFrames() const = 0;
    /// What was lost, for people; empty if nothing was.
    virtual std::string lossText() const = 0;
    virtual bool isRunning() const = 0;
    /// The sender of QMXAudioRecorderFailedNotification, and of a unit's QMXAudioRecorderStoppedRecordingNotification.
    virtual std::shared_ptr<Object> sender() const = 0;
    virtual std::shared_ptr<QMXAudioRecorder> deviceRecorder() const { return nullptr; }
    virtual std::shared_ptr<QMXAUAudioRecorder> unitRecorder() const { return nullptr; }

    using Made = Result<std::unique_ptr<RecordingEngine>>;
    /// For uncompressed samples of the device's only input stream: with buffers for a disk that stalls for seconds, and
    /// a list of what was lost. The file is made when it starts.
    static Made onDevice(const RecordingPlan& plan);
    /// For everything else: any coding, chosen channels, and devices that go and come back.
    static Made onUnit(const RecordingPlan& plan);
};

} // namespace qmx
