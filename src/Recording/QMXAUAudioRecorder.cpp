// SPDX-License-Identifier: MIT
#include "Recording/QMXAUAudioRecorder.h"

#include "AudioToolbox/AudioFormat.h"
#include "AudioToolbox/ExtAudioFile.h"
#include "Devices/NotificationSenders.h"
#include "Devices/QMXVUMeterData.h"
#include "Devices/QMXVUMeterDataProvider.h"
#include "FileRelated/QMXExtAudioFile.h"
#include "Formats/LastFailure.h"
#include "Formats/OwnedBufferList.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXAudioValueRange.h"
#include "Formats/StepStatus.h"
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"
#include "Foundation/Text/FailureLine.h"
#include "Foundation/Text/Log.h"
#include "Foundation/Threads/Publication.h"
#include "Foundation/Threads/Retirement.h"
#include "Processing/QMXSoftwareVolumeControl.h"
#include "Recording/QMXAudioRecorder.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>
#include <utility>

namespace
{

using qmx::keepLast;

// intended: the title is the player's
constexpr qmx::FailureLine report("QMXAUAudioPlayer", "coreaudio_aac/src/Recording/QMXAUAudioRecorder");
constexpr qmx::StatusLine reportRender("AudioUnitRender() failed with error! %d '%-4.4s'");
constexpr qmx::StatusLine reportWrite("ExtAudioFileWrite failed with error! %d '%-4.4s'");

constexpr const char* cannotRecord = "could not be prepared for recording";

/// Bit of the event mask.
constexpr UInt32 stoppedBit = 2;

constexpr ComponentDescription halOutput{kAudioUnitType_Output, kAudioUnitSubType_HALOutput,
                                         kAudioUnitManufacturer_Apple};

/// What slices are rendered into, with the bytes that each buffer has.
struct RenderBuffer {
    qmx::OwnedBufferList list;
    UInt32 bytes;
    UInt32 frameBytes;

    UInt32 frames() const { return frameBytes > 0 ? bytes / frameBytes : 0; }
    AudioBufferList& forFrames(UInt32 count) const
    {
        AudioBuffer* const buffers = list->mBuffers;
        for (UInt32 i = 0; i < list->mNumberBuffers; ++i)
            buffers[i].mDataByteSize = count * frameBytes;
        return *list;
    }
};

/// The map that units use without one; a lone captured channel goes to all.
std::vector<SInt32> firstChannels(UInt32 captured, UInt32 recorded)
{
    std::vector<SInt32> map(recorded, captured == 1 ? 0 : -1);
    for (UInt32 channel = 0; channel < std::min(captured, recorded); ++channel)
        map[channel] = static_cast<SInt32>(channel);
    return map;
}

} // namespace

class QMXAUAudioRecorder::Implementation final : public QMXAUAudioRecorder, private qmx::Retirable
{
public:
    static std::shared_ptr<Implementation> make();
    ~Implementation() override;
    void begin(const std::shared_ptr<QMXAudioDevice>& device, std::optional<std::string> path);
    void complete(AudioFileTypeID fileType, const QMXAudioStreamBasicDescription& format);

    void setOutputPath(const std::string& path) override;
    void setFileType(AudioFileTypeID fileType) override { mFileType = fileType; }
    void setFileType_withFileStreamFormat(AudioFileTypeID fileType,
                                          const QMXAudioStreamBasicDescription& format) override;
    void setFileStreamFormat(const QMXAudioStreamBasicDescription& format) override;
    void setInputDevice(const std::shared_ptr<QMXAudioDevice>& device) override;
    void setAudioStreamFormat(const QMXAudioStreamBasicDescription& format) override;
    void setBitRate(Float64 bitsPerSecond) override;
    UInt32 bitRate() const override { return mBitRate; }
    OSStatus setInputChannelMap(const std::vector<SInt32>& map) override;
    void setEventMask(UInt32 mask) override { mRecordingInfo.mEventMask = mask; }
    UInt32 eventMask() const override { return mRecordingInfo.mEventMask; }
    void setNotificationInterval(UInt32 interval) override { senders_->setInterval(interval); }
    UInt32 notificationInterval() const override { return senders_->interval(); }

