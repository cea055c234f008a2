// SPDX-License-Identifier: MIT
#include "Playback/QMXAUAudioPlayer.h"

#include "Devices/NotificationSenders.h"
#include "Devices/QMXAudioDevice.h"
#include "Devices/QMXVUMeterData.h"
#include "Devices/QMXVUMeterDataProvider.h"
#include "FileRelated/QMXExtAudioFile.h"
#include "Formats/LastFailure.h"
#include "Formats/QMXAudioBufferList.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/StepStatus.h"
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"
#include "Foundation/Text/FailureLine.h"
#include "Foundation/Threads/Publication.h"
#include "Foundation/Threads/Retirement.h"
#include "Playback/PlayPosition.h"
#include "Processing/QMXAudioProcessor.h"
#include "Processing/QMXSoftwareVolumeControl.h"
#include "Tracks/QMXAudioTrackInfo.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <utility>

const char* const QMXAudioPlayerFinishedPlayingNotification = "QMXAudioPlayerFinishedPlayingNotification";
const char* const QMXAudioPlayerStartedPlayingNotification = "QMXAudioPlayerStartedPlayingNotification";
const char* const QMXAudioPlayerStoppedPlayingNotification = "QMXAudioPlayerStoppedPlayingNotification";
const char* const QMXAudioPlayerPlayedFrameNotification = "QMXAudioPlayerPlayedFrameNotification";

const UInt32 MAX_FRAMES_PER_SLICE_IN_PLAYER = 4096;

namespace
{

using qmx::keepLast;

constexpr qmx::FailureLine report("QMXAUAudioPlayer", "coreaudio_aac/src/QMXAUAudioPlayer");

/// Bits of the event mask.
constexpr UInt32 finishedBit = 1, startedBit = 2, stoppedBit = 4;

/// Silence after the last frame of a file or track, in which the rate conversion brings out what it holds.
constexpr UInt32 tailFrames = 4096;

constexpr SInt64 noEnd = std::numeric_limits<SInt64>::max();

constexpr ComponentDescription defaultOutput{kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput,
                                             kAudioUnitManufacturer_Apple};

constexpr const char* cannotOpen = "could not be opened";
constexpr const char* cannotPlay = "could not be prepared for playing";

struct Processor {
    std::shared_ptr<QMXAudioProcessor> processor;
};

} // namespace

class QMXAUAudioPlayer::Implementation final : public QMXAUAudioPlayer, private qmx::Retirable
{
public:
    static std::shared_ptr<Implementation> make(const std::shared_ptr<QMXAudioDevice>& device);
    ~Implementation() override;
    void open(const std::string& path);

    void setAudioFilePath(const std::optional<std::string>& path) override;
    void setOutputDevice(const std::shared_ptr<QMXAudioDevice>& device) override;
    const std::shared_ptr<QMXAudioDevice>& outputDevice() const override { return mOutputDevice; }
    void setVolumeScalar(Float32 scalar) override;
    Float32 volumeScalar() const override { return mVolumeControl ? mVolumeControl->volumeScalar() : 0; }
    void setAudioProcessor(const std::shared_ptr<QMXAudioProcessor>& processor) override;
    void setEventMask(UInt32 mask) override { mPlaybackInfo.mEventMask = mask; }
    UInt32 eventMask() const override { return mPlaybackInfo.mEventMask; }
    void setNotificationInterval(UInt32 interval) override { senders_->setInterval(interval); }
    void setStopsAtEndOfFile(bool stops) override { stopsAtEndOfFile_ = stops; }
    bool stopsAtEndOfFile() const override { return stopsAtEndOfFile_; }
    void setFollowsDefaultDevice(bool follows) override;
    bool followsDefaultDevice() const override { return followsDefaultDevice_; }

    OSStatus playFromFrame_endFrame(SInt64 start, SInt64 end) override { return playRange(start, end, noEnd); }
    OSStatus stop() override;
    void rewind() override;
    bool isPlaying() const override;
    void setCurrentFrameOffset(SInt64 frame) override;
    SInt64 currentFrameOffset() const override { return mPlaybackInfo.mSampleTime.frame(); }

    SInt64 lengthInFrames() const override { return mFileLengthInFrames; }
    UInt64 droppedFrames() const override { return droppedFrames_; }
    OSStatus lastStatus() const override;
    std::string lastError() const override;
    const std::shared_ptr<QMXVUMeterData>& meterData() const override { return mMeterData; }

