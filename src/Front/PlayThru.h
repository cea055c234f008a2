// SPDX-License-Identifier: MIT
// Live sound from one device to another.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Devices.h>
#include <QMXCoreAudio/Front/Result.h>

#include <memory>
#include <optional>
#include <string>

class ComplexPlayThru;

namespace qmx
{

struct PlayThruOptions {
    /// The playback rate follows the two devices' clocks; without it the sound breaks off one day.
    bool driftCorrection = true;
    std::optional<float> volume = {}; ///< from 0 to 1; otherwise 1
};

/// Plays what an input captures on an output, two channels of it, until the handle is released. When a device is
/// unplugged its side is silent, and goes on when a device with its UID is there again. Any thread that may wait.
class QMX_EXPORT PlayThru
{
public:
    /// Starts both devices, or gives the reason why one does not start.
    static Result<PlayThru> start(const Device& input, const Device& output, const PlayThruOptions& options = {});
    PlayThru(PlayThru&& other) noexcept;
    PlayThru& operator=(PlayThru&& other) noexcept;
    ~PlayThru();

    /// Whether the output runs.
    bool isRunning() const;
    /// Seconds from capture to playback, without what the devices themselves need; 0 while the input is away.
    double latency() const;
    /// How often the output found nothing to play.
    unsigned long refusedFetches() const;
    /// Input frames per output frame at present.
    double rate() const;
    float volume() const;
    Result<void> setVolume(float volume);
    /// What failed since the start: nothing, or which device went away.
    std::optional<Error> failure() const;

    /// The described object behind it.
    ComplexPlayThru& object() const { return *object_; }

private:
    PlayThru(std::unique_ptr<ComplexPlayThru> object, Device input);
    std::unique_ptr<ComplexPlayThru> object_;
    mutable Device input_; ///< the latest object of it
    std::string inputUID_;
};

} // namespace qmx