    OSStatus start() override;
    OSStatus pause() override;
    OSStatus stop() override;
    bool isRecording() const override;

    UInt64 droppedFrames() const override { return mRecordingInfo.droppedFrames; }
    OSStatus lastStatus() const override;
    std::string lastError() const override;
    const std::shared_ptr<QMXExtAudioFile>& audioFile() const override { return mOutputFile; }
    const std::shared_ptr<QMXAudioDevice>& inputDevice() const override { return mInputDevice; }
    const std::shared_ptr<QMXVUMeterData>& meterData() const override { return mMeterData; }
    const std::shared_ptr<QMXSoftwareVolumeControl>& gainControl() const override { return mGainControl; }
    std::vector<std::shared_ptr<QMXAudioStreamBasicDescription>> supportedAudioStreamFormats() const override;
    std::vector<std::shared_ptr<QMXAudioValueRange>> supportedSampleRates() const override;
    std::shared_ptr<std::vector<Float64>> supportedBitRates() const override;

    OSStatus performBasicSetup() override;
    OSStatus setupInputUnit() override;
    OSStatus setupInputUnitWithDevice() override;
    OSStatus setupCallback() override;
    OSStatus setupAudioFormats() override;
    OSStatus configureOutputFile() override;
    OSStatus initializeInputUnit() override;
    OSStatus uninitializeInputUnit() override;

    OSStatus processAudio_timeStamp_busNumber_numberOfFrames_data(AudioUnitRenderActionFlags* flags,
                                                                  const AudioTimeStamp* timeStamp, UInt32 busNumber,
                                                                  UInt32 numberOfFrames,
                                                                  AudioBufferList* data) override;
    void notifyCallback(std::string_view notificationName) override { senders_->send(notificationName); }
    void threadCallback(const std::string& notificationName) override;

private:
    /// What the input callback follows.
    struct RecordingInfo {
        std::atomic<ExtAudioFileRef> mOutputFile{nullptr};
        [[maybe_unused]] SInt64 mSampleTime = 0, mPreviousSampleTime = 0, mPlayInSampleTime = 0,
                                mPlayOutSampleTime = 0; ///< stay at 0
        QMXAUAudioRecorder* mAURecorder = nullptr;      ///< intended: never filled in
        AudioUnit mInputUnit = nullptr;
        std::atomic<const RenderBuffer*> mAudioBuffer{nullptr};
        std::atomic<bool> mHasBeenStopped{false};
        std::atomic<UInt32> mEventMask{0};

        Implementation* owner = nullptr; ///< of what is beyond the recording itself
        Float64 nextTime = -1;           ///< of the next slice; below 0 before the first one
        std::atomic<UInt64> droppedFrames{0};
        std::atomic<bool> failureIsTold{false};
        std::atomic<OSStatus> renderStatus{noErr}, writeStatus{noErr}; ///< of what failed first
    };

    static OSStatus FileWriteProc(void* info, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* timeStamp,
                                  UInt32 busNumber, UInt32 numberFrames, AudioBufferList* data);
    static void runningDidChange(void* self, AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                                 AudioUnitElement element);
    static void destroy(Implementation* recorder) { qmx::destroyOutsideCallbacks(recorder); }
    OSStatus writeSlice(AudioUnitRenderActionFlags* flags, const AudioTimeStamp& time, UInt32 bus, UInt32 frames);
    OSStatus writePiece(AudioUnitRenderActionFlags* flags, const AudioTimeStamp& time, UInt32 bus, UInt32 frames,
                        const RenderBuffer& buffer);
    void unitRunningDidChange();
    void tellStopped();
    void closeUnit();
    OSStatus setClientFormat(const AudioStreamBasicDescription& format);
    OSStatus applyChannelMap();
    OSStatus readFormat(AudioUnitScope scope, AudioStreamBasicDescription& format);
    OSStatus allocateBuffer();
    OSStatus reported(OSStatus status, const char* what = cannotRecord, unsigned line = __builtin_LINE());