    void updateFileInformation() override;
    void updateFileStreamFormat(const AudioStreamBasicDescription& format) override;
    void updateDeviceStreamFormat(const AudioStreamBasicDescription& format) override;

    OSStatus makeGraph() override;
    OSStatus setupGraph() override;
    OSStatus setOutputDeviceAsCurrent(AudioDeviceID device) override;
    OSStatus setupAudioFormats() override;
    OSStatus initializeGraph() override;
    OSStatus destroyGraph() override;

    OSStatus processAudio_timeStamp_busNumber_numberOfFrames_data(AudioUnitRenderActionFlags* flags,
                                                                  const AudioTimeStamp* timeStamp, UInt32 busNumber,
                                                                  UInt32 numberOfFrames,
                                                                  AudioBufferList* data) override;
    void notifyCallback(std::string_view notificationName) override { senders_->send(notificationName); }
    void threadCallback(const std::string& notificationName) override;

private:
    /// What the render callback follows.
    struct PlaybackInfo {
        std::atomic<ExtAudioFileRef> mExtAudioFile{nullptr};
        PlayPosition mSampleTime;                  ///< the next frame that is read
        SInt64 mPreviousSampleTime = 0;            ///< reset only
        std::atomic<SInt64> mPlayInSampleTime{0};  ///< the range's start
        std::atomic<SInt64> mPlayOutSampleTime{0}; ///< and its end
        Implementation* mAUAudioPlayer = nullptr;
        std::atomic<bool> mHasBeenStopped{true};
        std::atomic<UInt32> mEventMask{15};
        std::atomic<SInt64> exactEnd{noEnd};     ///< nothing is read from there on
        std::atomic<UInt32> framesOfTail{0};     ///< silent ones since the end
        std::atomic<OSStatus> readStatus{noErr}; ///< of the read that failed last
    };
    static void destroy(Implementation* player) { qmx::destroyOutsideCallbacks(player); }
    void takeDevice(const std::shared_ptr<QMXAudioDevice>& device);
    bool canTake(const std::string& path);
    void closeFile();
    void rebuild();
    void takeFileFormat();
    void seekFile(SInt64 frame);
    void moveTo(SInt64 frame, bool movesFile);
    void resetProcessor();
    void dropHeldSound();
    OSStatus nameDevice(AudioDeviceID device);
    OSStatus playRange(SInt64 start, SInt64 end, SInt64 exactEnd);
    OSStatus playExactly(SInt64 start, SInt64 end) override { return playRange(start, end, end); }
    bool has(UInt32 bit) const { return (mPlaybackInfo.mEventMask & bit) != 0; }
    void finish(UInt32 generation);
    void unitRunningDidChange();
    OSStatus reported(OSStatus status, const char* what, unsigned line = __builtin_LINE());
    std::string deviceName() const;

    // the render thread
    static OSStatus FileReadProc(void* info, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* timeStamp,
                                 UInt32 busNumber, UInt32 numberFrames, AudioBufferList* data);
    static void runningDidChange(void* self, AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                                 AudioUnitElement element);
    struct Slice {
        UInt32 frames = 0;
        SInt64 before = 0; ///< the position
        UInt32 generation = 0;
        bool isLast = false;    ///< the position had reached the range's end
        bool isPastEnd = false; ///< nothing follows
        OSStatus status = noErr;
    };
    Slice readSlice(UInt32 frames, AudioBufferList& data);
    OSStatus process(AudioBufferList& data, UInt32 frames);
    bool isAtEnd(const Slice& slice, ExtAudioFileRef file) const;
    void playTail(UInt32 frames, UInt32 generation);

    std::shared_ptr<QMXAudioDevice> mOutputDevice;
    std::shared_ptr<QMXExtAudioFile> mInputAudioFile;
    std::shared_ptr<QMXSoftwareVolumeControl> mVolumeControl;
    std::atomic<const Processor*> mAudioProcessor{nullptr};
    std::shared_ptr<QMXVUMeterData> mMeterData;
    PlaybackInfo mPlaybackInfo;
    AudioStreamBasicDescription mDeviceStreamFormat;
    AudioStreamBasicDescription mFileStreamFormat;
    std::atomic<SInt64> mFileLengthInFrames{0};
    std::atomic<bool> mShouldProvideData{false};
    AudioStreamBasicDescription mAUInternalFormat;
    AUGraph mGraph = nullptr;
    AudioUnit mOutputUnit = nullptr;
    AUNode mOutputNode = 0;
    AudioBufferList* mXferBuffer = nullptr; ///< never allocated
    bool mIsInitializeable = false;

