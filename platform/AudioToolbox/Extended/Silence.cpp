// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/Silence.h"

#include "AudioToolbox/Extended/FileValues.h"

namespace qmx
{

std::vector<std::byte> silenceIn(const AudioStreamBasicDescription& format)
{
    const AudioStreamBasicDescription zeros = floatsLike(format);
    std::vector<std::byte> silence(std::size_t{silenceFrames} * format.mBytesPerFrame);
    const std::vector<std::byte> input(std::size_t{silenceFrames} * zeros.mBytesPerFrame);
    auto size = static_cast<UInt32>(silence.size());
    AudioConverterRef converter = nullptr;
    if (AudioConverterNew(&zeros, &format, &converter) == noErr) {
        AudioConverterConvertBuffer(converter, static_cast<UInt32>(input.size()), input.data(), &size, silence.data());
        AudioConverterDispose(converter);
    }
    return silence;
}

} // namespace qmx