    std::shared_ptr<QMXAudioDevice> mInputDevice;
    std::optional<std::string> mOutputPath;
    std::shared_ptr<QMXExtAudioFile> mOutputFile;
    AudioFileTypeID mFileType = kAudioFileAIFFType;
    std::shared_ptr<QMXVUMeterData> mMeterData = QMXVUMeterData::init();
    std::shared_ptr<QMXSoftwareVolumeControl> mGainControl = QMXSoftwareVolumeControl::init();
    AudioStreamBasicDescription mFileStreamFormat;
    AudioStreamBasicDescription mAUInternalFormat;
    UInt32 mBitRate = 0;
    RecordingInfo mRecordingInfo;
    [[maybe_unused]] SInt32 mInputNode = 0;
    std::atomic<bool> mShouldProvideData{false};
    bool mInitialized = false;
    [[maybe_unused]] bool mAllDataPresent = false;
    bool mFileSetupComplete = false;

    qmx::Publication captures_; ///< read the file and the buffer
    std::optional<NotificationSenders> senders_;
    std::vector<SInt32> channelMap_;
    bool isUnitMapped_ = false;       ///< the unit was given a map
    std::atomic<bool> isDown_{false}; ///< the unit stopped by itself
    qmx::LastFailure failure_;
};

// --- Life ------------------------------------------------------------------------------------------------------------

std::shared_ptr<QMXAUAudioRecorder::Implementation> QMXAUAudioRecorder::Implementation::make()
{
    std::shared_ptr<Implementation> recorder;
    (void)qmx::withinMemory([&] { // else there is no recorder
        std::shared_ptr<Implementation> made(new Implementation, destroy);
        made->mRecordingInfo.owner = made.get();
        made->senders_.emplace(made,
                               std::initializer_list<const char*>{QMXAudioRecorderStoppedRecordingNotification,
                                                                  QMXVUMeterDataProviderDidStopNotification,
                                                                  QMXAudioRecorderFailedNotification},
                               QMXAudioRecorderRecordedFrameNotification,
                               [](const auto& sender, const std::string& name) {
                                   static_cast<Implementation&>(*sender).threadCallback(name);
                               });
        recorder = std::move(made);
    });
    return recorder;
}

QMXAUAudioRecorder::Implementation::~Implementation()
{
    mRecordingInfo.mEventMask = 0; // nobody is left to be told
    (void)stop();
    closeUnit();
    delete mRecordingInfo.mAudioBuffer.load();
}

std::shared_ptr<QMXAUAudioRecorder> QMXAUAudioRecorder::init()
{
    return Implementation::make();
}

std::shared_ptr<QMXAUAudioRecorder>
QMXAUAudioRecorder::initWithInputDevice(const std::shared_ptr<QMXAudioDevice>& device)
{
    auto recorder = Implementation::make();
    if (recorder)
        recorder->begin(device, std::nullopt);
    return recorder;
}

std::shared_ptr<QMXAUAudioRecorder>
QMXAUAudioRecorder::initWithInputDevice_outputPath(const std::shared_ptr<QMXAudioDevice>& device,
                                                   const std::string& path)
{
    auto recorder = Implementation::make();
    if (recorder)
        recorder->begin(device, path);
    return recorder;
}

std::shared_ptr<QMXAUAudioRecorder> QMXAUAudioRecorder::initWithInputDevice_outputPath_fileType_fileStreamFormat(
    const std::shared_ptr<QMXAudioDevice>& device, const std::string& path, AudioFileTypeID fileType,
    const QMXAudioStreamBasicDescription& format)
{
    auto recorder = Implementation::make();
    if (recorder) {
        recorder->begin(device, path);
        recorder->complete(fileType, format);
    }
    return recorder;
}

void QMXAUAudioRecorder::Implementation::begin(const std::shared_ptr<QMXAudioDevice>& device,
                                               std::optional<std::string> path)
{
    mInputDevice = device;
    mOutputPath = std::move(path);
    performBasicSetup();
}

void QMXAUAudioRecorder::Implementation::complete(AudioFileTypeID fileType,
                                                  const QMXAudioStreamBasicDescription& format)
{
    mFileType = fileType;
    mFileStreamFormat = *format.audioStreamBasicDescription();
    mAllDataPresent = true;
    configureOutputFile();
}

// --- Settings --------------------------------------------------------------------------------------------------------

void QMXAUAudioRecorder::Implementation::setOutputPath(const std::string& path)
{
    mOutputPath = path;
    configureOutputFile();
}