    qmx::Publication renders_;                   ///< read the file and the processor
    std::optional<NotificationSenders> senders_; ///< the notifications, their count and interval
    std::atomic<bool> stopsAtEndOfFile_{false};
    bool followsDefaultDevice_ = false;
    std::atomic<bool> isDown_{false}; ///< the unit stopped by itself
    std::atomic<UInt64> droppedFrames_{0};
    qmx::LastFailure failure_;
};

// --- Life ------------------------------------------------------------------------------------------------------------

std::shared_ptr<QMXAUAudioPlayer::Implementation>
QMXAUAudioPlayer::Implementation::make(const std::shared_ptr<QMXAudioDevice>& device)
{
    std::shared_ptr<Implementation> player;
    (void)qmx::withinMemory([&] { // else there is no player
        std::shared_ptr<Implementation> made(new Implementation, destroy);
        made->senders_.emplace(made,
                               std::initializer_list<const char*>{
                                   QMXAudioPlayerFinishedPlayingNotification, QMXAudioPlayerStartedPlayingNotification,
                                   QMXAudioPlayerStoppedPlayingNotification, QMXVUMeterDataProviderDidStartNotification,
                                   QMXVUMeterDataProviderDidStopNotification},
                               QMXAudioPlayerPlayedFrameNotification, [](const auto& sender, const std::string& name) {
                                   static_cast<Implementation&>(*sender).threadCallback(name);
                               });
        if (device)
            made->takeDevice(device);
        player = std::move(made);
    });
    return player;
}

void QMXAUAudioPlayer::Implementation::takeDevice(const std::shared_ptr<QMXAudioDevice>& device)
{
    mPlaybackInfo.mAUAudioPlayer = this;
    mOutputDevice = device;
    if (!mVolumeControl)
        mVolumeControl = QMXSoftwareVolumeControl::init();
    if (!mMeterData)
        mMeterData = QMXVUMeterData::init();
    const auto format = device->actualStreamFormat_isInput(0, false);
    updateDeviceStreamFormat(format ? *format->audioStreamBasicDescription() : AudioStreamBasicDescription{});
}

QMXAUAudioPlayer::Implementation::~Implementation()
{
    mPlaybackInfo.mEventMask = 0; // nobody is left to be told
    (void)stop();
    if (mIsInitializeable)
        destroyGraph();
    mOutputDevice.reset();
    closeFile();
    if (!mXferBuffer) // intended: the test is the wrong way round, and null is ignored
        QMXAudioBufferList::destroyBuffers(mXferBuffer);
    delete mAudioProcessor.load();
}

std::shared_ptr<QMXAUAudioPlayer> QMXAUAudioPlayer::initWithAudioDevice(const std::shared_ptr<QMXAudioDevice>& device)
{
    return Implementation::make(device);
}

std::shared_ptr<QMXAUAudioPlayer>
QMXAUAudioPlayer::initWithAudioDevice_pathToFile(const std::shared_ptr<QMXAudioDevice>& device, const std::string& path)
{
    auto player = Implementation::make(device);
    if (player)
        player->open(path);
    return player;
}

std::shared_ptr<QMXAUAudioPlayer> QMXAUAudioPlayer::initWithPathToFile(const std::string& path)
{
    return initWithAudioDevice_pathToFile(QMXAudioDevice::defaultOutputDevice(), path);
}

// --- File and device -------------------------------------------------------------------------------------------------

void QMXAUAudioPlayer::Implementation::open(const std::string& path)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (!canTake(path))
        return;
    mInputAudioFile = QMXExtAudioFile::initForReading(path);
    if (!mInputAudioFile) {
        failure_.keepFirst(kAudio_MemFullError, path, cannotOpen);
        return;
    }
    (void)mInputAudioFile->open(); // the file tells
    failure_.keepFirstOf(*mInputAudioFile);
    updateFileStreamFormat(*mInputAudioFile->fileStreamFormat());
    rebuild();
}

