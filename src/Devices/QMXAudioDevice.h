// SPDX-License-Identifier: MIT
// Audio devices: which there are, what they can do and are set to, and the sound that goes in and out of them.
//
// Unless noted, operations may be called from any thread but the real-time ones. Notifications
// (Devices/QMXAudioDeviceNotifications.h) come on the main thread.
#pragma once

#include <QMXCoreAudio/CoreAudio/AudioHardware.h>
#include <QMXCoreAudio/CoreAudioTypes/AudioChannelLayout.h>
#include <QMXCoreAudio/Devices/LiveContainer.h>
#include <QMXCoreAudio/Devices/QMXAudioDeviceDelegate.h>
#include <QMXCoreAudio/Devices/QMXAudioDeviceNotifications.h>
#include <QMXCoreAudio/Devices/QMXAudioSubscription.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/HeapBlock.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QMXAudioDevice;
class QMXAudioStream;
class QMXAudioStreamBasicDescription;
class QMXAudioValueRange;
class QMXVUMeterDataProvider;
namespace qmx
{
class LastFailure;
struct PropertyBlock;
} // namespace qmx

using QMXAudioDeviceList = qmx::LiveContainer<std::vector<std::shared_ptr<QMXAudioDevice>>>;
using QMXAudioDeviceDictionary = qmx::LiveContainer<std::map<AudioDeviceID, std::shared_ptr<QMXAudioDevice>>>;
using QMXAudioSubscriberList = qmx::LiveContainer<std::vector<QMXAudioSubscription>>;

