// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Devices/QMXCoreAudioIOSubscriber.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Files/FileManager.h>
#include <QMXCoreAudio/Foundation/Object.h>
#include <QMXCoreAudio/Recording/QMXAudioRecordingLoss.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class QMXAudioDevice;
class QMXAudioFile;
class QMXAudioStreamBasicDescription;

/// Sent by the recorder; each value is the constant's own name. At most one frame notification waits for the main
/// thread: others that come meanwhile are dropped.
QMX_EXPORT extern const char* const QMXAudioRecorderStartedRecordingNotification;
QMX_EXPORT extern const char* const QMXAudioRecorderStoppedRecordingNotification;
QMX_EXPORT extern const char* const QMXAudioRecorderRecordedFrameNotification;
QMX_EXPORT extern const char* const QMXAudioRecorderPausedRecordingNotification;
/// Posted once per recording, whatever the event mask says, when part of it fails: the file cannot be opened or
/// created, the device does not start or is gone, a conversion or a write fails. lastError() says which. The recorder
/// still counts as recording until it is stopped.
QMX_EXPORT extern const char* const QMXAudioRecorderFailedNotification;

/// Records what an input device captures into an audio file. The device's I/O thread only copies the bytes of the first
/// input stream into buffers of 384 KiB; the recorder's saving thread converts each full one to the file's format and
/// writes it. One recorder makes one recording: record and pause, as often as wanted, then stop.
///
/// By default the bytes of the buffer that is being filled are not written at the stop (up to 384 KiB, about a second
/// of stereo at 48000 Hz), and a disk that stalls for longer than a buffer's time costs whole buffers. Both can be
/// switched off: setWritesPartialBufferAtStop, setSpareRawBuffers. What was lost is counted and listed.
///
/// The file is valid at every moment and holds the buffers written so far, even after a full disk, the loss of the
/// device or a kill. A failed conversion loses its buffer, a failed write the part that did not fit; the recording goes
/// on. While recording, the device keeps the recorder alive: stop it. A device that does not start or is gone no longer
/// does.
///
/// Releasing the last reference stops the recording as stop() does, without notifications. Recorders come from the
/// factories only: do not derive from this class.
///
/// Main thread unless noted.
class QMX_EXPORT QMXAudioRecorder : public qmx::Object,
                                    public QMXCoreAudioIOSubscriber,
                                    public std::enable_shared_from_this<QMXAudioRecorder>
{
public:
    /// A recorder on a device that it keeps alive; the file's format is the device's physical one, big-endian. Null
    /// without a device, and if the system has no thread left.
    static std::shared_ptr<QMXAudioRecorder> initWithAudioDevice(const std::shared_ptr<QMXAudioDevice>& device);
    /// The same for a file that record() creates; null without a path.
    static std::shared_ptr<QMXAudioRecorder> initWithAudioDevice_filePath(const std::shared_ptr<QMXAudioDevice>& device,
                                                                          const std::optional<std::string>& path);
    /// The same for a file object, which is closed and given the recorder's file format, but keeps its mode. The format
    /// sets its type to AIFF or AIFF-C: set another type afterwards. A WAVE file that record() creates is
    /// little-endian; open it before for another byte order.
    static std::shared_ptr<QMXAudioRecorder>
    initWithAudioDevice_audioFile(const std::shared_ptr<QMXAudioDevice>& device,
                                  const std::shared_ptr<QMXAudioFile>& file);

    /// The directory in which record() creates "audiotemp.aif" when no path was set; "/tmp/" by default. It ends with a
    /// slash.
    static void setTemporaryDirectory(const std::string& directory);

    // --- Settings ----------------------------------------------------------------------------------------------------

    /// The path of the file that record() creates. An existing file is overwritten from the start, in its own format;
    /// what it holds past the end of the recording stays.
    virtual void setAudioFilePath(const std::string& path) = 0;
    void setAudioFilePath_withFileStreamFormat(const std::string& path, const QMXAudioStreamBasicDescription& format);
    /// The format of the device's bytes; copied. Null is ignored.
    virtual void setDeviceStreamFormat(const std::shared_ptr<QMXAudioStreamBasicDescription>& format) = 0;
    /// The file's format; a copy is kept, made big-endian if it is float or signed. Its rate may differ from the
    /// device's. It does not affect a file that exists already or was given: what is written is converted to the format
    /// of the open file. Always true.
    virtual bool setFileStreamFormat(const QMXAudioStreamBasicDescription& format) = 0;
    /// Stops, then changes to another device and its formats. Null is ignored.
    virtual void setInputDevice(const std::shared_ptr<QMXAudioDevice>& device) = 0;

    /// Which notifications are posted, by bits: 1 started, 2 stopped, 4 frames, 8 paused; all by default. Any thread.
    virtual void setEventMask(UInt32 mask) = 0;
    virtual UInt32 eventMask() const = 0;
    /// The frame notification is posted every `interval` cycles, starting with the first; 0 counts as 1. Any thread.
    virtual void setNotificationInterval(UInt32 interval) = 0;

    /// Whether stop() writes the rest: the buffer that is being filled, and what the rate conversion holds (some 30
    /// ms). Off by default: the rest is then lost, and counted as lost.
    virtual void setWritesPartialBufferAtStop(bool writes) = 0;
    virtual bool writesPartialBufferAtStop() const = 0;
    /// Up to `count` more full buffers may wait for a disk that stalls, each 384 KiB of memory; none by default. False,
    /// without a change, for more than 1024, once recording has started, or without memory.
    [[nodiscard]] virtual bool setSpareRawBuffers(UInt32 count) = 0;
    virtual UInt32 spareRawBuffers() const = 0;

    // --- Control -----------------------------------------------------------------------------------------------------

    /// Starts, or continues after a pause; creates and opens the file. True means that the device was asked to run, not
    /// that it does, nor that the file is open: lastStatus() and QMXAudioRecorderFailedNotification report that. False
    /// while recording and after a stop. Also false, before a byte is written and with the reason in lastError(),
    /// without memory for the buffers, on a device that is gone or has other channels than when its stream format was
    /// set, and for a file whose format the samples cannot be converted to; the state then stays as before.
    [[nodiscard]] virtual bool record() = 0;
    /// Sets a timer that stops the recording after `seconds`; call record() too. False for a time that is not finite.
    [[nodiscard]] virtual bool recordForDuration(double seconds) = 0;
    /// Takes back the start of the device; record() continues the recording. False unless recording.
    [[nodiscard]] virtual bool pause() = 0;
    /// Ends the recording and closes the file; waits until all full buffers are written, however long the disk takes.
    /// The device is stopped once more even after a pause, as intended: that takes back the start of another user of
    /// the same device object, such as a meter. False unless recording or paused.
    [[nodiscard]] virtual bool stop() = 0;
    /// After stop(): hands the buffer that was being filled to the saving thread, whose write the closed file refuses,
    /// as intended. True the first time only.
    [[nodiscard]] virtual bool flush() = 0;

    // --- State -------------------------------------------------------------------------------------------------------

    /// Whether record() was called last; also while the file or the device fails.
    virtual bool isRecording() const = 0;
    /// The status of the last failure since record() started the recording or refused to: of the recording itself, or
    /// of another operation that was false for a reason other than the recorder's state; 0 if nothing failed. Any
    /// thread.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people that names the file or device, empty when nothing failed. Any thread.
    virtual std::string lastError() const = 0;
    /// Frames accepted from the device since creation, low 32 bits. Any thread.
    virtual UInt32 lengthInFrames() const = 0;
    /// The same in bytes of the file's format, and in milliseconds at the file's rate.
    virtual UInt64 lengthInBytes() const = 0;
    virtual UInt64 lengthInMilliSeconds() const = 0;

    /// Frames that were accepted from the device, or missed, and are not in the file, as far as is known by now. Any
    /// thread.
    virtual UInt64 droppedFrames() const = 0;
    /// Full buffers that were lost because saving was too slow. Any thread.
    virtual UInt32 overruns() const = 0;
    /// Places where something was lost, in order; the first 1024. Any thread.
    virtual std::vector<QMXAudioRecordingLoss> lostFramePositions() const = 0;

    /// The file: the one that was given, or the one that record() created.
    virtual const std::shared_ptr<QMXAudioFile>& audioFile() const = 0;
    virtual const std::shared_ptr<QMXAudioDevice>& inputDevice() const = 0;
    virtual const std::shared_ptr<QMXAudioStreamBasicDescription>& inputDeviceStreamFormat() const = 0;
    UInt32 inputDeviceID() const;
    /// The device's preferred channels for stereo, counted from 1, as they were when the device was set; 1 and
    /// 0xFFFFFFFF when it has none. The recording does not use them.
    virtual UInt32 leftChannel() const = 0;
    virtual UInt32 rightChannel() const = 0;

    // Queries of the file; 0, none or false before there is one.
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
    [[nodiscard]] bool moveToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler);
    [[nodiscard]] bool copyToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler);
    std::string dumpDebugInfo() const;

    // --- What the recorder's threads do ------------------------------------------------------------------------------

    /// Records a cycle. I/O threads. Always 0.
    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& device, const AudioTimeStamp* inNow, const AudioBufferList* inInputData,
        const AudioTimeStamp* inInputTime, AudioBufferList* outOutputData, const AudioTimeStamp* inOutputTime,
        QMXAudioDevice& inClientData) override = 0;
    /// Copies bytes into the buffers; a buffer that becomes full goes to the saving thread. False, with a length of 0,
    /// for null bytes, without buffers and while the recorder is being destroyed. I/O threads, one at a time.
    [[nodiscard]] virtual bool insertIntoBuffer_length(const void* bytes, UInt32* length) = 0;
    /// Hands a notification to the main thread; the frame notification only in every `interval`-th call, and only on
    /// I/O threads.
    virtual void notifyCallback(std::string_view notificationName) = 0;
    /// Posts a notification from the recorder.
    void threadCallback(const std::string& notificationName);

private:
    class Implementation;
    QMXAudioRecorder() = default;
};