/// An unset player takes no file.
bool QMXAUAudioPlayer::Implementation::canTake(const std::string& path)
{
    if (!mOutputDevice) {
        const std::string missing = qmx::audioBackendFailure();
        failure_.keepFirst(kAudioHardwareBadDeviceError, path, "cannot be played",
                           missing.empty() ? "there is no output device" : missing);
    }
    return mOutputDevice != nullptr;
}

void QMXAUAudioPlayer::Implementation::setAudioFilePath(const std::optional<std::string>& path)
{
    if (!path)
        return;
    const qmx::LastFailure::Operation operation(failure_);
    if (!canTake(*path))
        return;
    mPlaybackInfo.mHasBeenStopped = true; // what plays ends without a notification, before its file is gone
    if (mGraph)
        reported(AUGraphStop(mGraph), "could not be stopped");
    closeFile();
    mInputAudioFile = QMXExtAudioFile::initForReading_clientFormat(*path, &mAUInternalFormat);
    if (!mInputAudioFile) {
        failure_.keepFirst(kAudio_MemFullError, *path, cannotOpen);
        return;
    }
    (void)mInputAudioFile->open(); // the file tells
    failure_.keepFirstOf(*mInputAudioFile);
    updateFileStreamFormat(*mInputAudioFile->fileStreamFormat());
    rebuild();
    setCurrentFrameOffset(0);
}

/// The render thread reads it no more when it is closed.
void QMXAUAudioPlayer::Implementation::closeFile()
{
    mPlaybackInfo.mExtAudioFile = nullptr;
    renders_.waitForReaders();
    if (mInputAudioFile)
        (void)mInputAudioFile->close(); // nothing was written to it
    mInputAudioFile.reset();
    mPlaybackInfo.readStatus = noErr; // was that file's
}

void QMXAUAudioPlayer::Implementation::setOutputDevice(const std::shared_ptr<QMXAudioDevice>& device)
{
    if (!device || (device == mOutputDevice && !followsDefaultDevice_))
        return;
    const qmx::LastFailure::Operation operation(failure_);
    (void)stop(); // reported
    followsDefaultDevice_ = false;
    takeDevice(device);
    rebuild();
}

void QMXAUAudioPlayer::Implementation::setFollowsDefaultDevice(bool follows)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (std::exchange(followsDefaultDevice_, follows) != follows && mOutputDevice && mOutputUnit)
        (void)nameDevice(mOutputDevice->deviceID()); // reported
}

/// A new graph, and the file in the format that its unit takes.
void QMXAUAudioPlayer::Implementation::rebuild()
{
    if (std::exchange(mIsInitializeable, true))
        destroyGraph();
    initializeGraph();
    takeFileFormat();
}

void QMXAUAudioPlayer::Implementation::takeFileFormat()
{
    if (!mInputAudioFile || !mInputAudioFile->isOpen())
        return;
    (void)mInputAudioFile->setClientStreamFormat(mAUInternalFormat); // the file tells
    failure_.keepFirstOf(*mInputAudioFile);
    UInt32 none = 0; // from now on it is read ahead
    reported(ExtAudioFileRead(mInputAudioFile->extAudioFileRef(), &none, nullptr), "could not be read ahead");
}

void QMXAUAudioPlayer::Implementation::updateFileInformation()
{
    mFileLengthInFrames = mInputAudioFile ? mInputAudioFile->lengthInFrames() : 0;
    mPlaybackInfo.mExtAudioFile = mInputAudioFile ? mInputAudioFile->extAudioFileRef() : nullptr;
    {
        const auto turn = mPlaybackInfo.mSampleTime.turnOfSeek();
        mPlaybackInfo.mSampleTime.moveTo(0);
    }
    mPlaybackInfo.mPreviousSampleTime = 0;
    mPlaybackInfo.mPlayInSampleTime = 0;
    mPlaybackInfo.mPlayOutSampleTime = 0;
}

void QMXAUAudioPlayer::Implementation::updateFileStreamFormat(const AudioStreamBasicDescription& format)
{
    mFileStreamFormat = format;
    updateFileInformation();
}

void QMXAUAudioPlayer::Implementation::updateDeviceStreamFormat(const AudioStreamBasicDescription& format)
{
    mDeviceStreamFormat = format;
    updateFileInformation();
}

// --- Settings --------------------------------------------------------------------------------------------------------

void QMXAUAudioPlayer::Implementation::setVolumeScalar(Float32 scalar)
{
    if (mVolumeControl)
        mVolumeControl->setVolumeScalar(scalar);
}

