// SPDX-License-Identifier: MIT
// Recording from a device into a file.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Devices.h>
#include <QMXCoreAudio/Front/Format.h>
#include <QMXCoreAudio/Front/Meter.h>
#include <QMXCoreAudio/Front/Result.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QMXAudioRecorder;
class QMXAUAudioRecorder;

namespace qmx
{

/// What a recording does when its device is unplugged.
enum class WhenUnplugged {
    end, ///< it ends; what was captured is in the file
    wait ///< it waits for a device with the same UID, and goes on there; the time between is not in the file
};

struct RecorderOptions {
    bool replace = false; ///< an existing file is replaced once the recording has started
    /// The file's; the path's extension says the type if this does not. What it leaves open is the device's.
    std::optional<Format> format = {};
    /// Which channels of the device, counted from 1; empty for all (of those that are compressed, the first two).
    std::vector<UInt32> channels = {};
    WhenUnplugged whenUnplugged = WhenUnplugged::end;
    std::optional<double> seconds = {}; ///< ends by itself after that time, pauses included
    double startTimeout = 5; ///< seconds; a device that has not delivered anything by then ends the recording
    bool meters = false;     ///< measures levels
};

/// What a recording has brought.
struct RecordingSummary {
    SInt64 frames = 0; ///< of the file
    UInt64 lost = 0;   ///< frames that the device captured, or should have, and that are not in the file
    std::string path;
    /// How much was lost, where first and why, for people; empty if nothing was.
    std::string loss = {};
};

/// One recording into one file, which is valid at every moment. It ends with stop(), with the handle, or by itself.
/// Main thread.
///
/// Uncompressed samples are recorded by a QMXAudioRecorder: a disk may stall for about ten seconds (of stereo at 48000
/// Hz) before something is lost. Compressed codings, chosen channels, devices with several input streams and recordings
/// that wait for their device are a QMXAUAudioRecorder's, which can do all this: there a disk may stall for four
/// seconds.
class QMX_EXPORT Recorder
{
public:
    /// Starts to record. An existing file is refused (dupFNErr) before anything is touched, unless it may be replaced;
    /// where the recording does not start there is no new file.
    static Result<Recorder> start(const Device& device, const std::string& path, const RecorderOptions& options = {});
    Recorder(Recorder&& other) noexcept;
    Recorder& operator=(Recorder&& other) noexcept;
    /// Ends the recording as stop() does, without a call of onEnd's function.
    ~Recorder();

    /// Calls `callback` once on the main thread's run loop when the recording has ended and the file is closed.
    /// `why.isCancelled()` where the program ended it, by stop() or its duration; otherwise the reason: the device was
    /// unplugged, delivered nothing, stopped by itself or (where samples are not converted) changed its rate, the disk
    /// is full. What fitted until then is in the file; a recording that failed before its first frame leaves none.
    void onEnd(std::function<void(const Error& why)> callback);

    Result<void> pause();
    Result<void> resume();
    /// Ends the recording: writes what waits, however long the disk takes, and closes the file. Once it has ended by
    /// itself, the reason of that.
    Result<RecordingSummary> stop();

    /// Neither paused nor at its end. Also while it waits for its device.
    bool isRecording() const;
    bool hasEnded() const;
    /// What was captured so far, in seconds of the device's time.
    double seconds() const;
    /// What was captured and lost so far; after the end, of the closed file.
    RecordingSummary summary() const;
    /// The levels since the last call, one entry for each channel of the device; empty without `meters`.
    std::vector<ChannelLevels> levels();

    /// The described objects behind it: one of them is null. The device recorder lists what was lost where.
    /// They know a file that has replaced another one by the hidden name that it had until then.
    std::shared_ptr<QMXAudioRecorder> object() const;
    std::shared_ptr<QMXAUAudioRecorder> unitObject() const;

private:
    struct Implementation;
    explicit Recorder(std::shared_ptr<Implementation> implementation);
    std::shared_ptr<Implementation> implementation_;
};

} // namespace qmx