/// One audio device and, as a class, the process's registry of all devices. The first use of the class sets the
/// registry up; from then on it follows the hardware. It owns its devices. Releasing the last reference to a device
/// stops what was started through this object and returns when the cycle in flight has ended; inside an I/O or render
/// callback another thread does both. Devices come from the factories only: do not derive from this class.
class QMX_EXPORT QMXAudioDevice : public qmx::Object,
                                  public QMXCoreAudioIOSubscriber,
                                  public std::enable_shared_from_this<QMXAudioDevice>
{
public:
    // --- The registry ------------------------------------------------------------------------------------------------

    /// Sets up the registry; does nothing when it is up. Any other operation does this by itself.
    static void initialize();
    /// The sender of the notifications about the hardware as a whole.
    static std::shared_ptr<qmx::Object> classObject();

    /// Brings the registry in line with the hardware, as every change of the device list does by itself. When the
    /// hardware reports fewer devices than are registered, those that are gone are removed; otherwise new ones are
    /// added, and what vanished in the same change stays until the number falls. When the query itself fails, the
    /// registry stays as it is, and stays locked: every later refresh waits forever.
    static void initializeListOfDevices();

    /// The registered devices by ID. This and the lists are always the same objects and follow the hardware.
    static QMXAudioDeviceDictionary& allDevicesDictionary();
    /// The registered devices in the order in which they were first seen.
    static QMXAudioDeviceList& allDevicesArray();
    /// The registered devices that had input (output) streams when they were registered.
    static QMXAudioDeviceList& inputDevices();
    static QMXAudioDeviceList& outputDevices();

    /// The current default devices, queried from the hardware; null if there is none or it is not registered.
    static std::shared_ptr<QMXAudioDevice> defaultInputDevice();
    static std::shared_ptr<QMXAudioDevice> defaultOutputDevice();
    static std::shared_ptr<QMXAudioDevice> defaultSystemOutputDevice();
    /// Makes a device the default for input (output); returns the hardware's status.
    [[nodiscard]] static OSStatus setDefaultInputDevice(const QMXAudioDevice& device);
    [[nodiscard]] static OSStatus setDefaultOutputDevice(const QMXAudioDevice& device);

    /// The volume of the machine's start-up chime; 0.0 (null) if there is none.
    static Float32 bootChimeVolumeScalar();
    static Float32 bootChimeVolumeDecibels();
    static std::shared_ptr<QMXAudioValueRange> bootChimeVolumeRangeDecibels();

    /// A new object for a device, separate from the registry: its starts and its subscribers are its own.
    static std::shared_ptr<QMXAudioDevice> deviceWithDeviceID(AudioDeviceID deviceID);
    /// The same; null for an unknown UID.
    static std::shared_ptr<QMXAudioDevice> deviceWithDeviceUID(const std::string& uid);
    /// The device with that UID, 0xFFFFFFFF when there is none.
    static AudioDeviceID audioDeviceIDForUID(const std::string& uid);

    /// Called by the hardware's listener: refreshes the registry when the device list changed, then queues the change's
    /// notification for the main thread.
    static void hardwarePropertyDidChange_clientData(AudioHardwarePropertyID propertyID, void* clientData);
    /// Posts a notification from the class.
    static void threadCallbackForHardwarePropertyChanges(const std::string& notificationName);

    // --- Life --------------------------------------------------------------------------------------------------------

    /// An object for a device; it exists even when the device does not, which is logged and in lastStatus().
    static std::shared_ptr<QMXAudioDevice> initWithDeviceID(AudioDeviceID deviceID);
    /// The same; null for an unknown UID.
    static std::shared_ptr<QMXAudioDevice> initWithDeviceUID(const std::string& uid);

    virtual AudioDeviceID deviceID() const = 0;
    /// Whether a device with this ID is registered.
    bool isValid() const;
    /// "NAME by MANUFACTURER".
    std::string description() const override;
    /// All properties as a text of many lines.
    std::string printDeviceInfo();

    /// The status of the last failure in this object's last operation; 0 if nothing failed. Operations that run on
    /// several threads at once count as one.
    OSStatus lastStatus() const;
    /// The same as a sentence for people that names the device and the property or operation, empty when nothing
    /// failed.
    std::string lastError() const;

    // --- Properties --------------------------------------------------------------------------------------------------
    // Each call queries the hardware. A property that the device lacks reads as 0, 0.0, false, null or an empty list,
    // and lastStatus() reports it. Setters return whether the value was set. `isInput` selects the section; `channel`
    // is 0 for the whole section, or one of its channels, counted from 1. Returned blocks are null on failure and, like
    // those of QMXAudioDeviceUtils, followed by zeros.

    std::optional<std::string> deviceUID() const;
    /// Read once, then cached.
    virtual std::optional<std::string> name() const = 0;
    virtual std::optional<std::string> manufacturer() const = 0;

    bool isAlive() const;
    bool isRunning() const;
    bool canBeDefaultDevice() const;
    bool canBeDefaultSystemDevice() const;
    bool canBeInputDevice() const;
    bool canBeOutputDevice() const;
    bool isDefaultDevice(bool isInput) const;
    bool jackIsConnected(bool isInput) const;
    bool supportsMixing() const;

    bool hasVolumeControl_isInput(UInt32 channel, bool isInput) const;
    bool canSetVolumeDecibels_isInput(UInt32 channel, bool isInput) const;
    bool canSetVolumeScalar_isInput(UInt32 channel, bool isInput) const;
    Float32 volumeDecibels_isInput(UInt32 channel, bool isInput) const;
    /// 0.0 to 1.0.
    Float32 volumeScalar_isInput(UInt32 channel, bool isInput) const;
    [[nodiscard]] bool setVolumeDecibels_forChannel_isInput(Float32 decibels, UInt32 channel, bool isInput);
    [[nodiscard]] bool setVolumeScalar_forChannel_isInput(Float32 scalar, UInt32 channel, bool isInput);
    std::shared_ptr<QMXAudioValueRange> volumeRangeDecibels_isInput(UInt32 channel, bool isInput) const;
    /// What 0.0 on the first scale is on the other, for that channel: no value to convert is passed, as intended.
    Float32 volumeScalarToDecibels_isInput(UInt32 channel, bool isInput) const;
    Float32 volumeDecibelsToScalar_isInput(UInt32 channel, bool isInput) const;
    /// Whether the mute of the input, not of the output, can be set; this is intended.
    bool canMute() const;
    /// Sets the output's mute.
    [[nodiscard]] bool mute(bool isMuted);
    /// Whether the input is muted, whatever mute() set on the output; this is intended.
    bool isMuted() const;

    /// The IDs, UInt32 each, then a 0.
    qmx::HeapBlock dataSourceIDs(bool isInput) const;
    std::optional<std::string> dataSourceNameForID_isInput(UInt32 dataSourceID, bool isInput) const;
    /// In the order of the IDs up to the first 0; one without a name is "Unnamed data source N", counted from 0.
    std::vector<std::string> dataSourceNames(bool isInput) const;
    UInt32 currentDataSourceID(bool isInput) const;
    bool canSetCurrentDataSourceID(bool isInput) const;
    [[nodiscard]] bool setCurrentDataSourceID_isInput(UInt32 dataSourceID, bool isInput);
    std::optional<std::string> currentDataSourceName(bool isInput) const;

    /// Frames per second.
    Float64 nominalSampleRate(bool isInput) const;
    /// Frames per second, measured against the host's clock.
    Float64 actualSampleRate(bool isInput) const;
    std::vector<std::shared_ptr<QMXAudioValueRange>> availableNominalSampleRates(bool isInput) const;

    /// The actual format is what programs see of the stream that carries the channel, the physical one what its
    /// hardware is set to.
    bool canSetActualStreamFormat_isInput(UInt32 channel, bool isInput) const;
    bool canSetPhysicalStreamFormat_isInput(UInt32 channel, bool isInput) const;
    std::shared_ptr<QMXAudioStreamBasicDescription> actualStreamFormat_isInput(UInt32 channel, bool isInput) const;
    std::shared_ptr<QMXAudioStreamBasicDescription> physicalStreamFormat_isInput(UInt32 channel, bool isInput) const;
    [[nodiscard]] bool setActualStreamFormat_forChannel_isInput(const QMXAudioStreamBasicDescription& format,
                                                                UInt32 channel, bool isInput);
    [[nodiscard]] bool setPhysicalStreamFormat_forChannel_isInput(const QMXAudioStreamBasicDescription& format,
                                                                  UInt32 channel, bool isInput);
    std::vector<std::shared_ptr<QMXAudioStreamBasicDescription>> streamFormats_isInput(UInt32 channel,
                                                                                       bool isInput) const;
    /// The closest supported format; null if the hardware names none.
    std::shared_ptr<QMXAudioStreamBasicDescription>
    findMatchingStreamFormat_forChannel_isInput(const QMXAudioStreamBasicDescription& format, UInt32 channel,
                                                bool isInput) const;

    /// The IDs, AudioStreamID each, then a 0.
    qmx::HeapBlock streamIDs(bool isInput) const;
    /// New objects, in order; they keep the device alive.
    std::vector<std::shared_ptr<QMXAudioStream>> streams(bool isInput);
    UInt32 numberOfStreams(bool isInput) const;
    /// Of all streams together.
    UInt32 numberOfChannels(bool isInput) const;
    /// An AudioBufferList: one buffer per stream, without data.
    qmx::HeapBlock streamConfiguration(bool isInput) const;

    /// A kAudioDeviceTransportType code.
    UInt32 transportType(bool isInput) const;
    /// Frames.
    UInt32 latency(bool isInput) const;
    /// Bytes of one cycle.
    UInt32 bufferSize(bool isInput) const;
    /// Frames of one cycle.
    UInt32 bufferFrameSize(bool isInput) const;
    /// Frames.
    UInt32 safetyOffset(bool isInput) const;
    /// Two channel numbers, UInt32 each, counted from 1.
    qmx::HeapBlock preferredChannelsForStereo(bool isInput) const;
    /// An AudioChannelLayout.
    qmx::HeapBlock channelLayout(bool isInput) const;

    // Fields of the actual format of channel 0, queried on each call.
    Float64 sampleRate(bool isInput) const;
    AudioFormatID formatID(bool isInput) const;
    std::optional<std::string> formatIDName(bool isInput) const;
    AudioFormatFlags formatFlags(bool isInput) const;
    UInt32 bytesPerPacket(bool isInput) const;
    UInt32 framesPerPacket(bool isInput) const;
    UInt32 bytesPerFrame(bool isInput) const;
    UInt32 channelsPerFrame(bool isInput) const;
    UInt32 bitsPerChannel(bool isInput) const;

    // --- Input and output --------------------------------------------------------------------------------------------

    /// Adds one to the count of starts; the first starts the device. A device that fails to start is not counted, and
    /// lastStatus() reports it. Always true.
    virtual bool start() = 0;
    /// Takes one start back; the last stops the device, though the cycle in flight may go on. Does nothing without a
    /// start before. Always true.
    virtual bool stop() = 0;

    /// Calls the subscriber in each cycle, after those added before it; input subscribers come before output
    /// subscribers. Adding it again for the same direction changes nothing. The device owns its subscribers. A device
    /// that hands its buffers to this one, directly or through others, is refused, since buffers would go round
    /// forever; this is logged and in lastStatus().
    virtual void addAudioIOSubscriber_forInput(const std::shared_ptr<QMXCoreAudioIOSubscriber>& subscriber,
                                               bool isInput) = 0;
    /// Stops calling the subscriber. Waits for the calls in flight, except on real-time threads and inside an I/O or
    /// render callback, where the device releases the subscriber a little later. Any thread, real-time ones too. Hold
    /// no lock that a subscriber takes.
    virtual void removeAudioIOSubscriber_forInput(const QMXCoreAudioIOSubscriber& subscriber, bool isInput) = 0;
    /// Always the same object for a direction; lives as long as the device.
    virtual QMXAudioSubscriberList& audioSubscribersForInput(bool isInput) = 0;

    /// The device's level meter, made at the first call.
    virtual std::shared_ptr<QMXVUMeterDataProvider> inputVUMeterDataProvider() = 0;
    /// One meter for the whole process, made for the first device that is asked and bound to it, as intended. It meters
    /// that device's input, and has no device once that one is gone.
    std::shared_ptr<QMXVUMeterDataProvider> outputVUMeterDataProvider();

    /// Hands buffers to the device's subscribers as its own I/O does, with these arguments, so that the device can
    /// subscribe to another one. Works only while the device is started; a direction from which a subscriber was
    /// removed while others stayed is skipped until the next one is added. I/O and render threads. Always 0.
    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& device, const AudioTimeStamp* inNow, const AudioBufferList* inInputData,
        const AudioTimeStamp* inInputTime, AudioBufferList* outOutputData, const AudioTimeStamp* inOutputTime,
        QMXAudioDevice& inClientData) override = 0;

    // --- Changes of the device ---------------------------------------------------------------------------------------

    /// Owned; null for none.
    virtual void setDelegate(std::shared_ptr<QMXAudioDeviceDelegate> delegate) = 0;
    virtual std::shared_ptr<QMXAudioDeviceDelegate> delegate() const = 0;

    /// Called by the device's listener: queues the change's notification for the main thread. Properties without a
    /// notification are ignored.
    void devicePropertyDidChange_forChannel_isInput(AudioDevicePropertyID propertyID, UInt32 channel, bool isInput);
    /// Posts a notification from the device.
    void threadCallbackForDelegateMethods(const std::string& notificationName);

    // An application calls these on a notification; each calls the delegate's operation of the same name.
    void inputStreamFormatDidChange(const qmx::Notification& notification);
    void outputStreamFormatDidChange(const qmx::Notification& notification);
    void inputDataSourceDidChange(const qmx::Notification& notification);
    void outputDataSourceDidChange(const qmx::Notification& notification);
    void inputVolumeDidChange(const qmx::Notification& notification);
    void outputVolumeDidChange(const qmx::Notification& notification);

