// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/Silence.h"

#include "AudioToolbox/Extended/FileValues.h"

#include <new>

namespace qmx
{

std::vector<std::byte> silenceIn(const AudioStreamBasicDescription& format)
{
    const AudioStreamBasicDescription zeros = floatsLike(format);
    std::vector<std::byte> silence(std::size_t{silenceFrames} * format.mBytesPerFrame);
    const std::vector<std::byte> input(std::size_t{silenceFrames} * zeros.mBytesPerFrame);
    auto size = static_cast<UInt32>(silence.size());
    AudioConverterRef converter = nullptr;
    OSStatus status = AudioConverterNew(&zeros, &format, &converter);
    if (status == noErr)
        status = AudioConverterConvertBuffer(converter, static_cast<UInt32>(input.size()), input.data(), &size,
                                             silence.data());
    (void)AudioConverterDispose(converter); // there may be none
    if (status == kAudio_MemFullError)
        throw std::bad_alloc(); // zeros are not silence in every format
    return silence;
}

} // namespace qmx
