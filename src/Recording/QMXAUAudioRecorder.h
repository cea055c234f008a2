// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/AudioToolbox/AudioFile.h>
#include <QMXCoreAudio/AudioUnit/AudioUnit.h>
#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

class QMXAudioStreamBasicDescription;
class QMXAudioValueRange;
class QMXExtAudioFile;
class QMXSoftwareVolumeControl;
class QMXVUMeterData;

/// Records what an input device captures into an audio file of any type and coding that can be written, through an
/// audio unit: its input callback hands each slice to the extended audio file, which converts and writes on a thread of
/// the platform's, with four seconds of room for a disk that stalls. One recorder makes one file: start and pause, as
/// often as wanted, then stop. A file whose process is killed meanwhile opens, without the last second of what was
/// captured at most; compressed CAF does not.
///
/// The client format is two channels of floats at the rate that the device had when it was taken; channels that the
/// device has beyond them are left out unless setInputChannelMap says otherwise. A failing render or write is printed
/// and the recording goes on, as intended: the request to stop goes to a recorder that nobody fills in.
///
/// Notifications are those of QMXAudioRecorder.h: stopped, which bit 2 of the event mask selects (none is selected at
/// first), then that of the meter's stop; recorded frames, which the recorder itself does not request; and failed, once
/// per recorder, when a write fails for good, whatever the mask says.
///
/// Main thread, where nothing else is said. The last reference stops, without notifications. The factories alone make
/// recorders.
class QMX_EXPORT QMXAUAudioRecorder : public qmx::Object, public std::enable_shared_from_this<QMXAUAudioRecorder>
{
public:
    /// A recorder without a device and path, whose unit performBasicSetup sets up once the device is named. This and
    /// the others are null only without memory.
    static std::shared_ptr<QMXAUAudioRecorder> init();
    /// A recorder whose unit is set up on a device. What fails is in lastStatus().
    static std::shared_ptr<QMXAUAudioRecorder> initWithInputDevice(const std::shared_ptr<QMXAudioDevice>& device);
    static std::shared_ptr<QMXAUAudioRecorder>
    initWithInputDevice_outputPath(const std::shared_ptr<QMXAudioDevice>& device, const std::string& path);
    /// The same, and creates the file. One that exists is left as it is and is not recorded into.
    static std::shared_ptr<QMXAUAudioRecorder>
    initWithInputDevice_outputPath_fileType_fileStreamFormat(const std::shared_ptr<QMXAudioDevice>& device,
                                                             const std::string& path, AudioFileTypeID fileType,
                                                             const QMXAudioStreamBasicDescription& format);

    // --- Settings ----------------------------------------------------------------------------------------------------
    // The file is created as soon as device, path and format are known, once: what is set later does not reach it.

    virtual void setOutputPath(const std::string& path) = 0;
    /// AIFF at first. Stored only.
    virtual void setFileType(AudioFileTypeID fileType) = 0;
    /// Takes the format; the type is not stored, as intended.
    virtual void setFileType_withFileStreamFormat(AudioFileTypeID fileType,
                                                  const QMXAudioStreamBasicDescription& format) = 0;
    virtual void setFileStreamFormat(const QMXAudioStreamBasicDescription& format) = 0;
    /// Also while it records, which goes on there.
    virtual void setInputDevice(const std::shared_ptr<QMXAudioDevice>& device) = 0;
    /// Has the device deliver a format.
    virtual void setAudioStreamFormat(const QMXAudioStreamBasicDescription& format) = 0;
    /// Bits per second, saturated to 32 bits. Stored only.
    virtual void setBitRate(Float64 bitsPerSecond) = 0;
    virtual UInt32 bitRate() const = 0;
    /// Which channel of the device, counted from 0, each recorded channel comes from; -1 for silence. As many channels
    /// are recorded as it has entries. {2, 3} records channels 3 and 4 of an interface. An empty map, as at first,
    /// records the first two, or as many as the file was made for. kAudioUnitErr_InvalidPropertyValue, and nothing
    /// changes, for channels that the device does not have, and once the file exists for another number of entries than
    /// it was made for.
    [[nodiscard]] virtual OSStatus setInputChannelMap(const std::vector<SInt32>& map) = 0;