void QMXAUAudioRecorder::Implementation::setFileType_withFileStreamFormat(AudioFileTypeID,
                                                                          const QMXAudioStreamBasicDescription& format)
{
    mFileStreamFormat = *format.audioStreamBasicDescription(); // intended: the type is not stored
    configureOutputFile();
}

void QMXAUAudioRecorder::Implementation::setFileStreamFormat(const QMXAudioStreamBasicDescription& format)
{
    const qmx::LastFailure::Operation operation(failure_);
    mFileStreamFormat = *format.audioStreamBasicDescription();
    setupAudioFormats();
    configureOutputFile();
}

void QMXAUAudioRecorder::Implementation::setInputDevice(const std::shared_ptr<QMXAudioDevice>& device)
{
    const qmx::LastFailure::Operation operation(failure_);
    mInputDevice = device;
    setupInputUnitWithDevice();
    setupAudioFormats();
}

void QMXAUAudioRecorder::Implementation::setAudioStreamFormat(const QMXAudioStreamBasicDescription& format)
{
    const qmx::LastFailure::Operation operation(failure_);
    mAUInternalFormat = *format.audioStreamBasicDescription();
    if (mInputDevice && !mInputDevice->setActualStreamFormat_forChannel_isInput(format, 0, true))
        failure_.keepFirstOf(*mInputDevice);
    setupInputUnitWithDevice();
    setupAudioFormats();
    configureOutputFile();
}

void QMXAUAudioRecorder::Implementation::setBitRate(Float64 bitsPerSecond)
{
    constexpr Float64 most = std::numeric_limits<UInt32>::max();
    mBitRate = std::isnan(bitsPerSecond) ? 0 : static_cast<UInt32>(std::clamp<Float64>(bitsPerSecond, 0, most));
}

OSStatus QMXAUAudioRecorder::Implementation::setInputChannelMap(const std::vector<SInt32>& map)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (mFileSetupComplete && !map.empty() && map.size() != mAUInternalFormat.mChannelsPerFrame)
        return failure_.keepFirst(kAudioUnitErr_InvalidPropertyValue, mOutputPath.value_or("The file"),
                                  "has other channels than the map", "it was made before");
    const auto old = std::exchange(channelMap_, map);
    const OSStatus status = setupAudioFormats();
    if (status != noErr) {
        channelMap_ = old;
        setupAudioFormats();
    }
    return status;
}

// --- The unit --------------------------------------------------------------------------------------------------------

/// Reports a failing step.
OSStatus QMXAUAudioRecorder::Implementation::reported(OSStatus status, const char* what, unsigned line)
{
    report(status, line);
    if (status != noErr)
        failure_.keepFirst(status, mInputDevice ? mInputDevice->name().value_or("The device") : "The device", what);
    return status;
}

OSStatus QMXAUAudioRecorder::Implementation::performBasicSetup()
{
    if (mInitialized)
        return noErr;
    const qmx::LastFailure::Operation operation(failure_);
    OSStatus status = noErr;
    keepLast(status, setupInputUnit());
    keepLast(status, setupCallback());
    keepLast(status, setupInputUnitWithDevice());
    keepLast(status, setupAudioFormats());
    return status;
}

OSStatus QMXAUAudioRecorder::Implementation::setupInputUnit()
{
    closeUnit();
    OSStatus status = reported(OpenAComponent(FindNextComponent(nullptr, &halOutput), &mRecordingInfo.mInputUnit));
    if (status != noErr) {
        mRecordingInfo.mInputUnit = nullptr;
        return status;
    }
    const auto enable = [this](AudioUnitScope scope, AudioUnitElement element, UInt32 isOn) {
        return AudioUnitSetProperty(mRecordingInfo.mInputUnit, kAudioOutputUnitProperty_EnableIO, scope, element, &isOn,
                                    sizeof isOn);
    };
    keepLast(status, reported(enable(kAudioUnitScope_Input, 1, 1)));
    keepLast(status, reported(enable(kAudioUnitScope_Output, 0, 0)));
    keepLast(status, reported(AudioUnitAddPropertyListener(
                         mRecordingInfo.mInputUnit, kAudioOutputUnitProperty_IsRunning, runningDidChange, this)));
    return status;
}