void QMXAUAudioPlayer::Implementation::setAudioProcessor(const std::shared_ptr<QMXAudioProcessor>& processor)
{
    auto next = processor ? std::make_unique<const Processor>(Processor{processor}) : nullptr;
    renders_.replaceAndWait(mAudioProcessor, std::move(next));
}

void QMXAUAudioPlayer::Implementation::resetProcessor()
{
    if (const Processor* const used = mAudioProcessor.load())
        used->processor->reset();
}

// --- The graph -------------------------------------------------------------------------------------------------------

/// Reports a failing step; on a real-time thread the line alone tells.
OSStatus QMXAUAudioPlayer::Implementation::reported(OSStatus status, const char* what, unsigned line)
{
    report(status, line);
    if (status != noErr && !qmx::isRealTime())
        failure_.keepFirst(status, deviceName(), what);
    return status;
}

std::string QMXAUAudioPlayer::Implementation::deviceName() const
{
    return mOutputDevice ? mOutputDevice->name().value_or("The device") : "The device";
}

OSStatus QMXAUAudioPlayer::Implementation::makeGraph()
{
    OSStatus status = noErr;
    keepLast(status, reported(AUGraphNewNode(mGraph, &defaultOutput, 0, nullptr, &mOutputNode), cannotPlay));
    keepLast(status,
             reported(AUGraphGetNodeInfo(mGraph, mOutputNode, nullptr, nullptr, nullptr, &mOutputUnit), cannotPlay));
    keepLast(status, reported(AUGraphUpdate(mGraph, nullptr), cannotPlay));
    return status;
}

OSStatus QMXAUAudioPlayer::Implementation::setupGraph()
{
    OSStatus status = noErr;
    keepLast(status, reported(NewAUGraph(&mGraph), cannotPlay));
    keepLast(status, reported(AUGraphOpen(mGraph), cannotPlay));
    keepLast(status, makeGraph());
    keepLast(status, setOutputDeviceAsCurrent(mOutputDevice ? mOutputDevice->deviceID() : kAudioDeviceUnknown));
    const AURenderCallbackStruct callback{FileReadProc, &mPlaybackInfo};
    keepLast(status, reported(AudioUnitSetProperty(mOutputUnit, kAudioUnitProperty_SetRenderCallback,
                                                   kAudioUnitScope_Input, 0, &callback, sizeof callback),
                              cannotPlay));
    keepLast(status, reported(AudioUnitAddPropertyListener(mOutputUnit, kAudioOutputUnitProperty_IsRunning,
                                                           runningDidChange, this),
                              cannotPlay));
    keepLast(status, reported(AUGraphUpdate(mGraph, nullptr), cannotPlay));
    return status;
}

OSStatus QMXAUAudioPlayer::Implementation::setOutputDeviceAsCurrent(AudioDeviceID device)
{
    return nameDevice(device);
}

/// The default one where that is followed.
OSStatus QMXAUAudioPlayer::Implementation::nameDevice(AudioDeviceID device)
{
    const AudioDeviceID named = followsDefaultDevice_ ? kAudioDeviceUnknown : device;
    return reported(AudioUnitSetProperty(mOutputUnit, kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, 0,
                                         &named, sizeof named),
                    cannotPlay);
}

/// The unit takes frames at the file's rate and alone resamples them, so that all positions are frames of the file.
OSStatus QMXAUAudioPlayer::Implementation::setupAudioFormats()
{
    OSStatus status = noErr;
    const Float64 rate = mFileStreamFormat.mSampleRate;
    if (rate > 0)
        keepLast(status, reported(AudioUnitSetProperty(mOutputUnit, kAudioUnitProperty_SampleRate,
                                                       kAudioUnitScope_Input, 0, &rate, sizeof rate),
                                  cannotPlay));
    UInt32 size = sizeof mAUInternalFormat;
    keepLast(status, reported(AudioUnitGetProperty(mOutputUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                                   0, &mAUInternalFormat, &size),
                              cannotPlay));
    keepLast(status, reported(AudioUnitSetProperty(mOutputUnit, kAudioUnitProperty_MaximumFramesPerSlice,
                                                   kAudioUnitScope_Global, 0, &MAX_FRAMES_PER_SLICE_IN_PLAYER,
                                                   sizeof MAX_FRAMES_PER_SLICE_IN_PLAYER),
                              cannotPlay));
    return status;
}