    /// Bit 2: stopped. 0 at first. Any thread.
    virtual void setEventMask(UInt32 mask) = 0;
    virtual UInt32 eventMask() const = 0;
    /// Every how many requests the recorded-frame notification is posted; 0 counts as 1. Any thread.
    virtual void setNotificationInterval(UInt32 interval) = 0;
    virtual UInt32 notificationInterval() const = 0;

    // --- Control -----------------------------------------------------------------------------------------------------

    /// Starts, or goes on after a pause. On failure the stopped notification is posted.
    virtual OSStatus start() = 0;
    /// 0, and nothing is posted, when it does not record.
    virtual OSStatus pause() = 0;
    /// Pauses, and closes the file when all that was captured is written. The status of closing: that of the first
    /// write that failed. A closed file is not opened again.
    virtual OSStatus stop() = 0;
    /// Whether the unit runs.
    virtual bool isRecording() const = 0;

    // --- State -------------------------------------------------------------------------------------------------------

    /// Frames of the client format that the device captured, or lost, and that were not handed to the file. Any thread.
    virtual UInt64 droppedFrames() const = 0;
    /// The status of what failed first in the last operation, or, where nothing did, of the first slice that was lost
    /// on the render thread since the recorder was made; 0 when nothing did.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people that names the file or device, empty when nothing failed.
    virtual std::string lastError() const = 0;

    /// The file, which exists once everything for it is known.
    virtual const std::shared_ptr<QMXExtAudioFile>& audioFile() const = 0;
    virtual const std::shared_ptr<QMXAudioDevice>& inputDevice() const = 0;
    virtual const std::shared_ptr<QMXVUMeterData>& meterData() const = 0;             ///< not filled by recording
    virtual const std::shared_ptr<QMXSoftwareVolumeControl>& gainControl() const = 0; ///< not applied by recording

    static QMXAudioDeviceList& supportedInputDevices();
    virtual std::vector<std::shared_ptr<QMXAudioStreamBasicDescription>> supportedAudioStreamFormats() const = 0;
    virtual std::vector<std::shared_ptr<QMXAudioValueRange>> supportedSampleRates() const = 0;
    /// For each bit rate at which the file's format can be encoded: the channels times it, in thousands. Null where the
    /// platform cannot tell.
    virtual std::shared_ptr<std::vector<Float64>> supportedBitRates() const = 0;
    /// Always null.
    static std::shared_ptr<std::vector<Float64>>
    supportedQualitySettingsForFormat(const QMXAudioStreamBasicDescription& format);

    // --- The unit ----------------------------------------------------------------------------------------------------
    // Each reports what fails and goes on; the result is the status of the last step that failed.

    /// Sets the unit up, unless it is initialised.
    virtual OSStatus performBasicSetup() = 0;
    virtual OSStatus setupInputUnit() = 0;
    virtual OSStatus setupInputUnitWithDevice() = 0;
    virtual OSStatus setupCallback() = 0;
    virtual OSStatus setupAudioFormats() = 0;
    /// Creates the file, once, when all that it takes is known; 0 before that and afterwards.
    virtual OSStatus configureOutputFile() = 0;
    virtual OSStatus initializeInputUnit() = 0;
    virtual OSStatus uninitializeInputUnit() = 0;

    /// Puts frames through the gain control. Always 0.
    virtual OSStatus processAudio_timeStamp_busNumber_numberOfFrames_data(AudioUnitRenderActionFlags* flags,
                                                                          const AudioTimeStamp* timeStamp,
                                                                          UInt32 busNumber, UInt32 numberOfFrames,
                                                                          AudioBufferList* data) = 0;
    /// Hands a notification to the main thread; the recorded-frame notification by its interval. Any thread.
    virtual void notifyCallback(std::string_view notificationName) = 0;
    /// Posts a notification from the recorder.
    virtual void threadCallback(const std::string& notificationName) = 0;

private:
    class Implementation;
    QMXAUAudioRecorder() = default;
};