/// Ends the unit's work and lets go of it.
void QMXAUAudioRecorder::Implementation::closeUnit()
{
    if (!mRecordingInfo.mInputUnit)
        return;
    mRecordingInfo.mHasBeenStopped = true; // the listener is not to tell of this
    isUnitMapped_ = false;
    reported(AudioUnitRemovePropertyListener(mRecordingInfo.mInputUnit, kAudioOutputUnitProperty_IsRunning,
                                             runningDidChange));
    reported(CloseComponent(std::exchange(mRecordingInfo.mInputUnit, nullptr)));
    mInitialized = false;
}

OSStatus QMXAUAudioRecorder::Implementation::setupInputUnitWithDevice()
{
    const AudioDeviceID device = mInputDevice ? mInputDevice->deviceID() : kAudioDeviceUnknown;
    return reported(AudioUnitSetProperty(mRecordingInfo.mInputUnit, kAudioOutputUnitProperty_CurrentDevice,
                                         kAudioUnitScope_Global, 0, &device, sizeof device));
}

OSStatus QMXAUAudioRecorder::Implementation::setupCallback()
{
    const AURenderCallbackStruct callback{FileWriteProc, &mRecordingInfo};
    return reported(AudioUnitSetProperty(mRecordingInfo.mInputUnit, kAudioOutputUnitProperty_SetInputCallback,
                                         kAudioUnitScope_Global, 0, &callback, sizeof callback));
}

OSStatus QMXAUAudioRecorder::Implementation::setupAudioFormats()
{
    const qmx::LastFailure::Operation operation(failure_);
    OSStatus status = noErr;
    if (mFileSetupComplete && mOutputFile)
        keepLast(status, setClientFormat(*mOutputFile->clientStreamFormat()));
    keepLast(status, applyChannelMap());
    UInt32 size = sizeof mAUInternalFormat;
    keepLast(status, reported(AudioUnitGetProperty(mRecordingInfo.mInputUnit, kAudioUnitProperty_StreamFormat,
                                                   kAudioUnitScope_Input, 0, &mAUInternalFormat, &size)));
    keepLast(status, allocateBuffer());
    return status;
}

/// Element 0 mirrors it.
OSStatus QMXAUAudioRecorder::Implementation::setClientFormat(const AudioStreamBasicDescription& format)
{
    return reported(AudioUnitSetProperty(mRecordingInfo.mInputUnit, kAudioUnitProperty_StreamFormat,
                                         kAudioUnitScope_Output, 1, &format, sizeof format));
}

/// Gives the unit the map, and the client as many channels while there is no file yet. Without a map, one that the unit
/// was given before is replaced by the first channels.
OSStatus QMXAUAudioRecorder::Implementation::applyChannelMap()
{
    if (channelMap_.empty() && !isUnitMapped_)
        return noErr;
    AudioStreamBasicDescription captured, format;
    OSStatus status = readFormat(kAudioUnitScope_Input, captured);
    keepLast(status, readFormat(kAudioUnitScope_Output, format));
    const auto channels = channelMap_.empty() ? 2U : static_cast<UInt32>(channelMap_.size());
    if (status == noErr && format.mChannelsPerFrame != channels && !mFileSetupComplete) {
        format.mChannelsPerFrame = channels;
        status = setClientFormat(format);
    }
    if (status != noErr)
        return status;
    isUnitMapped_ = true;
    const auto map =
        channelMap_.empty() ? firstChannels(captured.mChannelsPerFrame, format.mChannelsPerFrame) : channelMap_;
    return reported(AudioUnitSetProperty(mRecordingInfo.mInputUnit, kAudioOutputUnitProperty_ChannelMap,
                                         kAudioUnitScope_Output, 1, map.data(),
                                         static_cast<UInt32>(map.size() * sizeof(SInt32))),
                    "does not have the channels of the map");
}

/// A format of element 1.
OSStatus QMXAUAudioRecorder::Implementation::readFormat(AudioUnitScope scope, AudioStreamBasicDescription& format)
{
    UInt32 size = sizeof format;
    return reported(
        AudioUnitGetProperty(mRecordingInfo.mInputUnit, kAudioUnitProperty_StreamFormat, scope, 1, &format, &size));
}

