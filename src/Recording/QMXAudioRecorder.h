// SPDX-License-Identifier: MIT
#pragma once

#include "Devices/QMXCoreAudioIOSubscriber.h"
#include "Foundation/Files/FileManager.h"
#include "Foundation/MainThread/RealTimeNotification.h"
#include "Foundation/MainThread/Timer.h"
#include "Foundation/Object.h"
#include "Foundation/Threads/ConditionLock.h"
#include "Foundation/Threads/Retirement.h"
#include "Foundation/Threads/Thread.h"
#include "Foundation/Threads/Worker.h"
#include "Recording/QMXAudioRecordingLoss.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class QMXAudioConverter;
class QMXAudioDevice;
class QMXAudioFile;
class QMXAudioStreamBasicDescription;
class RawBuffers;
class RecordingLosses;

namespace qmx
{
class LastFailure;
}

/// Sent by the recorder; each value is the constant's own name. At most one frame notification waits for the main
/// thread: those that come meanwhile are not posted by themselves.
QMX_EXPORT extern const char* const QMXAudioRecorderStartedRecordingNotification;
QMX_EXPORT extern const char* const QMXAudioRecorderStoppedRecordingNotification;
QMX_EXPORT extern const char* const QMXAudioRecorderRecordedFrameNotification;
QMX_EXPORT extern const char* const QMXAudioRecorderPausedRecordingNotification;
/// Once per recording, whatever the event mask says, when something of it cannot be had: the file cannot be opened or
/// made, the device does not start or is gone, a conversion or a write fails. lastError() tells which. The recorder
/// still counts as recording, until it is stopped.
QMX_EXPORT extern const char* const QMXAudioRecorderFailedNotification;

