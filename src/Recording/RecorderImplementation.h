// SPDX-License-Identifier: MIT
// What a recorder is made of; its members are in QMXAudioRecorder.cpp and QMXAudioRecorderSaving.cpp.
#pragma once

#include "Formats/LastFailure.h"
#include "Foundation/MainThread/RealTimeNotification.h"
#include "Foundation/MainThread/Timer.h"
#include "Foundation/Threads/ConditionLock.h"
#include "Foundation/Threads/Retirement.h"
#include "Foundation/Threads/Thread.h"
#include "Foundation/Threads/Worker.h"
#include "Recording/QMXAudioRecorder.h"
#include "Recording/RawBuffers.h"
#include "Recording/RecordingLosses.h"

#include <atomic>
#include <mutex>

class QMXAudioConverter;

namespace recorder
{

/// States; 0 while the object is being made.
constexpr SInt32 ready = 1, recording = 2, paused = 3, ended = 4;
/// Bits of the event mask.
constexpr UInt32 startedBit = 1, stoppedBit = 2, framesBit = 4, pausedBit = 8;
/// Conditions of the saving thread's lock.
constexpr int hasWork = 0, hasNone = 1;

} // namespace recorder

class QMXAudioRecorder::Implementation final : public QMXAudioRecorder, private qmx::Retirable
{
public:
    static std::shared_ptr<Implementation> make(const std::shared_ptr<QMXAudioDevice>& device);
    ~Implementation() override;
    void take(const std::shared_ptr<QMXAudioFile>& file);

    void setAudioFilePath(const std::string& path) override { audioFilePath_ = path; }
    void setDeviceStreamFormat(const std::shared_ptr<QMXAudioStreamBasicDescription>& format) override;
    bool setFileStreamFormat(const QMXAudioStreamBasicDescription& format) override;
    void setInputDevice(const std::shared_ptr<QMXAudioDevice>& device) override;
    void setEventMask(UInt32 mask) override { _eventMask = mask; }
    UInt32 eventMask() const override { return _eventMask; }
    void setNotificationInterval(UInt32 interval) override { notificationInterval = interval; }
    void setWritesPartialBufferAtStop(bool writes) override { writesPartialBufferAtStop_ = writes; }
    bool writesPartialBufferAtStop() const override { return writesPartialBufferAtStop_; }
    bool setSpareRawBuffers(UInt32 count) override;
    UInt32 spareRawBuffers() const override { return spareRawBuffers_; }

    bool record() override;
    bool recordForDuration(double seconds) override;
    bool pause() override;
    bool stop() override;
    bool flush() override;

    bool isRecording() const override { return recorderState == recorder::recording; }
    OSStatus lastStatus() const override { return failure_.status(); }
    std::string lastError() const override { return failure_.sentence(); }
    UInt32 lengthInFrames() const override { return static_cast<UInt32>(recordedLengthInFrames); }
    UInt64 lengthInBytes() const override { return recordedLengthInFrames * bytesPerFrame(); }
    UInt64 lengthInMilliSeconds() const override;
    UInt64 droppedFrames() const override { return losses_.droppedFrames(); }
    UInt32 overruns() const override { return losses_.overruns(); }
    std::vector<QMXAudioRecordingLoss> lostFramePositions() const override;
    const std::shared_ptr<QMXAudioFile>& audioFile() const override { return _audioFile; }
    const std::shared_ptr<QMXAudioDevice>& inputDevice() const override { return _inputDevice; }
    const std::shared_ptr<QMXAudioStreamBasicDescription>& inputDeviceStreamFormat() const override
    {
        return _sourceFormat;
    }
    UInt32 leftChannel() const override { return leftChannel_; }
    UInt32 rightChannel() const override { return rightChannel_; }

    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& device, const AudioTimeStamp* inNow, const AudioBufferList* inInputData,
        const AudioTimeStamp* inInputTime, AudioBufferList* outOutputData, const AudioTimeStamp* inOutputTime,
        QMXAudioDevice& inClientData) override;
    bool insertIntoBuffer_length(const void* bytes, UInt32* length) override;
    void notifyCallback(std::string_view notificationName) override;