OSStatus QMXAUAudioPlayer::Implementation::initializeGraph()
{
    OSStatus status = noErr;
    keepLast(status, setupGraph());
    keepLast(status, setupAudioFormats());
    keepLast(status, reported(AUGraphInitialize(mGraph), cannotPlay));
    return status;
}

OSStatus QMXAUAudioPlayer::Implementation::destroyGraph()
{
    constexpr const char* cannotEnd = "could not be given up";
    OSStatus status = noErr;
    mPlaybackInfo.mHasBeenStopped = true; // the listener is not to tell of this
    keepLast(status, reported(AUGraphStop(mGraph), cannotEnd));
    if (mOutputUnit)
        keepLast(status, reported(AudioUnitRemovePropertyListener(mOutputUnit, kAudioOutputUnitProperty_IsRunning,
                                                                  runningDidChange),
                                  cannotEnd));
    keepLast(status, reported(AUGraphUninitialize(mGraph), cannotEnd));
    keepLast(status, reported(AUGraphClose(mGraph), cannotEnd));
    keepLast(status, reported(DisposeAUGraph(mGraph), cannotEnd));
    mGraph = nullptr;
    mOutputUnit = nullptr;
    mShouldProvideData = false;
    return status;
}

// --- Control ---------------------------------------------------------------------------------------------------------

OSStatus QMXAUAudioPlayer::play()
{
    return playFromFrame(currentFrameOffset());
}

OSStatus QMXAUAudioPlayer::playFromFrame(SInt64 frame)
{
    return playFromFrame_endFrame(frame, lengthInFrames());
}

OSStatus QMXAUAudioPlayer::playTrack(const QMXAudioTrackInfo& track)
{
    return playExactly(track.trackBegin(), track.trackEnd());
}

OSStatus QMXAUAudioPlayer::Implementation::playRange(SInt64 start, SInt64 end, SInt64 exactEnd)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (mInputAudioFile && !mInputAudioFile->isOpen())
        failure_.keepFirstOf(*mInputAudioFile);
    if (start >= end)
        return noErr;
    if (start < 0)
        return failure_.keepFirst(kExtAudioFileError_InvalidSeek,
                                  mInputAudioFile ? mInputAudioFile->path() : "The file", "has no such frame");
    const SInt64 length = mFileLengthInFrames;
    mPlaybackInfo.readStatus = noErr;
    isDown_ = false;
    const bool moves = start != currentFrameOffset();
    {
        // in one turn: no slice sees the new position with the old range, and the old range finishes no more
        const auto turn = mPlaybackInfo.mSampleTime.turnOfSeek();
        mPlaybackInfo.mHasBeenStopped = false;
        mPlaybackInfo.mPlayInSampleTime = start;
        mPlaybackInfo.mPlayOutSampleTime = std::min(end, length);
        mPlaybackInfo.exactEnd = exactEnd == noEnd ? noEnd : std::min(exactEnd, length);
        moveTo(start, moves || !mInputAudioFile || mInputAudioFile->offset() != start);
    }
    if (moves) {
        dropHeldSound();
        resetProcessor();
    }
    if (has(startedBit)) {
        notifyCallback(QMXAudioPlayerStartedPlayingNotification);
        notifyCallback(QMXVUMeterDataProviderDidStartNotification);
    }
    mShouldProvideData = true; // before the first slice, which may be the last one
    const OSStatus status = reported(AUGraphStart(mGraph), "could not be started");
    if (status == noErr)
        return noErr;
    mShouldProvideData = false;
    if (has(stoppedBit))
        notifyCallback(QMXAudioPlayerStoppedPlayingNotification);
    return status;
}

OSStatus QMXAUAudioPlayer::Implementation::stop()
{
    const bool wasDown = isDown_.exchange(false);
    // a unit whose device changes rests for a moment; one that stopped by itself is not to go on with another device
    const bool wasPlaying = isPlaying() || (mShouldProvideData && !wasDown);
    if (!wasPlaying && !wasDown)
        return noErr;
    mShouldProvideData = false;
    mPlaybackInfo.mHasBeenStopped = true;
    const OSStatus status = reported(AUGraphStop(mGraph), "could not be stopped");
    if (!wasPlaying)
        return noErr;
    if (has(stoppedBit)) {
        notifyCallback(QMXAudioPlayerStoppedPlayingNotification);
        notifyCallback(QMXVUMeterDataProviderDidStopNotification);
    }
    return status;
}

