// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/AudioUnit/AUGraph.h>
#include <QMXCoreAudio/CoreAudio/AudioHardware.h>
#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

class QMXAudioDevice;
class QMXAudioProcessor;
class QMXAudioStreamBasicDescription;
class QMXAudioTrackInfo;
class QMXSoftwareVolumeControl;
class QMXVUMeterData;

/// Sent by the player; each value is the constant's own name.
QMX_EXPORT extern const char* const QMXAudioPlayerFinishedPlayingNotification;
QMX_EXPORT extern const char* const QMXAudioPlayerStartedPlayingNotification;
QMX_EXPORT extern const char* const QMXAudioPlayerStoppedPlayingNotification;
QMX_EXPORT extern const char* const QMXAudioPlayerPlayedFrameNotification;

/// The most frames that the player's output unit renders at once.
QMX_EXPORT extern const UInt32 MAX_FRAMES_PER_SLICE_IN_PLAYER;

/// Plays a range of frames of an audio file on a device: a graph of one output unit, whose render callback takes
/// frames that were read ahead from the file, puts them through the volume and an optional processor, and keeps the
/// position. Positions are frames of the file. The unit converts to the device's rate.
///
/// By default playback runs past the end of a range by less than one slice, because the callback looks at the position
/// before the slice, and at the end of the file it goes on with silence, without a notification, until it is stopped.
/// Both as intended; setStopsAtEndOfFile and playTrack are the ways out. A disk that stalls for longer than two
/// seconds is heard as silence, which droppedFrames() counts; playback then goes on where it was.
///
/// Main thread, where nothing else is said. The last reference stops, without notifications. The factories alone make
/// players.
class QMX_EXPORT QMXAUAudioPlayer : public qmx::Object, public std::enable_shared_from_this<QMXAUAudioPlayer>
{
public:
    /// A player without a file, which has nothing to play yet. For a null device the player stays unset: it does
    /// nothing. Null only without memory.
    static std::shared_ptr<QMXAUAudioPlayer> initWithAudioDevice(const std::shared_ptr<QMXAudioDevice>& device);
    /// A player of a file. Whether the file could be opened and the graph built, lastStatus() tells.
    static std::shared_ptr<QMXAUAudioPlayer>
    initWithAudioDevice_pathToFile(const std::shared_ptr<QMXAudioDevice>& device, const std::string& path);
    /// The same on the device that is the default output now.
    static std::shared_ptr<QMXAUAudioPlayer> initWithPathToFile(const std::string& path);

    // --- Settings ----------------------------------------------------------------------------------------------------

    /// Turns to another file, at its first frame. What plays ends without a notification. Ignored for none.
    virtual void setAudioFilePath(const std::optional<std::string>& path) = 0;
    /// Stops, and turns to another device, at the file's first frame. Ignored for null, and for
    /// the current device unless the default one is followed.
    virtual void setOutputDevice(const std::shared_ptr<QMXAudioDevice>& device) = 0;
    virtual const std::shared_ptr<QMXAudioDevice>& outputDevice() const = 0;
    /// Linear gain, 1.0 at first. Any thread.
    virtual void setVolumeScalar(Float32 scalar) = 0;
    virtual Float32 volumeScalar() const = 0;
    /// Processes what plays, after the volume; null for none. Its `processAudio` is called on the render thread, its
    /// `reset` on the main thread. When this returns, the one before is no longer in use.
    virtual void setAudioProcessor(const std::shared_ptr<QMXAudioProcessor>& processor) = 0;

    /// Which notifications are posted, by bits: 1 finished; 2 started, then the meter's start; 4 stopped, then, where
    /// stop() or the unit by itself stopped, the meter's stop. 15 at first. Any thread.
    virtual void setEventMask(UInt32 mask) = 0;
    virtual UInt32 eventMask() const = 0;
    /// Every how many requests the played-frame notification is posted, starting with the first; 0 counts as 1. The
    /// player itself requests none. Any thread.
    virtual void setNotificationInterval(UInt32 interval) = 0;