/// For slices of the device's buffer frame size.
OSStatus QMXAUAudioRecorder::Implementation::allocateBuffer()
{
    UInt32 frames = 0, size = sizeof frames;
    const OSStatus status = AudioUnitGetProperty(mRecordingInfo.mInputUnit, kAudioDevicePropertyBufferFrameSize,
                                                 kAudioUnitScope_Global, 0, &frames, &size);
    if (status != noErr) {
        std::fputs("failed to get audio sample size\n", stderr);
        return reported(status);
    }
    const UInt32 bytes = mAUInternalFormat.mBytesPerFrame * frames;
    auto next = std::make_unique<RenderBuffer>();
    next->list.reset(QMXAudioBufferList::allocateBuffers_channelsPerBuffer_dataByteSize(
        mAUInternalFormat.mChannelsPerFrame, 1, bytes));
    next->bytes = bytes;
    next->frameBytes = mAUInternalFormat.mBytesPerFrame;
    AudioBuffer* const buffers = next->list ? next->list->mBuffers : nullptr;
    const auto hasData = [](const AudioBuffer& buffer) { return buffer.mData != nullptr; };
    if (!buffers || !std::all_of(buffers, buffers + next->list->mNumberBuffers, hasData)) {
        std::fputs("failed to allocate buffers\n", stderr);
        return reported(kAudio_MemFullError);
    }
    captures_.replaceAndWait(mRecordingInfo.mAudioBuffer, std::unique_ptr<const RenderBuffer>(std::move(next)));
    return noErr;
}

OSStatus QMXAUAudioRecorder::Implementation::configureOutputFile()
{
    if (mFileSetupComplete || !mOutputPath || mAUInternalFormat.mFormatID == 0 || mFileStreamFormat.mFormatID == 0)
        return noErr;
    const qmx::LastFailure::Operation operation(failure_);
    mOutputFile = QMXExtAudioFile::initForWriting_fileType_clientFormat_fileFormat(
        *mOutputPath, mFileType, &mAUInternalFormat, &mFileStreamFormat);
    if (!mOutputFile)
        return failure_.keepFirst(kAudio_MemFullError, *mOutputPath, "could not be made");
    mOutputFile->setKeepsFileReadableWhileWriting(mFileType != kAudioFileCAFType); // a compressed one cannot be
    const OSStatus status = mOutputFile->open();
    failure_.keepFirstOf(*mOutputFile);
    mRecordingInfo.mOutputFile = mOutputFile->extAudioFileRef();
    mFileSetupComplete = true;
    return status;
}

OSStatus QMXAUAudioRecorder::Implementation::initializeInputUnit()
{
    const OSStatus status = reported(AudioUnitInitialize(mRecordingInfo.mInputUnit));
    if (status == noErr)
        mInitialized = true;
    return status;
}

OSStatus QMXAUAudioRecorder::Implementation::uninitializeInputUnit()
{
    const OSStatus status = reported(AudioUnitUninitialize(mRecordingInfo.mInputUnit));
    closeUnit();
    return status;
}

// --- Control ---------------------------------------------------------------------------------------------------------

OSStatus QMXAUAudioRecorder::Implementation::start()
{
    const qmx::LastFailure::Operation operation(failure_);
    if (mOutputFile && !mOutputFile->isOpen())
        failure_.keepFirstOf(*mOutputFile);
    if (!mInitialized)
        initializeInputUnit();
    isDown_ = false;
    mRecordingInfo.mHasBeenStopped = false;
    const OSStatus status = reported(AudioOutputUnitStart(mRecordingInfo.mInputUnit), "could not be started");
    mShouldProvideData = status == noErr;
    if (status != noErr && (mRecordingInfo.mEventMask & stoppedBit) != 0)
        notifyCallback(QMXAudioRecorderStoppedRecordingNotification);
    return status;
}