void QMXAUAudioPlayer::Implementation::rewind()
{
    const qmx::LastFailure::Operation operation(failure_);
    mPlaybackInfo.mPlayInSampleTime = 0;
    resetProcessor();
    seekFile(0);
}

bool QMXAUAudioPlayer::Implementation::isPlaying() const
{
    Boolean graphRuns = false;
    if (mGraph && AUGraphIsRunning(mGraph, &graphRuns) == noErr && graphRuns)
        return true;
    UInt32 unitRuns = 0, size = sizeof unitRuns;
    return mOutputUnit &&
           AudioUnitGetProperty(mOutputUnit, kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global, 0, &unitRuns,
                                &size) == noErr &&
           unitRuns != 0;
}

void QMXAUAudioPlayer::Implementation::setCurrentFrameOffset(SInt64 frame)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (frame == currentFrameOffset())
        return;
    seekFile(frame);
    resetProcessor();
}

/// Goes to a frame; what the render thread reads meanwhile does not count.
void QMXAUAudioPlayer::Implementation::seekFile(SInt64 frame)
{
    {
        const auto turn = mPlaybackInfo.mSampleTime.turnOfSeek();
        moveTo(frame, true);
    }
    dropHeldSound();
}

/// What the unit's rate conversion still holds of the old place is not heard at the new one.
void QMXAUAudioPlayer::Implementation::dropHeldSound()
{
    if (mOutputUnit)
        reported(AudioUnitReset(mOutputUnit, kAudioUnitScope_Global, 0), "could not be reset");
}

/// In a seek's turn.
void QMXAUAudioPlayer::Implementation::moveTo(SInt64 frame, bool movesFile)
{
    mPlaybackInfo.mSampleTime.moveTo(frame);
    mPlaybackInfo.framesOfTail = 0;
    if (!movesFile || !mInputAudioFile || !mInputAudioFile->isOpen())
        return;
    (void)mInputAudioFile->seek(frame); // the file tells
    failure_.keepFirstOf(*mInputAudioFile);
}

// --- The render thread -----------------------------------------------------------------------------------------------

OSStatus QMXAUAudioPlayer::Implementation::FileReadProc(void* info, AudioUnitRenderActionFlags*, const AudioTimeStamp*,
                                                        UInt32, UInt32 numberFrames, AudioBufferList* data)
{
    auto& playback = *static_cast<PlaybackInfo*>(info);
    Implementation& player = *playback.mAUAudioPlayer;
    const qmx::Publication::Reader reader(player.renders_);
    const Slice slice = player.readSlice(numberFrames, *data);
    OSStatus status = slice.status;
    if (slice.frames > 0) {
        playback.framesOfTail = 0; // a failing read before was not the end
        // intended: a failing read that gave frames is not acted on
        status = player.process(*data, slice.frames);
        // intended: the position before this slice decides, so that playback runs past the end by up to a slice
        if (status != noErr || slice.isLast)
            player.finish(slice.generation);
    } else if (slice.isPastEnd) {
        player.playTail(numberFrames, slice.generation);
    }
    if (!playback.mHasBeenStopped)
        playback.mSampleTime.add(slice.frames, slice.generation);
    return status;
}

QMXAUAudioPlayer::Implementation::Slice QMXAUAudioPlayer::Implementation::readSlice(UInt32 frames,
                                                                                    AudioBufferList& data)
{
    PlaybackInfo& playback = mPlaybackInfo;
    const auto turn = playback.mSampleTime.turnOfRead();
    if (!turn) { // a seek is under way
        droppedFrames_ += frames;
        return {};
    }
    Slice slice;
    slice.before = playback.mSampleTime.frame();
    slice.generation = playback.mSampleTime.generation();
    slice.isLast = slice.before >= playback.mPlayOutSampleTime;
    const ExtAudioFileRef file = playback.mExtAudioFile;
    const SInt64 most = std::max<SInt64>(playback.exactEnd - slice.before, 0);
    const auto wanted = static_cast<UInt32>(std::min<SInt64>(frames, most));
    if (file && wanted > 0) {
        slice.frames = wanted;
        slice.status = ExtAudioFileRead(file, &slice.frames, &data);
    }
    const bool isAtItsEnd = wanted == 0 || isAtEnd(slice, file);
    slice.isPastEnd = isAtItsEnd && (stopsAtEndOfFile_ || playback.exactEnd != noEnd);
    if (slice.status != noErr)
        playback.readStatus = slice.status;
    else if (!isAtItsEnd && slice.frames < wanted)
        droppedFrames_ += wanted - slice.frames; // not read so far
    return slice;
}

