// SPDX-License-Identifier: MIT
#include "PlayThru/AudioDevice.h"

#include "CoreAudioTypes/AudioBuffers.h"
#include "Formats/PropertyBlock.h"

#include <algorithm>
#include <string_view>

namespace
{

/// Sets `value` to 0 where it cannot be read.
template <class Value> OSStatus read(const AudioDevice& device, AudioDevicePropertyID property, Value& value)
{
    UInt32 size = sizeof value;
    const OSStatus status = AudioDeviceGetProperty(device.mDeviceID, 0, device.mInput, property, &size, &value);
    if (status != noErr)
        value = {};
    return status;
}

} // namespace

OSStatus AudioDevice::Init(unsigned long device, bool isInput)
{
    *this = {};
    mDeviceID = static_cast<AudioDeviceID>(device);
    mInput = isInput;
    if (mDeviceID == kAudioDeviceUnknown)
        return noErr;
    const OSStatus statuses[] = {read(*this, kAudioDevicePropertySafetyOffset, mSafetyFrames),
                                 read(*this, kAudioDevicePropertyBufferFrameSize, mBufferFrames),
                                 read(*this, kAudioDevicePropertyStreamFormat, mStreamFormat)};
    const auto* const failed = std::ranges::find_if(statuses, [](OSStatus status) { return status != noErr; });
    return failed == std::end(statuses) ? noErr : *failed;
}

OSStatus AudioDevice::SetBufferSize(unsigned long frames)
{
    const auto wanted = static_cast<UInt32>(frames);
    const OSStatus status = AudioDeviceSetProperty(mDeviceID, nullptr, 0, mInput, kAudioDevicePropertyBufferFrameSize,
                                                   sizeof wanted, &wanted);
    const OSStatus readStatus = read(*this, kAudioDevicePropertyBufferFrameSize, mBufferFrames);
    return status != noErr ? status : readStatus;
}

int AudioDevice::CountChannels() const
{
    const qmx::PropertyBlock streams =
        qmx::readDeviceProperty(mDeviceID, kAudioDevicePropertyStreamConfiguration, 0, mInput);
    if (!streams.block)
        return 0;
    UInt32 channels = 0;
    for (const AudioBuffer& stream : qmx::buffersOf(*static_cast<const AudioBufferList*>(streams.block.get())))
        channels += stream.mNumberChannels;
    return static_cast<int>(channels);
}

char* AudioDevice::GetName(char* name, unsigned long room) const
{
    if (room == 0)
        return name;
    const qmx::PropertyBlock found = qmx::readDeviceProperty(mDeviceID, kAudioDevicePropertyDeviceName, 0, mInput);
    const std::string_view text(found.block ? static_cast<const char*>(found.block.get())
                                            : ""); // zeros follow the value
    name[text.copy(name, room - 1)] = '\0';
    return name;
}