/// Records what an input device captures into an audio file. The device's I/O thread only copies the bytes of the
/// first input stream into buffers of 384 KiB; a thread of the recorder's own converts each full one to the file's
/// format and writes it. One recorder makes one recording: record and pause, as often as wanted, then stop.
///
/// By default the bytes of the buffer that is being filled are not written at the stop (up to 384 KiB, about a second
/// of stereo at 48000 Hz), and a disk that stalls for longer than a buffer's time costs whole buffers. Both can be
/// switched off: setWritesPartialBufferAtStop, setSpareRawBuffers. What was lost is counted and listed.
///
/// The file is valid at every moment and holds the buffers written so far, also after a full disk, the loss of the
/// device or a kill. A failed conversion loses its buffer, a failed write the part that did not fit; the recording
/// goes on. While it records the device keeps the recorder alive: stop it. A device that does not start or is gone
/// keeps it no longer.
///
/// Main thread, where nothing else is said.
class QMX_EXPORT QMXAudioRecorder : public qmx::Object,
                                    public QMXCoreAudioIOSubscriber,
                                    public std::enable_shared_from_this<QMXAudioRecorder>,
                                    private qmx::Retirable
{
public:
    /// A recorder on a device that it keeps; the file's format is the device's physical one, big-endian. Null without
    /// a device, and where the system has no thread left.
    static std::shared_ptr<QMXAudioRecorder> initWithAudioDevice(const std::shared_ptr<QMXAudioDevice>& device);
    /// The same for a file that record() makes; null without a path.
    static std::shared_ptr<QMXAudioRecorder> initWithAudioDevice_filePath(const std::shared_ptr<QMXAudioDevice>& device,
                                                                          const std::optional<std::string>& path);
    /// The same for a file object, which is closed and given the recorder's file format, but keeps its mode: its
    /// type, where it is not AIFF or AIFF-C, is to be set afterwards. A WAVE file that record() makes is
    /// little-endian; open it before for another byte order.
    static std::shared_ptr<QMXAudioRecorder>
    initWithAudioDevice_audioFile(const std::shared_ptr<QMXAudioDevice>& device,
                                  const std::shared_ptr<QMXAudioFile>& file);
    /// Stops as stop() does, without notifications.
    ~QMXAudioRecorder() override;

    /// Where record() makes "audiotemp.aif" when no path was set; "/tmp/" at first. It ends with a slash.
    static void setTemporaryDirectory(const std::string& directory);

    // --- Settings ----------------------------------------------------------------------------------------------------

    /// For the file that record() makes. An existing file is overwritten from the start, in its own format; what it
    /// holds past the end of the recording stays.
    void setAudioFilePath(const std::string& path) { audioFilePath_ = path; }
    void setAudioFilePath_withFileStreamFormat(const std::string& path, const QMXAudioStreamBasicDescription& format);
    /// Which format the device's bytes have; copied. Null is ignored.
    void setDeviceStreamFormat(const std::shared_ptr<QMXAudioStreamBasicDescription>& format);
    /// The file's format; a copy is kept, made big-endian where it is float or signed. Its rate may differ from the
    /// device's. It does not reach a file that exists already or was given: what is written is converted to the
    /// format of the open file. Always true.
    bool setFileStreamFormat(const QMXAudioStreamBasicDescription& format);
    /// Stops, and turns to another device and its formats. Null is ignored.
    void setInputDevice(const std::shared_ptr<QMXAudioDevice>& device);

    /// Which notifications are posted, by bits: 1 started, 2 stopped, 4 frames, 8 paused; all at first. Any thread.
    void setEventMask(UInt32 mask) { _eventMask = mask; }
    UInt32 eventMask() const { return _eventMask; }
    /// The frame notification is asked for every `interval` cycles, starting with the first; 0 counts as 1. Any thread.
    void setNotificationInterval(UInt32 interval) { notificationInterval = interval; }

    /// Whether stop() writes the rest: the buffer that is being filled, and what the rate conversion holds (some 30
    /// ms). Off at first: the rest is lost then, and counted as such.
    void setWritesPartialBufferAtStop(bool writes) { writesPartialBufferAtStop_ = writes; }
    bool writesPartialBufferAtStop() const { return writesPartialBufferAtStop_; }
    /// So many full buffers more may wait for a disk that stalls, each 384 KiB of memory; none at first. False,
    /// without a change, for more than 1024, once recording has begun, or without memory.
    bool setSpareRawBuffers(UInt32 count);
    UInt32 spareRawBuffers() const { return spareRawBuffers_; }

    // --- Control -----------------------------------------------------------------------------------------------------

    /// Starts, or goes on after a pause; makes and opens the file. True means that the device was asked to run, not
    /// that it does, nor that the file is open: lastStatus() and QMXAudioRecorderFailedNotification tell. False when
    /// it records and after a stop. False too, before a byte is written and with the reason in lastError(), without
    /// memory for the buffers, on a device that is gone or has other channels than when its stream format was set,
    /// and for a file whose format the samples cannot be converted to; the state is then as before.
    bool record();
    /// Stops by itself after so many seconds; record() is to be called too. False for a time that is not finite.
    bool recordForDuration(double seconds);
    /// False unless it records.
    bool pause();
    /// Ends the recording and closes the file; waits until all full buffers are written, however long the disk takes.
    /// The device is stopped once more even after a pause, as intended: that takes back the start of somebody else,
    /// such as a meter, on the same device object. False unless it records or pauses.
    bool stop();
    /// After stop(): hands the buffer that was being filled to the saving thread, whose write the closed file
    /// refuses, as intended. True the first time only.
    bool flush();

    // --- State -------------------------------------------------------------------------------------------------------

    /// Whether record() was called last; also while the file or the device fails.
    bool isRecording() const;
    /// The status of what failed last since record() began the recording or refused to; 0 when nothing did. Any thread.
    OSStatus lastStatus() const;
    /// The same as a sentence for people that names the file or device, empty when nothing failed. Any thread.
    std::string lastError() const;
    /// Frames accepted from the device since creation, low 32 bits. Any thread.
    UInt32 lengthInFrames() const { return static_cast<UInt32>(recordedLengthInFrames); }
    /// The same in bytes of the file's format, and in milliseconds at the file's rate.
    UInt64 lengthInBytes() const;
    UInt64 lengthInMilliSeconds() const;

    /// Frames that were accepted from the device, or missed by it, and are not in the file, as far as is known by
    /// now. Any thread.
    UInt64 droppedFrames() const;
    /// Buffers that were overtaken. Any thread.
    UInt32 overruns() const;
    /// Where something was lost, in order; the first 1024 places. Any thread.
    std::vector<QMXAudioRecordingLoss> lostFramePositions() const;

    /// The file once record() has made it, or the one that was given.
    const std::shared_ptr<QMXAudioFile>& audioFile() const { return _audioFile; }
    const std::shared_ptr<QMXAudioDevice>& inputDevice() const { return _inputDevice; }
    const std::shared_ptr<QMXAudioStreamBasicDescription>& inputDeviceStreamFormat() const { return _sourceFormat; }
    UInt32 inputDeviceID() const;
    /// The device's preferred channels for stereo, counted from 1, as they were when the recorder took the device; 1
    /// and 0xFFFFFFFF when it has none. The recording does not use them.
    UInt32 leftChannel() const { return leftChannel_; }
    UInt32 rightChannel() const { return rightChannel_; }

    // Answered by the file; 0, none or false before there is one.
    std::optional<std::string> audioFilePath() const;
    std::shared_ptr<QMXAudioStreamBasicDescription> fileStreamFormat() const;
    Float64 sampleRate() const;
    UInt32 formatID() const;
    std::optional<std::string> formatIDName() const;
    UInt32 formatFlags() const;
    UInt32 bytesPerPacket() const;
    UInt32 framesPerPacket() const;
    UInt32 bytesPerFrame() const;
    UInt32 channelsPerFrame() const;
    UInt32 bitsPerChannel() const;
    bool moveToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler);
    bool copyToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler);
    std::string dumpDebugInfo() const;

    // --- What the recorder's threads do ------------------------------------------------------------------------------

    /// Takes in a cycle. I/O threads. Always 0.
    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& device, const AudioTimeStamp* inNow, const AudioBufferList* inInputData,
        const AudioTimeStamp* inInputTime, AudioBufferList* outOutputData, const AudioTimeStamp* inOutputTime,
        QMXAudioDevice& inClientData) override;
    /// Copies bytes into the buffers; a buffer that becomes full goes to the saving thread. False, with a length of
    /// 0, when the recorder ends or has no buffers. I/O threads, one at a time.
    bool insertIntoBuffer_length(const void* bytes, UInt32* length);
    /// Hands a notification to the main thread; the frame notification in every so many-th call only, and that on I/O
    /// threads only.
    void notifyCallback(std::string_view notificationName);
    /// Posts a notification from the recorder.
    void threadCallback(const std::string& notificationName);

private:
    QMXAudioRecorder();
    static void destroy(QMXAudioRecorder* recorder);
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
    std::unique_ptr<RawBuffers> rawByteBuffer;
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
    std::unique_ptr<RecordingLosses> losses_;
    std::optional<Float64> nextSampleTime_; // the I/O thread's
    Float64 deviceRate_ = 0;
    UInt32 deviceChannels_ = 0; // when its stream format was told
    std::shared_ptr<qmx::Object> rateObserver_;
    std::shared_ptr<qmx::Object> deviceListObserver_;
    std::unique_ptr<qmx::LastFailure> failure_;
    std::atomic<bool> failureIsTold_{false};
    std::optional<qmx::RealTimeNotification> failed_;
    std::optional<qmx::RealTimeNotification> recordedFrame_;
    std::optional<qmx::Worker> savingWorker_;
    qmx::Thread savingThread_;
};
