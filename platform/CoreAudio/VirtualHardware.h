// SPDX-License-Identifier: MIT
// The virtual hardware: devices that exist in this process only, and the hand that holds them. For machines without a
// sound card, for tests and for examples. Programs reach its devices through AudioHardware.h like any others.
#pragma once

#include "CoreAudio/AudioHardware.h"
#include "CoreAudio/DeviceDescription.h"

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

/// What an input captures: fills `frames` x `channels` interleaved samples (all channels of the device's input streams,
/// in order). `firstFrame` is the device's sample time. Runs on the I/O thread in real time.
using VirtualInput = std::function<void(Float32* samples, UInt32 frames, UInt32 channels, SInt64 firstFrame)>;
/// Receives what an output is given, after volume and mute, in the same layout. Runs on the I/O thread in real time.
using VirtualOutput = std::function<void(const Float32* samples, UInt32 frames, UInt32 channels, SInt64 firstFrame)>;

/// Calls that shall fail, and how. What is left out matches every call. A removal of a listener or a procedure gives
/// the status and is carried out all the same, so that nothing is called that its owner has freed.
struct VirtualFault {
    OSStatus status = kAudioHardwareUnspecifiedError;
    std::optional<HardwareOperation> operation;
    std::optional<UInt32> object; ///< a device or stream ID; 0 for the system
    std::optional<UInt32> property;
    std::optional<UInt32> channel;
    std::optional<bool> isInput;
    UInt32 passes = 0;                                 ///< matching calls that still succeed
    UInt32 times = std::numeric_limits<UInt32>::max(); ///< and those after them that fail
};

/// How the virtual hardware's time goes.
enum class VirtualTime {
    real,  ///< with the host's monotonic clock
    fast,  ///< as fast as the program can follow: while a device runs, each cycle comes when all that the one before
           ///< caused on the library's threads is done
    manual ///< only by advance()
};

/// Two devices that were made together.
struct VirtualPair {
    AudioDeviceID input = kAudioDeviceUnknown;
    AudioDeviceID output = kAudioDeviceUnknown;
};

/// All devices share one line of time, in nanoseconds (that of AudioGetCurrentHostTime). Each has a clock of its own
/// upon it: its sample time starts at 0 when the device is added and goes on whether it runs or not. A cycle of N
/// frames that comes at the sample time T has the input frames from T - N - (safety offset) and the output frames from
/// T + N + (safety offset) on. The first cycle comes N frames after the start.
///
/// Calls: any thread, but advance() and settle() not from listeners or I/O procedures. Unknown devices answer
/// kAudioHardwareBadDeviceError.
class QMX_EXPORT VirtualHardware
{
public:
    /// The virtual hardware; its first use makes it the backend, when none is chosen yet. It begins with one stereo
    /// input and one stereo output that are looped together, in real time. Never destroyed.
    static VirtualHardware& shared();

    // --- Devices and defaults

    /// A stereo device of this name and UID with the usual properties: 44100 Hz (of 44100, 48000, 88200 and 96000), 512
    /// frames, 16-bit, 24-bit and float formats, one volume and mute per section and one volume per channel, two data
    /// sources. A place to start a description from.
    static DeviceDescription standardDevice(const std::string& uid, const std::string& name, UInt32 inputChannels,
                                            UInt32 outputChannels);
    /// Plugs a device in. Rates and current formats that are missing or contradict each other are brought in line. The
    /// first input (output) becomes the default one. Never fails.
    AudioDeviceID addDevice(const DeviceDescription& description);
    /// Unplugs a device. Its I/O ends. A default that it was passes to the first added of those that can be it.
    [[nodiscard]] OSStatus removeDevice(AudioDeviceID device);
    /// Both in one change: listeners hear first of a list without those that went and then of one with those that came,
    /// in which they appear a little later. Returns the new IDs. Unknown IDs to remove are ignored.
    std::vector<AudioDeviceID> changeDevices(std::span<const AudioDeviceID> removed,
                                             std::span<const DeviceDescription> added);
    /// An input and an output of `channels` channels that are looped together, "Virtual Input" and "Virtual Output".
    /// While there is such a pair, the names and UIDs of another one end in a number.
    VirtualPair addLoopbackPair(UInt32 channels = 2);
    /// As at the beginning but without any device: everything unplugged, no faults, default controls gone, `time` at 0
    /// of its line (the host's clock in real time). Waits as settle() does.
    void reset(VirtualTime time = VirtualTime::manual);
    std::vector<AudioDeviceID> devices() const;

