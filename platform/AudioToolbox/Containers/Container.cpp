// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Container.h"

#include <algorithm>
#include <limits>

namespace qmx
{

Container::~Container() = default;

UInt64 Container::packetCount() const
{
    return format_.mBytesPerPacket == 0 ? 0 : byteCount() / format_.mBytesPerPacket;
}

UInt32 Container::maximumPacketSize() const
{
    return format_.mBytesPerPacket;
}

OSStatus Container::readPackets(UInt64 start, UInt32& packets, UInt32& bytes,
                                AudioStreamPacketDescription* descriptions, void* buffer)
{
    const UInt32 size = format_.mBytesPerPacket;
    const UInt32 wanted = std::min(packets, std::numeric_limits<UInt32>::max() / size);
    packets = bytes = 0;
    if (start >= packetCount())
        return kAudioFileEndOfFileError;
    bytes = wanted * size;
    const OSStatus status = readBytes(start * size, bytes, buffer);
    packets = bytes / size;
    for (UInt32 i = 0; descriptions && i < packets; ++i)
        descriptions[i] = {.mStartOffset = SInt64{i} * size, .mDataByteSize = size};
    return status;
}

OSStatus Container::writePackets(UInt64 start, UInt32& packets, UInt32 bytes, const AudioStreamPacketDescription*,
                                 const void* buffer)
{
    const UInt32 size = format_.mBytesPerPacket;
    UInt32 count = std::min(packets, bytes / size) * size;
    packets = 0;
    if (start > std::numeric_limits<UInt64>::max() / size)
        return kAudioFileDoesNotAllow64BitDataSizeError;
    const OSStatus status = writeBytes(start * size, count, buffer);
    packets = count / size;
    return status;
}

OSStatus Container::setKeepsReadable(bool keeps)
{
    return keeps == keepsReadable() ? noErr : kAudioFileOperationNotSupportedError;
}

OSStatus Container::magicCookie(Bytes&) const
{
    return kAudioFileUnsupportedPropertyError;
}

OSStatus Container::setMagicCookie(std::span<const UInt8>)
{
    return kAudioFileUnsupportedPropertyError;
}

OSStatus Container::packetTableInfo(AudioFilePacketTableInfo&) const
{
    return kAudioFileUnsupportedPropertyError;
}

OSStatus Container::setPacketTableInfo(const AudioFilePacketTableInfo&)
{
    return kAudioFileUnsupportedPropertyError;
}

std::optional<UInt64> Container::frameOfPacket(UInt64 packet) const
{
    constexpr auto largest = static_cast<UInt64>(std::numeric_limits<SInt64>::max());
    const UInt64 frames = format_.mFramesPerPacket;
    return frames == 0 || packet > largest / frames ? std::nullopt : std::optional(packet * frames);
}

std::pair<UInt64, UInt32> Container::packetOfFrame(UInt64 frame) const
{
    const UInt64 frames = std::max(1U, format_.mFramesPerPacket);
    return {frame / frames, static_cast<UInt32>(frame % frames)};
}

} // namespace qmx