    /// Whether playback stops at the end of the file, with the notifications of a range's end, after 4096 frames of
    /// silence, which give the rate conversion time to bring out the last frames. Off at first. Any thread.
    virtual void setStopsAtEndOfFile(bool stops) = 0;
    virtual bool stopsAtEndOfFile() const = 0;
    /// Whether the player plays on the default output and goes over to another device, within one buffer, when that
    /// becomes the default. Off at first. setOutputDevice ends it.
    virtual void setFollowsDefaultDevice(bool follows) = 0;
    virtual bool followsDefaultDevice() const = 0;

    // --- Control -----------------------------------------------------------------------------------------------------

    /// From the current frame to the end of the file.
    OSStatus play();
    /// From `frame` to the end of the file.
    OSStatus playFromFrame(SInt64 frame);
    /// Plays from frame `start` up to frame `end`, or to the file's end where that comes first. 0 without doing
    /// anything where `start` is not before `end`. The status of what failed when the graph was started; then the
    /// stopped notification is posted after the started ones.
    virtual OSStatus playFromFrame_endFrame(SInt64 start, SInt64 end) = 0;
    /// Plays the frames of a record and no other, and finishes as at a range's end, after 4096 frames of silence.
    OSStatus playTrack(const QMXAudioTrackInfo& track);
    /// 0, and nothing is posted, when it is not playing. Also on the render thread, where the slice that is being
    /// rendered becomes silence.
    virtual OSStatus stop() = 0;
    /// Goes to the first frame, which becomes the start of the range; what plays still ends at the end of the range.
    virtual void rewind() = 0;
    /// Also on the render thread.
    virtual bool isPlaying() const = 0;
    /// Goes to a frame of the file, also while it plays; returns when the first frames from there are ready. Nothing is
    /// done for the frame where it is.
    virtual void setCurrentFrameOffset(SInt64 frame) = 0;
    /// The next frame that is read. Any thread.
    virtual SInt64 currentFrameOffset() const = 0;

    // --- State -------------------------------------------------------------------------------------------------------

    /// Frames of the file.
    virtual SInt64 lengthInFrames() const = 0;
    /// Frames that the device asked for while they were not ready: heard as silence. Any thread.
    virtual UInt64 droppedFrames() const = 0;
    /// The status of what failed first in the last operation that can fail; 0 when nothing did.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people that names the file or device, empty when nothing failed.
    virtual std::string lastError() const = 0;
    virtual const std::shared_ptr<QMXVUMeterData>& meterData() const = 0; ///< not filled by playing

    /// Takes the file's length and goes to its start without seeking.
    virtual void updateFileInformation() = 0;
    /// Each takes a format, then updates the file's information.
    virtual void updateFileStreamFormat(const AudioStreamBasicDescription& format) = 0;
    virtual void updateDeviceStreamFormat(const AudioStreamBasicDescription& format) = 0;

    // --- The graph ---------------------------------------------------------------------------------------------------
    // Each reports every step that fails and goes on with the next; the result is the status of the last that failed.

    virtual OSStatus makeGraph() = 0;
    virtual OSStatus setupGraph() = 0;
    virtual OSStatus setOutputDeviceAsCurrent(AudioDeviceID device) = 0;
    virtual OSStatus setupAudioFormats() = 0;
    virtual OSStatus initializeGraph() = 0;
    virtual OSStatus destroyGraph() = 0;

    // --- What the player's threads do --------------------------------------------------------------------------------

    /// Puts frames through the volume and the processor. Render threads. Always 0; playing ends when the processor
    /// fails.
    virtual OSStatus processAudio_timeStamp_busNumber_numberOfFrames_data(AudioUnitRenderActionFlags* flags,
                                                                          const AudioTimeStamp* timeStamp,
                                                                          UInt32 busNumber, UInt32 numberOfFrames,
                                                                          AudioBufferList* data) = 0;
    /// Hands a notification to the main thread; the played-frame notification by its interval. Any thread.
    virtual void notifyCallback(std::string_view notificationName) = 0;
    /// Posts a notification from the player.
    virtual void threadCallback(const std::string& notificationName) = 0;
    /// Posts the meter data's notification, from them.
    static void threadCallback2(const std::shared_ptr<QMXVUMeterData>& meterData);

private:
    class Implementation;
    QMXAUAudioPlayer() = default;
    virtual OSStatus playExactly(SInt64 start, SInt64 end) = 0;
};