    /// Makes a device the default as the desktop would: `which` is 'dIn ', 'dOut' or 'sOut'. With kAudioDeviceUnknown
    /// there is none until one is chosen. kAudioHardwareIllegalOperationError for a device that cannot be it.
    [[nodiscard]] OSStatus setDefaultDevice(AudioHardwarePropertyID which, AudioDeviceID device);
    /// The boot chime's level, which most machines lack; nothing takes it away.
    void setBootChimeVolume(const std::optional<VolumeControl>& volume);

    // --- Properties

    /// The record that a device's properties are answered from; empty for an unknown device.
    DeviceDescription description(AudioDeviceID device) const;
    /// Changes any of it, as the hardware would by itself: `edit` gets the present record, and listeners hear of what
    /// it changed. It must not call the hardware layer. A default that the device can no longer be passes to another
    /// one.
    [[nodiscard]] OSStatus change(AudioDeviceID device, const std::function<void(DeviceDescription&)>& edit);
    /// Announces a property of a device although nothing changed ('over' for an overload, say).
    [[nodiscard]] OSStatus announce(AudioDeviceID device, const PropertyAddress& address);
    /// The same for a property of the system.
    void announceHardware(AudioHardwarePropertyID property);

    /// Makes matching calls fail, until removeFaults(). The first fault that matches decides.
    void addFault(const VirtualFault& fault);
    void removeFaults();

    // --- Sound

    /// What an input captures from now on; an empty function: silence. Ends a loop to that input.
    [[nodiscard]] OSStatus setInput(AudioDeviceID device, VirtualInput input);
    /// The same from interleaved samples of `channels` channels, from the next cycle on, once or again and again; then
    /// silence. Channels beyond the device's are dropped, missing ones silent.
    [[nodiscard]] OSStatus setInputSamples(AudioDeviceID device, std::vector<Float32> samples, UInt32 channels,
                                           bool repeats = false);
    /// The same from an audio file of up to 256 MiB of decoded samples, converted to the device's present rate.
    /// Otherwise the status of the audio file or converter that failed; the input is then unchanged.
    [[nodiscard]] OSStatus setInputFile(AudioDeviceID device, const std::string& path, bool repeats = false);
    /// Who receives what an output is given; an empty function: nobody.
    [[nodiscard]] OSStatus setOutput(AudioDeviceID device, VirtualOutput output);
    /// Keeps what an output is given from now on, up to `maximumFrames` (room for them is made here). 0: keeps nothing.
    [[nodiscard]] OSStatus captureOutput(AudioDeviceID device, size_t maximumFrames);
    /// What was kept since, interleaved. Frames that were never asked for (gaps) are not in it.
    std::vector<Float32> capturedOutput(AudioDeviceID device) const;
    /// Loops an output to an input: what the output plays at an instant is what the input captures then; bit for bit
    /// when their clocks agree, nearest frame otherwise.
    [[nodiscard]] OSStatus connect(AudioDeviceID output, AudioDeviceID input);

    // --- Clocks and time

    /// How much faster than true a device's clock goes, in parts per million, from now on.
    [[nodiscard]] OSStatus setClockDrift(AudioDeviceID device, Float64 partsPerMillion);
    /// Fast time is not begun where the system has no thread left for it, which is logged.
    void setTime(VirtualTime time);
    VirtualTime time() const;
    /// The line's present, in nanoseconds.
    UInt64 now() const;
    /// In manual time: lets so much time pass. Runs the cycles that are due in it, of all devices in due order (at one
    /// instant: in the order of their IDs), each on its device's own I/O thread, and returns when all have finished and
    /// every thread of the library waits for work. Otherwise does nothing.
    void advance(UInt64 nanoseconds);
    /// Advances until a device has run `cycles` more cycles; false when it stopped (or is unknown) before.
    [[nodiscard]] bool advanceCycles(AudioDeviceID device, UInt32 cycles = 1);
    /// Returns when all listeners of earlier changes have returned and every thread of the library waits for work.
    void settle();

    // --- What sound servers do

    /// A device's I/O begins so much later than its start.
    [[nodiscard]] OSStatus setStartDelay(AudioDeviceID device, UInt64 nanoseconds);
    /// The cycles of a device have `frames` frames, whatever the buffer frame size; 0: as many as that. Procedures see
    /// slices.
    [[nodiscard]] OSStatus setCycleFrames(AudioDeviceID device, UInt32 frames);
    /// A running device's sample time jumps.
    [[nodiscard]] OSStatus jumpSampleTime(AudioDeviceID device, SInt64 frames);
    /// The next cycles of a device do not come, though time goes on; announces 'over'.
    [[nodiscard]] OSStatus skipCycles(AudioDeviceID device, UInt32 cycles);
    /// Cycles that a device has run since it was added.
    UInt64 cycleCount(AudioDeviceID device) const;

private:
    explicit VirtualHardware(VirtualBackend& backend);
    ~VirtualHardware() = delete;
    VirtualBackend& backend_;
};

} // namespace qmx
