// SPDX-License-Identifier: MIT
#include "CoreAudio/VirtualHardware.h"

#include "CoreAudio/HAL/Hardware.h"
#include "CoreAudio/HAL/Virtual/SampleInput.h"
#include "CoreAudio/HAL/Virtual/VirtualBackend.h"
#include "Foundation/RealTime.h"
#include "Foundation/Threads/Worker.h"

#include <array>

namespace qmx
{
namespace
{

// False on threads that would wait for themselves: I/O threads and the notification thread.
bool mayWaitForRest()
{
    return mayWait() && !Listeners::isNotificationThread();
}

template <class Action> OSStatus withDevice(VirtualBackend& backend, AudioDeviceID id, Action action)
{
    const auto device = backend.device(id);
    if (!device)
        return kAudioHardwareBadDeviceError;
    action(device);
    return noErr;
}

SectionDescription standardSection(UInt32 channels, bool isInput)
{
    SectionDescription section;
    if (channels == 0)
        return section;
    StreamDescription stream;
    stream.channels = channels;
    stream.terminalType = isInput ? INPUT_MICROPHONE : OUTPUT_SPEAKER;
    stream.physicalFormats = {packedPhysicalFormat(kAudioStreamAnyRate, channels, 16),
                              packedPhysicalFormat(kAudioStreamAnyRate, channels, 24),
                              packedPhysicalFormat(kAudioStreamAnyRate, channels, 32, true)};
    section.streams.push_back(std::move(stream));
    section.dataSources =
        isInput
            ? std::vector<DataSource>{{kIOAudioSelectorControlSelectionValueInternalMicrophone, "Internal Microphone"},
                                      {kIOAudioSelectorControlSelectionValueLine, "Line In"}}
            : std::vector<DataSource>{{kIOAudioSelectorControlSelectionValueInternalSpeaker, "Internal Speakers"},
                                      {kIOAudioSelectorControlSelectionValueHeadphones, "Headphones"}};
    for (UInt32 channel = 0; channel <= channels; ++channel)
        section.volumes[channel] = {};
    section.mutes[0] = {};
    section.jackIsConnected = false;
    section.preferredChannelsForStereo[1] = channels > 1 ? 2 : 1;
    return section;
}

} // namespace

VirtualHardware::VirtualHardware(VirtualBackend& backend) : backend_(backend) {}

VirtualHardware& VirtualHardware::shared()
{
    static auto* const hardware = [] {
        (void)setAudioBackend(AudioBackend::virtualHardware); // fails if another one is chosen already
        Hardware::shared();
        return new VirtualHardware(VirtualBackend::shared());
    }();
    return *hardware;
}

DeviceDescription VirtualHardware::standardDevice(const std::string& uid, const std::string& name, UInt32 inputChannels,
                                                  UInt32 outputChannels)
{
    DeviceDescription device;
    device.uid = uid;
    device.name = name;
    device.manufacturer = "QMX";
    device.modelUID = "qmx.virtual";
    device.transportType = kAudioDeviceTransportTypeVirtual;
    for (const Float64 rate : {44100.0, 48000.0, 88200.0, 96000.0})
        device.availableSampleRates.push_back({rate, rate});
    device.input = standardSection(inputChannels, true);
    device.output = standardSection(outputChannels, false);
    return device;
}

AudioDeviceID VirtualHardware::addDevice(const DeviceDescription& description)
{
    return backend_.change({}, std::span(&description, 1)).front();
}

OSStatus VirtualHardware::removeDevice(AudioDeviceID device)
{
    return withDevice(backend_, device, [&](const auto& /*found*/) { backend_.change(std::span(&device, 1), {}); });
}

std::vector<AudioDeviceID> VirtualHardware::changeDevices(std::span<const AudioDeviceID> removed,
                                                          std::span<const DeviceDescription> added)
{
    return backend_.change(removed, added);
}

VirtualPair VirtualHardware::addLoopbackPair(UInt32 channels)
{
    return backend_.addLoopbackPair(channels);
}

void VirtualHardware::reset(VirtualTime time)
{
    backend_.removeFaults();
    backend_.forgetChoices();
    backend_.change(backend_.deviceIDs(), {});
    backend_.setBootChime({});
    backend_.timeline().reset(time);
    settle();
}

std::vector<AudioDeviceID> VirtualHardware::devices() const
{
    return backend_.deviceIDs();
}

OSStatus VirtualHardware::setDefaultDevice(AudioHardwarePropertyID which, AudioDeviceID device)
{
    return backend_.chooseDefault(which, device);
}

void VirtualHardware::setBootChimeVolume(const std::optional<VolumeControl>& volume)
{
    backend_.setBootChime(volume);
}

DeviceDescription VirtualHardware::description(AudioDeviceID device) const
{
    const auto found = backend_.device(device);
    return found ? found->description() : DeviceDescription{};
}

OSStatus VirtualHardware::change(AudioDeviceID device, const std::function<void(DeviceDescription&)>& edit)
{
    return withDevice(backend_, device, [&](const auto& found) {
        found->change(edit);
        backend_.reviewDefaults();
    });
}

OSStatus VirtualHardware::announce(AudioDeviceID device, const PropertyAddress& address)
{
    return withDevice(backend_, device, [&](const auto& /*found*/) { backend_.sink()->announce(device, address); });
}

void VirtualHardware::announceHardware(AudioHardwarePropertyID property)
{
    backend_.sink()->announceHardware(property);
}

void VirtualHardware::addFault(const VirtualFault& fault)
{
    backend_.addFault(fault);
}

void VirtualHardware::removeFaults()
{
    backend_.removeFaults();
}

OSStatus VirtualHardware::setInput(AudioDeviceID device, VirtualInput input)
{
    return withDevice(backend_, device, [&](const auto& found) { found->setInput(std::move(input)); });
}

OSStatus VirtualHardware::setInputSamples(AudioDeviceID device, std::vector<Float32> samples, UInt32 channels,
                                          bool repeats)
{
    return setInput(device, inputOfSamples(std::move(samples), channels, repeats));
}

OSStatus VirtualHardware::setInputFile(AudioDeviceID device, const std::string& path, bool repeats)
{
    const auto found = backend_.device(device);
    if (!found)
        return kAudioHardwareBadDeviceError;
    FileSamples file;
    if (const OSStatus status = readAudioFile(path, found->description().nominalSampleRate, file))
        return status;
    return setInputSamples(device, std::move(file.samples), file.channels, repeats);
}

OSStatus VirtualHardware::setOutput(AudioDeviceID device, VirtualOutput output)
{
    return withDevice(backend_, device, [&](const auto& found) { found->setOutput(std::move(output)); });
}

OSStatus VirtualHardware::captureOutput(AudioDeviceID device, size_t maximumFrames)
{
    return withDevice(backend_, device, [&](const auto& found) { found->captureOutput(maximumFrames); });
}

std::vector<Float32> VirtualHardware::capturedOutput(AudioDeviceID device) const
{
    const auto found = backend_.device(device);
    return found ? found->capturedOutput() : std::vector<Float32>{};
}

OSStatus VirtualHardware::connect(AudioDeviceID output, AudioDeviceID input)
{
    const auto source = backend_.device(output), target = backend_.device(input);
    if (!source || !target)
        return kAudioHardwareBadDeviceError;
    target->loopFrom(source);
    return noErr;
}

OSStatus VirtualHardware::setClockDrift(AudioDeviceID device, Float64 partsPerMillion)
{
    return change(device, [partsPerMillion](DeviceDescription& description) {
        description.actualSampleRate = description.nominalSampleRate * (1 + partsPerMillion * 1e-6);
    });
}

void VirtualHardware::setTime(VirtualTime time)
{
    backend_.timeline().setMode(time);
}

VirtualTime VirtualHardware::time() const
{
    return backend_.timeline().mode();
}

UInt64 VirtualHardware::now() const
{
    return backend_.timeline().now();
}

void VirtualHardware::advance(UInt64 nanoseconds)
{
    Timeline& timeline = backend_.timeline();
    if (timeline.mode() != VirtualTime::manual || !mayWaitForRest())
        return;
    const UInt64 end = timeline.now() + nanoseconds;
    waitUntilWorkersRest();
    while (timeline.step(end))
        waitUntilWorkersRest();
    timeline.moveTo(end);
}

bool VirtualHardware::advanceCycles(AudioDeviceID device, UInt32 cycles)
{
    Timeline& timeline = backend_.timeline();
    const auto found = backend_.device(device);
    if (!found || timeline.mode() != VirtualTime::manual || !mayWaitForRest())
        return false;
    const UInt64 end = found->cycleCount() + cycles;
    waitUntilWorkersRest();
    while (found->cycleCount() < end) {
        if (!found->runs() || !timeline.step(std::numeric_limits<UInt64>::max()))
            return false;
        waitUntilWorkersRest();
    }
    return true;
}

void VirtualHardware::settle()
{
    if (mayWaitForRest())
        waitUntilWorkersRest();
}

OSStatus VirtualHardware::setStartDelay(AudioDeviceID device, UInt64 nanoseconds)
{
    return withDevice(backend_, device, [&](const auto& found) { found->setStartDelay(nanoseconds); });
}

OSStatus VirtualHardware::setCycleFrames(AudioDeviceID device, UInt32 frames)
{
    return withDevice(backend_, device, [&](const auto& found) { found->setCycleFrames(frames); });
}

OSStatus VirtualHardware::jumpSampleTime(AudioDeviceID device, SInt64 frames)
{
    return withDevice(backend_, device, [&](const auto& found) { found->jump(frames); });
}

OSStatus VirtualHardware::skipCycles(AudioDeviceID device, UInt32 cycles)
{
    return withDevice(backend_, device, [&](const auto& found) { found->skip(cycles); });
}

UInt64 VirtualHardware::cycleCount(AudioDeviceID device) const
{
    const auto found = backend_.device(device);
    return found ? found->cycleCount() : 0;
}

} // namespace qmx