private:
    class Implementation;
    using DelegateMethod = void (QMXAudioDeviceDelegate::*)(const qmx::Notification&);

    QMXAudioDevice() = default;
    virtual qmx::LastFailure& failure() const = 0;
    /// The name used in messages; does not query the hardware.
    virtual std::string nameForPeople() const = 0;

    void tellDelegate(DelegateMethod method, const qmx::Notification& notification);
    void fail(OSStatus status, const std::string& what) const;
    OSStatus noted(OSStatus status, UInt32 propertyID, const char* verb) const;
    qmx::PropertyBlock read(AudioDevicePropertyID propertyID, UInt32 channel, bool isInput) const;
    UInt32 word(AudioDevicePropertyID propertyID, bool isInput) const;
    std::optional<std::string> text(AudioDevicePropertyID propertyID, bool isInput) const;
    std::shared_ptr<QMXAudioStreamBasicDescription> format(AudioDevicePropertyID propertyID, UInt32 channel,
                                                           bool isInput) const;
    bool canSet(AudioDevicePropertyID propertyID, UInt32 channel, bool isInput) const;
    template <class Value>
    bool set(AudioDevicePropertyID propertyID, UInt32 channel, bool isInput, const Value& value) const;
    bool setFormat(AudioDevicePropertyID propertyID, UInt32 channel, bool isInput,
                   const QMXAudioStreamBasicDescription& format) const;
};