OSStatus QMXAUAudioRecorder::Implementation::pause()
{
    const bool wasDown = isDown_.exchange(false);
    // a unit whose device changes rests for a moment; one that stopped by itself is not to go on with another device
    const bool wasRecording = isRecording() || (mShouldProvideData && !wasDown);
    if (!wasRecording && !wasDown)
        return noErr;
    mRecordingInfo.mHasBeenStopped = true;
    mShouldProvideData = false;
    const OSStatus status = reported(AudioOutputUnitStop(mRecordingInfo.mInputUnit), "could not be stopped");
    if (wasRecording)
        tellStopped();
    return wasRecording ? status : noErr;
}

OSStatus QMXAUAudioRecorder::Implementation::stop()
{
    const qmx::LastFailure::Operation operation(failure_);
    pause();
    mRecordingInfo.mOutputFile = nullptr;
    captures_.waitForReaders();
    if (!mOutputFile)
        return noErr;
    const OSStatus status = report(mOutputFile->close());
    failure_.keepFirstOf(*mOutputFile);
    return status;
}

bool QMXAUAudioRecorder::Implementation::isRecording() const
{
    UInt32 runs = 0, size = sizeof runs;
    return mRecordingInfo.mInputUnit &&
           AudioUnitGetProperty(mRecordingInfo.mInputUnit, kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global,
                                0, &runs, &size) == noErr &&
           runs != 0;
}

void QMXAUAudioRecorder::Implementation::tellStopped()
{
    if ((mRecordingInfo.mEventMask & stoppedBit) == 0)
        return;
    notifyCallback(QMXAudioRecorderStoppedRecordingNotification);
    notifyCallback(QMXVUMeterDataProviderDidStopNotification);
}

void QMXAUAudioRecorder::Implementation::runningDidChange(void* self, AudioUnit, AudioUnitPropertyID, AudioUnitScope,
                                                          AudioUnitElement)
{
    static_cast<Implementation*>(self)->unitRunningDidChange();
}

/// Tells when the unit stops by itself, without its device.
void QMXAUAudioRecorder::Implementation::unitRunningDidChange()
{
    if (mRecordingInfo.mHasBeenStopped)
        return;
    const bool isDown = !isRecording();
    if (!isDown_.exchange(isDown) && isDown)
        tellStopped();
}

// --- The I/O thread --------------------------------------------------------------------------------------------------

OSStatus QMXAUAudioRecorder::Implementation::FileWriteProc(void* info, AudioUnitRenderActionFlags* flags,
                                                           const AudioTimeStamp* timeStamp, UInt32 busNumber,
                                                           UInt32 numberFrames, AudioBufferList*)
{
    auto& recording = *static_cast<RecordingInfo*>(info);
    const OSStatus status = recording.owner->writeSlice(flags, *timeStamp, busNumber, numberFrames);
    if (status != noErr && recording.mAURecorder) // intended: there is none, so that the recording goes on
        (void)recording.mAURecorder->stop();
    return status;
}

OSStatus QMXAUAudioRecorder::Implementation::writeSlice(AudioUnitRenderActionFlags* flags, const AudioTimeStamp& time,
                                                        UInt32 bus, UInt32 frames)
{
    RecordingInfo& recording = mRecordingInfo;
    const qmx::Publication::Reader reader(captures_);
    if (recording.nextTime >= 0 && time.mSampleTime > recording.nextTime)
        recording.droppedFrames += static_cast<UInt64>(time.mSampleTime - recording.nextTime);
    recording.nextTime = time.mSampleTime + frames;
    const RenderBuffer* const buffer = recording.mAudioBuffer;
    const UInt32 room = buffer ? buffer->frames() : 0;
    if (room == 0) {
        recording.droppedFrames += frames;
        return kAudio_MemFullError;
    }
    OSStatus status = noErr;
    for (UInt32 done = 0; done < frames; done += room) // in one piece, unless the buffer is another device's
        keepLast(status, writePiece(flags, time, bus, std::min(frames - done, room), *buffer));
    return status;
}

