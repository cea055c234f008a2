// SPDX-License-Identifier: MIT
// The virtual hardware: devices that exist in this process only, and the object that controls them. For machines
// without a sound card, for tests and for examples. Programs use its devices through AudioHardware.h like any others.
#pragma once

#include <QMXCoreAudio/CoreAudio/AudioHardware.h>
#include <QMXCoreAudio/CoreAudio/DeviceDescription.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace qmx
{

class VirtualBackend;

/// Supplies an input: fills `frames` x `channels` interleaved samples (all channels of the device's input streams, in
/// order). `firstFrame` is the device's sample time of the first frame. Called on the I/O thread, in real time.
using VirtualInput = std::function<void(Float32* samples, UInt32 frames, UInt32 channels, SInt64 firstFrame)>;
/// Receives what an output plays, after volume and mute, in the same layout. Called on the I/O thread, in real time.
using VirtualOutput = std::function<void(const Float32* samples, UInt32 frames, UInt32 channels, SInt64 firstFrame)>;

/// Calls that fail, and how. A member without a value matches every call. Removing a listener or a procedure returns
/// the status but takes effect all the same, so that nothing is called that its owner has freed.
struct VirtualFault {
    OSStatus status = kAudioHardwareUnspecifiedError;
    std::optional<HardwareOperation> operation;
    std::optional<UInt32> object; ///< a device or stream ID; 0 for the system
    std::optional<UInt32> property;
    std::optional<UInt32> channel;
    std::optional<bool> isInput;
    UInt32 passes = 0;                                 ///< matching calls that succeed first
    UInt32 times = std::numeric_limits<UInt32>::max(); ///< matching calls after them that fail
};

/// How the virtual hardware's time passes.
enum class VirtualTime {
    real, ///< with the host's monotonic clock
    fast, ///< as fast as the program can follow: while a device runs, each cycle starts when the library's threads have
          ///< done all the work that the previous one caused
    manual ///< only by advance()
};

/// Two devices that were made together.
struct VirtualPair {
    AudioDeviceID input = kAudioDeviceUnknown;
    AudioDeviceID output = kAudioDeviceUnknown;
};

/// All devices share one timeline, in nanoseconds (that of AudioGetCurrentHostTime). Each device has its own clock on
/// it: its sample time starts at 0 when the device is added, and goes on whether the device runs or not. A cycle of N
/// frames at the sample time T has the input frames from T - N - (safety offset) and the output frames from
/// T + N + (safety offset) on. The first cycle comes N frames after the start.
///
/// Calls from any thread; advance(), advanceCycles() and settle() do nothing inside listeners and I/O procedures. Calls
/// that return a status return kAudioHardwareBadDeviceError for an unknown device.
class QMX_EXPORT VirtualHardware
{
public:
    /// The virtual hardware. Its first use makes it the backend if none is chosen yet. It starts in real time, with one
    /// stereo input and one stereo output that are looped together. Never destroyed.
    static VirtualHardware& shared();

    // --- Devices and defaults

    /// A description to start from: the usual properties, at 44100 Hz (of 44100, 48000, 88200 and 96000), 512 frames,
    /// 16-bit, 24-bit and float formats, per section one volume, one mute and two data sources, and one volume per
    /// channel. With 0 channels a direction is missing.
    static DeviceDescription standardDevice(const std::string& uid, const std::string& name, UInt32 inputChannels,
                                            UInt32 outputChannels);
    /// Plugs a device in and returns its ID. Rates and current formats that are missing or contradict each other are
    /// corrected. The first input (output) becomes the default one. Never fails.
    AudioDeviceID addDevice(const DeviceDescription& description);
    /// Unplugs a device and ends its I/O. If it was a default, the first added device that can be that default becomes
    /// it.
    [[nodiscard]] OSStatus removeDevice(AudioDeviceID device);
    /// Both in one change: listeners are first called for a list without the removed devices, and then for one with the
    /// added devices, which are not listed before. Returns the new IDs. Unknown IDs to remove are ignored.
    std::vector<AudioDeviceID> changeDevices(std::span<const AudioDeviceID> removed,
                                             std::span<const DeviceDescription> added);
    /// Adds an input and an output of `channels` channels that are looped together, "Virtual Input" and "Virtual
    /// Output". While such a pair exists, the names and UIDs of another one end in a number.
    VirtualPair addLoopbackPair(UInt32 channels = 2);
    /// Returns to the initial state, but without any device: no faults, no chosen defaults, no boot chime, and `time`
    /// from 0 on (from the host's clock in real time). Waits as settle() does.
    void reset(VirtualTime time = VirtualTime::manual);
    std::vector<AudioDeviceID> devices() const;

    /// Makes a device the default as the desktop would: `which` is 'dIn ', 'dOut' or 'sOut'. After kAudioDeviceUnknown
    /// there is none until one is chosen. kAudioHardwareIllegalOperationError for a device that cannot be the default.
    [[nodiscard]] OSStatus setDefaultDevice(AudioHardwarePropertyID which, AudioDeviceID device);
    /// Sets the boot chime's level, which most machines lack; without a value the machine lacks it again.
    void setBootChimeVolume(const std::optional<VolumeControl>& volume);

    // --- Properties

    /// The record that a device's properties are read from; empty for an unknown device.
    DeviceDescription description(AudioDeviceID device) const;
    /// Changes the record as the hardware would by itself: `edit` receives the current record, and listeners are called
    /// for what it changes. It must not call the hardware layer. If the device can no longer be a default, another one
    /// becomes it.
    [[nodiscard]] OSStatus change(AudioDeviceID device, const std::function<void(DeviceDescription&)>& edit);
    /// Announces a property of a device although nothing changed ('over' for an overload, say).
    [[nodiscard]] OSStatus announce(AudioDeviceID device, const PropertyAddress& address);
    /// The same for a property of the system.
    void announceHardware(AudioHardwarePropertyID property);

    /// Makes matching calls fail until removeFaults(). The first fault that matches decides.
    void addFault(const VirtualFault& fault);
    void removeFaults();

    // --- Sound

    /// Sets what an input captures from now on; an empty function is silence. Ends a loop to that input.
    [[nodiscard]] OSStatus setInput(AudioDeviceID device, VirtualInput input);
    /// The same with interleaved samples of `channels` channels, played from the next cycle on, either repeatedly or
    /// once and then silence. Channels beyond the device's are dropped, missing ones are silent.
    [[nodiscard]] OSStatus setInputSamples(AudioDeviceID device, std::vector<Float32> samples, UInt32 channels,
                                           bool repeats = false);
    /// The same with an audio file of up to 256 MiB of decoded samples, converted to the device's current rate. On
    /// failure the status of the audio file or converter, and the input is unchanged.
    [[nodiscard]] OSStatus setInputFile(AudioDeviceID device, const std::string& path, bool repeats = false);
    /// Sets the function that receives what an output plays; an empty function is none.
    [[nodiscard]] OSStatus setOutput(AudioDeviceID device, VirtualOutput output);
    /// Keeps what an output plays from now on, up to `maximumFrames` frames (allocated here). 0 keeps nothing.
    [[nodiscard]] OSStatus captureOutput(AudioDeviceID device, size_t maximumFrames);
    /// The samples kept since captureOutput(), interleaved. Frames that no cycle rendered (gaps) are left out.
    std::vector<Float32> capturedOutput(AudioDeviceID device) const;
    /// Loops an output to an input: the input captures what the output plays at the same instant, bit for bit if their
    /// clocks agree, otherwise the nearest frame.
    [[nodiscard]] OSStatus connect(AudioDeviceID output, AudioDeviceID input);

    // --- Clocks and time

    /// Sets how much faster than its nominal rate a device's clock goes from now on, in parts per million.
    [[nodiscard]] OSStatus setClockDrift(AudioDeviceID device, Float64 partsPerMillion);
    /// Changes how time passes. If the system has no thread left for fast time, that is logged and nothing changes.
    void setTime(VirtualTime time);
    VirtualTime time() const;
    /// The present on the timeline, in nanoseconds.
    UInt64 now() const;
    /// Lets time pass; does nothing unless time is manual. Runs the cycles that become due, of all devices in due order
    /// (at one instant in the order of their IDs), each on its device's own I/O thread, and returns when all have
    /// finished and every thread of the library waits for work.
    void advance(UInt64 nanoseconds);
    /// Advances until a device has run `cycles` more cycles; false if it stops before, is unknown, or time is not
    /// manual.
    [[nodiscard]] bool advanceCycles(AudioDeviceID device, UInt32 cycles = 1);
    /// Returns when all listeners of earlier changes have returned and every thread of the library waits for work.
    void settle();

    // --- What sound servers do

    /// Delays a device's I/O after each later start.
    [[nodiscard]] OSStatus setStartDelay(AudioDeviceID device, UInt64 nanoseconds);
    /// Gives a device's cycles `frames` frames (65536 at most) whatever the buffer frame size is; 0 returns to that
    /// size. Procedures are called with slices.
    [[nodiscard]] OSStatus setCycleFrames(AudioDeviceID device, UInt32 frames);
    /// Makes a device's sample time jump.
    [[nodiscard]] OSStatus jumpSampleTime(AudioDeviceID device, SInt64 frames);
    /// Leaves out the next cycles of a running device, while its time goes on, and announces 'over'.
    [[nodiscard]] OSStatus skipCycles(AudioDeviceID device, UInt32 cycles);
    /// The number of cycles that a device has run since it was added; 0 for an unknown device.
    UInt64 cycleCount(AudioDeviceID device) const;

private:
    explicit VirtualHardware(VirtualBackend& backend);
    ~VirtualHardware() = delete;
    VirtualBackend& backend_;
};

} // namespace qmx
