// SPDX-License-Identifier: MIT
#pragma once

#include "Devices/QMXCoreAudioIOSubscriber.h"
#include "Foundation/Export.h"
#include "Foundation/Files/FileManager.h"
#include "Foundation/Object.h"
#include "Recording/QMXAudioRecordingLoss.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class QMXAudioDevice;
class QMXAudioFile;
class QMXAudioStreamBasicDescription;

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
/// The last reference stops as stop() does, without notifications. The factories alone make recorders: nothing else
/// derives from this class.
///
/// Main thread, where nothing else is said.
class QMX_EXPORT QMXAudioRecorder : public qmx::Object,
                                    public QMXCoreAudioIOSubscriber,
                                    public std::enable_shared_from_this<QMXAudioRecorder>
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

    /// Where record() makes "audiotemp.aif" when no path was set; "/tmp/" at first. It ends with a slash.
    static void setTemporaryDirectory(const std::string& directory);

    // --- Settings ----------------------------------------------------------------------------------------------------

    /// For the file that record() makes. An existing file is overwritten from the start, in its own format; what it
    /// holds past the end of the recording stays.
    virtual void setAudioFilePath(const std::string& path) = 0;
    void setAudioFilePath_withFileStreamFormat(const std::string& path, const QMXAudioStreamBasicDescription& format);
    /// Which format the device's bytes have; copied. Null is ignored.
    virtual void setDeviceStreamFormat(const std::shared_ptr<QMXAudioStreamBasicDescription>& format) = 0;
    /// The file's format; a copy is kept, made big-endian where it is float or signed. Its rate may differ from the
    /// device's. It does not reach a file that exists already or was given: what is written is converted to the
    /// format of the open file. Always true.
    virtual bool setFileStreamFormat(const QMXAudioStreamBasicDescription& format) = 0;
    /// Stops, and turns to another device and its formats. Null is ignored.
    virtual void setInputDevice(const std::shared_ptr<QMXAudioDevice>& device) = 0;

    /// Which notifications are posted, by bits: 1 started, 2 stopped, 4 frames, 8 paused; all at first. Any thread.
    virtual void setEventMask(UInt32 mask) = 0;
    virtual UInt32 eventMask() const = 0;
    /// The frame notification is asked for every `interval` cycles, starting with the first; 0 counts as 1. Any thread.
    virtual void setNotificationInterval(UInt32 interval) = 0;

    /// Whether stop() writes the rest: the buffer that is being filled, and what the rate conversion holds (some 30
    /// ms). Off at first: the rest is lost then, and counted as such.
    virtual void setWritesPartialBufferAtStop(bool writes) = 0;
    virtual bool writesPartialBufferAtStop() const = 0;
    /// So many full buffers more may wait for a disk that stalls, each 384 KiB of memory; none at first. False,
    /// without a change, for more than 1024, once recording has begun, or without memory.
    [[nodiscard]] virtual bool setSpareRawBuffers(UInt32 count) = 0;
    virtual UInt32 spareRawBuffers() const = 0;

    // --- Control -----------------------------------------------------------------------------------------------------

    /// Starts, or goes on after a pause; makes and opens the file. True means that the device was asked to run, not
    /// that it does, nor that the file is open: lastStatus() and QMXAudioRecorderFailedNotification tell. False when
    /// it records and after a stop. False too, before a byte is written and with the reason in lastError(), without
    /// memory for the buffers, on a device that is gone or has other channels than when its stream format was set,
    /// and for a file whose format the samples cannot be converted to; the state is then as before.
    [[nodiscard]] virtual bool record() = 0;
    /// Stops by itself after so many seconds; record() is to be called too. False for a time that is not finite.
    [[nodiscard]] virtual bool recordForDuration(double seconds) = 0;
    /// False unless it records.
    [[nodiscard]] virtual bool pause() = 0;
    /// Ends the recording and closes the file; waits until all full buffers are written, however long the disk takes.
    /// The device is stopped once more even after a pause, as intended: that takes back the start of somebody else,
    /// such as a meter, on the same device object. False unless it records or pauses.
    [[nodiscard]] virtual bool stop() = 0;
    /// After stop(): hands the buffer that was being filled to the saving thread, whose write the closed file
    /// refuses, as intended. True the first time only.
    [[nodiscard]] virtual bool flush() = 0;

    // --- State -------------------------------------------------------------------------------------------------------

    /// Whether record() was called last; also while the file or the device fails.
    virtual bool isRecording() const = 0;
    /// The status of what failed last since record() began the recording or refused to: the recording itself, or
    /// another operation that was false for a reason other than the recorder's state; 0 when nothing did. Any thread.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people that names the file or device, empty when nothing failed. Any thread.
    virtual std::string lastError() const = 0;
    /// Frames accepted from the device since creation, low 32 bits. Any thread.
    virtual UInt32 lengthInFrames() const = 0;
    /// The same in bytes of the file's format, and in milliseconds at the file's rate.
    virtual UInt64 lengthInBytes() const = 0;
    virtual UInt64 lengthInMilliSeconds() const = 0;

    /// Frames that were accepted from the device, or missed by it, and are not in the file, as far as is known by
    /// now. Any thread.
    virtual UInt64 droppedFrames() const = 0;
    /// Buffers that were overtaken. Any thread.
    virtual UInt32 overruns() const = 0;
    /// Where something was lost, in order; the first 1024 places. Any thread.
    virtual std::vector<QMXAudioRecordingLoss> lostFramePositions() const = 0;

    /// The file once record() has made it, or the one that was given.
    virtual const std::shared_ptr<QMXAudioFile>& audioFile() const = 0;
    virtual const std::shared_ptr<QMXAudioDevice>& inputDevice() const = 0;
    virtual const std::shared_ptr<QMXAudioStreamBasicDescription>& inputDeviceStreamFormat() const = 0;
    UInt32 inputDeviceID() const;
    /// The device's preferred channels for stereo, counted from 1, as they were when the recorder took the device; 1
    /// and 0xFFFFFFFF when it has none. The recording does not use them.
    virtual UInt32 leftChannel() const = 0;
    virtual UInt32 rightChannel() const = 0;

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
    [[nodiscard]] bool moveToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler);
    [[nodiscard]] bool copyToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler);
    std::string dumpDebugInfo() const;

    // --- What the recorder's threads do ------------------------------------------------------------------------------

    /// Takes in a cycle. I/O threads. Always 0.
    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& device, const AudioTimeStamp* inNow, const AudioBufferList* inInputData,
        const AudioTimeStamp* inInputTime, AudioBufferList* outOutputData, const AudioTimeStamp* inOutputTime,
        QMXAudioDevice& inClientData) override = 0;
    /// Copies bytes into the buffers; a buffer that becomes full goes to the saving thread. False, with a length of
    /// 0, when the recorder ends or has no buffers. I/O threads, one at a time.
    [[nodiscard]] virtual bool insertIntoBuffer_length(const void* bytes, UInt32* length) = 0;
    /// Hands a notification to the main thread; the frame notification in every so many-th call only, and that on I/O
    /// threads only.
    virtual void notifyCallback(std::string_view notificationName) = 0;
    /// Posts a notification from the recorder.
    void threadCallback(const std::string& notificationName);

private:
    class Implementation;
    QMXAudioRecorder() = default;
};