private:
    static void destroy(Implementation* recorder);
    bool begin(const std::shared_ptr<QMXAudioDevice>& device);
    bool hasBegun() const;
    void observe(const std::shared_ptr<QMXAudioDevice>& device);
    void deviceRateDidChange();
    void devicesDidChange();
    bool converterSetup();
    void setupRawBuffers();
    std::shared_ptr<QMXAudioStreamBasicDescription> writtenFormat() const;
    bool openFile();
    void makeFile();
    bool refuse(OSStatus status, const std::string& sentence);
    void fail(OSStatus status, const std::string& sentence);
    void giveDeviceUp(OSStatus status, const std::string& reason);
    std::string aboutFile(const std::string& failure, OSStatus status) const;
    std::string aboutDevice(const std::string& failure) const;
    void invalidateTimer();
    void timerStop();
    void saveRest();
    void waitUntilSaved();
    void noteTimeGap(const AudioTimeStamp* inputTime, UInt64 frames);
    void noteLoss(QMXAudioRecordingLoss::Reason reason, UInt64 firstByte, UInt32 byteCount);
    void noteLossAtEnd(QMXAudioRecordingLoss::Reason reason, UInt64 frames);
    void switchBuffers();

    // the saving thread
    void saveBufferRunLoop();
    void convertBufferAndSaveToFile();
    std::optional<QMXAudioRecordingLoss::Reason> saveBytes(const Byte* bytes, UInt32* byteCount);
    std::optional<UInt32> convert(const Byte* bytes, UInt32 byteCount);
    UInt32 writeConverted(UInt32 byteCount);
    UInt64 endConversion(bool writes);
    Float64 deviceFramesOf(UInt32 fileBytes) const;
    UInt32 convertedRoomFor(UInt32 byteCount) const;

    std::shared_ptr<QMXAudioFile> _audioFile;
    std::optional<std::string> audioFilePath_;
    std::shared_ptr<QMXAudioDevice> _inputDevice;
    std::shared_ptr<QMXAudioConverter> _audioConverter;
    std::shared_ptr<QMXAudioStreamBasicDescription> _sourceFormat;
    std::shared_ptr<QMXAudioStreamBasicDescription> _destinationFormat;
    std::atomic<SInt32> recorderState{0};
    std::atomic<UInt64> recordedLengthInFrames{0};
    std::atomic<UInt32> _eventMask{15};
    UInt32 notificationCount = 0; // the I/O thread's
    std::atomic<UInt32> notificationInterval{1};
    UInt32 leftChannel_ = 0;
    UInt32 rightChannel_ = 0;
    std::shared_ptr<qmx::Timer> recordingTimer;
    std::atomic<bool> threadShouldExit{false};
    std::atomic<bool> threadIsRunning{false};
    qmx::ConditionLock threadRunLock{1};     ///< 1: nothing to save, 0: a buffer is ready
    qmx::ConditionLock rawByteBufferLock{1}; ///< held while bytes are filled in
    RawBuffers rawByteBuffer;
    UInt32 rawByteBufferSizeInBytes = 0;
    std::unique_ptr<Byte[]> convertedBuffer;
    UInt32 convertedBufferSizeInBytes = 0;
    bool useAudioFileCache = false;
    std::atomic<bool> _isFlushing{false};

    std::atomic<UInt32> usedRawBytes_{0};     // of a buffer: whole frames
    std::atomic<UInt32> sourceFrameBytes_{1}; // of the device's format
    std::mutex setupLock_;                    // set-up against saving; never taken by the I/O thread
    std::atomic<Float64> fileFramesPerFrame_{1};
    bool writesPartialBufferAtStop_ = false;
    UInt32 spareRawBuffers_ = 0;
    RecordingLosses losses_;
    std::optional<Float64> nextSampleTime_; // the I/O thread's
    Float64 deviceRate_ = 0;
    UInt32 deviceChannels_ = 0; // when its stream format was set
    std::shared_ptr<qmx::Object> rateObserver_;
    std::shared_ptr<qmx::Object> deviceListObserver_;
    qmx::LastFailure failure_;
    std::atomic<bool> failureIsTold_{false};
    std::optional<qmx::RealTimeNotification> failed_;
    std::optional<qmx::RealTimeNotification> recordedFrame_;
    std::optional<qmx::Worker> savingWorker_;
    qmx::Thread savingThread_;
};