/// Whether nothing more comes from the file, by its end or a failure.
bool QMXAUAudioPlayer::Implementation::isAtEnd(const Slice& slice, ExtAudioFileRef file) const
{
    SInt64 next = 0;
    return !file || slice.status != noErr || ExtAudioFileTell(file, &next) != noErr || next >= mFileLengthInFrames;
}

/// Counts silence after the last frame, and finishes after enough of it.
void QMXAUAudioPlayer::Implementation::playTail(UInt32 frames, UInt32 generation)
{
    if (mPlaybackInfo.framesOfTail.fetch_add(frames) + frames >= tailFrames)
        finish(generation);
}

/// Ends the playing, unless it was sent elsewhere since the slice was read.
void QMXAUAudioPlayer::Implementation::finish(UInt32 generation)
{
    const auto turn = mPlaybackInfo.mSampleTime.turnOfRead();
    if (!turn || mPlaybackInfo.mSampleTime.generation() != generation)
        return;
    (void)stop(); // reported
    if (has(finishedBit))
        notifyCallback(QMXAudioPlayerFinishedPlayingNotification);
}

OSStatus QMXAUAudioPlayer::Implementation::processAudio_timeStamp_busNumber_numberOfFrames_data(
    AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32 numberOfFrames, AudioBufferList* data)
{
    (void)process(*data, numberOfFrames); // intended: only playing goes by the status
    return noErr;
}

/// The status of the processor.
OSStatus QMXAUAudioPlayer::Implementation::process(AudioBufferList& data, UInt32 frames)
{
    if (!mVolumeControl)
        return noErr;
    (void)mVolumeControl->processAudio_numberOfFrames(data, &frames); // never fails
    const Processor* const used = mAudioProcessor.load();
    return used ? used->processor->processAudio_numberOfFrames(data, &frames) : noErr;
}

// --- Notifications ---------------------------------------------------------------------------------------------------

void QMXAUAudioPlayer::Implementation::runningDidChange(void* self, AudioUnit, AudioUnitPropertyID, AudioUnitScope,
                                                        AudioUnitElement)
{
    static_cast<Implementation*>(self)->unitRunningDidChange();
}

/// Tells when the unit stops by itself, without its device, and when it goes on with another one.
void QMXAUAudioPlayer::Implementation::unitRunningDidChange()
{
    if (mPlaybackInfo.mHasBeenStopped)
        return;
    const bool isDown = !isPlaying();
    if (isDown_.exchange(isDown) == isDown || !has(isDown ? stoppedBit : startedBit))
        return;
    notifyCallback(isDown ? QMXAudioPlayerStoppedPlayingNotification : QMXAudioPlayerStartedPlayingNotification);
    notifyCallback(isDown ? QMXVUMeterDataProviderDidStopNotification : QMXVUMeterDataProviderDidStartNotification);
}

void QMXAUAudioPlayer::Implementation::threadCallback(const std::string& notificationName)
{
    if (const auto self = weak_from_this().lock())
        qmx::NotificationCenter::defaultCenter().postNotification(notificationName, self);
}

void QMXAUAudioPlayer::threadCallback2(const std::shared_ptr<QMXVUMeterData>& meterData)
{
    if (meterData)
        qmx::NotificationCenter::defaultCenter().postNotification(meterData->name(), meterData);
}

// --- Failures --------------------------------------------------------------------------------------------------------

OSStatus QMXAUAudioPlayer::Implementation::lastStatus() const
{
    const OSStatus status = failure_.status();
    return status != noErr ? status : mPlaybackInfo.readStatus.load();
}

std::string QMXAUAudioPlayer::Implementation::lastError() const
{
    if (failure_.status() != noErr || mPlaybackInfo.readStatus == noErr)
        return failure_.sentence();
    qmx::LastFailure reading;
    reading.keepFirst(mPlaybackInfo.readStatus, mInputAudioFile ? mInputAudioFile->path() : "The file",
                      "could not be read");
    return reading.sentence();
}
