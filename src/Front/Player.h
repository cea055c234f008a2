// SPDX-License-Identifier: MIT
// Playing an audio file on a device.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Devices.h>
#include <QMXCoreAudio/Front/Meter.h>
#include <QMXCoreAudio/Front/Result.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QMXAUAudioPlayer;
class QMXAudioTrackInfo;

namespace qmx
{

struct PlayerOptions {
    /// Without a device, the default output, also when another one becomes that.
    std::optional<Device> device = {};
    float volume = 1;              ///< linear gain
    SInt64 from = 0;               ///< a frame of the file
    std::optional<SInt64> to = {}; ///< the first frame that is not played; otherwise the file's end
    bool loop = false;             ///< again and again
    bool meters = false;           ///< measures levels
};

/// Plays a range of a file to the frame, until its end, stop(), or the handle's end. Positions are frames of the file.
/// Main thread.
class QMX_EXPORT Player
{
public:
    /// Starts to play. An error that names the file or device if it cannot be.
    static Result<Player> play(const std::string& path, const PlayerOptions& options = {});
    /// Plays a track of the file: its bounds take the place of those of the options.
    static Result<Player> play(const std::string& path, const QMXAudioTrackInfo& track, PlayerOptions options = {});
    Player(Player&& other) noexcept;
    Player& operator=(Player&& other) noexcept;
    /// Stops, without a call of onEnd's function.
    ~Player();

    /// Calls `callback` once on the main thread's run loop when the playing has ended: without an error at the range's
    /// end, cancelled after stop(), otherwise with the reason (the device was unplugged, the file cannot be read).
    void onEnd(std::function<void(const Result<void>& how)> callback);

    Result<void> pause();
    Result<void> resume();
    void stop();

    bool isPaused() const;
    bool hasEnded() const;
    /// The next frame that is read.
    SInt64 position() const;
    /// Goes to a frame of the range, the nearest one if it lies outside.
    void seek(SInt64 frame);
    /// The frames that are played: the first, and the one after the last.
    SInt64 from() const;
    SInt64 to() const;
    Float64 sampleRate() const; ///< of the file

    float volume() const;
    void setVolume(float volume);
    /// Frames that were not read in time and were heard as silence.
    UInt64 dropped() const;
    /// The levels since the last call of what was played, after the volume; empty without `meters`.
    std::vector<ChannelLevels> levels();

    /// The described object behind it.
    const std::shared_ptr<QMXAUAudioPlayer>& object() const;

private:
    struct Implementation;
    explicit Player(std::shared_ptr<Implementation> implementation);
    std::shared_ptr<Implementation> implementation_;
};

} // namespace qmx