OSStatus QMXAUAudioRecorder::Implementation::writePiece(AudioUnitRenderActionFlags* flags, const AudioTimeStamp& time,
                                                        UInt32 bus, UInt32 frames, const RenderBuffer& buffer)
{
    RecordingInfo& recording = mRecordingInfo;
    const auto failed = [&](std::atomic<OSStatus>& first, OSStatus status) {
        recording.droppedFrames += frames;
        OSStatus none = noErr;
        first.compare_exchange_strong(none, status);
    };
    AudioBufferList& list = buffer.forFrames(frames);
    const OSStatus rendered = AudioUnitRender(recording.mInputUnit, flags, &time, bus, frames, &list);
    if (rendered != noErr) {
        failed(recording.renderStatus, rendered);
        return reportRender(rendered);
    }
    frames = list.mBuffers[0].mDataByteSize / buffer.frameBytes;
    const OSStatus written = ExtAudioFileWriteAsync(recording.mOutputFile, frames, &list);
    if (written == noErr)
        return noErr;
    failed(recording.writeStatus, written);
    // a full ring takes the next frames again, anything else stays
    if (written != kExtAudioFileError_AsyncWriteBufferOverflow && !recording.failureIsTold.exchange(true))
        notifyCallback(QMXAudioRecorderFailedNotification);
    return reportWrite(written);
}

OSStatus QMXAUAudioRecorder::Implementation::processAudio_timeStamp_busNumber_numberOfFrames_data(
    AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32 numberOfFrames, AudioBufferList* data)
{
    (void)mGainControl->processAudio_numberOfFrames(*data, &numberOfFrames); // never fails
    return noErr;
}

void QMXAUAudioRecorder::Implementation::threadCallback(const std::string& notificationName)
{
    qmx::printWaitingFailures();
    if (const auto self = weak_from_this().lock())
        qmx::NotificationCenter::defaultCenter().postNotification(notificationName, self);
}

// --- What can be had -------------------------------------------------------------------------------------------------

QMXAudioDeviceList& QMXAUAudioRecorder::supportedInputDevices()
{
    return QMXAudioDevice::inputDevices();
}

std::vector<std::shared_ptr<QMXAudioStreamBasicDescription>>
QMXAUAudioRecorder::Implementation::supportedAudioStreamFormats() const
{
    if (!mInputDevice)
        return {};
    return mInputDevice->streamFormats_isInput(0, true);
}

std::vector<std::shared_ptr<QMXAudioValueRange>> QMXAUAudioRecorder::Implementation::supportedSampleRates() const
{
    if (!mInputDevice)
        return {};
    return mInputDevice->availableNominalSampleRates(true);
}

std::shared_ptr<std::vector<Float64>> QMXAUAudioRecorder::Implementation::supportedBitRates() const
{
    constexpr AudioFormatPropertyID property = kAudioFormatProperty_AvailableEncodeBitRates;
    const AudioFormatID coding = mFileStreamFormat.mFormatID;
    UInt32 size = 0;
    if (AudioFormatGetPropertyInfo(property, sizeof coding, &coding, &size) != noErr)
        return nullptr;
    std::vector<AudioValueRange> ranges(size / sizeof(AudioValueRange));
    if (AudioFormatGetProperty(property, sizeof coding, &coding, &size, ranges.data()) != noErr)
        return nullptr;
    auto rates = std::make_shared<std::vector<Float64>>();
    for (const AudioValueRange& range : ranges) {
        rates->push_back(mFileStreamFormat.mChannelsPerFrame * range.mMinimum / 1000);
        qmx::Log("AVR Min: %f  Max: %f", range.mMinimum, range.mMaximum);
    }
    return rates;
}

std::shared_ptr<std::vector<Float64>>
QMXAUAudioRecorder::supportedQualitySettingsForFormat(const QMXAudioStreamBasicDescription&)
{
    return nullptr;
}

// --- Failures --------------------------------------------------------------------------------------------------------

OSStatus QMXAUAudioRecorder::Implementation::lastStatus() const
{
    for (const OSStatus status :
         {failure_.status(), mRecordingInfo.writeStatus.load(), mRecordingInfo.renderStatus.load()})
        if (status != noErr)
            return status;
    return noErr;
}

std::string QMXAUAudioRecorder::Implementation::lastError() const
{
    if (failure_.status() != noErr)
        return failure_.sentence();
    qmx::LastFailure recording;
    const std::string file = mOutputPath.value_or("The file");
    recording.keepFirst(mRecordingInfo.writeStatus, file, "could not be written");
    recording.keepFirst(mRecordingInfo.renderStatus, file, "misses what could not be captured");
    return recording.sentence();
}
