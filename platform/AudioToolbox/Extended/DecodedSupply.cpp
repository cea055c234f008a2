// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/DecodedSupply.h"

#include "AudioToolbox/Extended/FileValues.h"

#include <algorithm>

namespace qmx
{
namespace
{

/// Linear PCM that holds every value of the coding: 32-bit integers for 32-bit lossless codings, else floats.
AudioStreamBasicDescription decodedFormat(const AudioStreamBasicDescription& coding)
{
    const bool isLossless = coding.mFormatID == kAudioFormatAppleLossless || coding.mFormatID == kAudioFormatFLAC;
    const bool isWide = isLossless && coding.mFormatFlags == kAppleLosslessFormatFlag_32BitSourceData;
    AudioStreamBasicDescription format = floatsLike(coding);
    if (isWide)
        format.mFormatFlags ^= kAudioFormatFlagIsFloat | kAudioFormatFlagIsSignedInteger;
    return format;
}

} // namespace

OSStatus DecodedSupply::make(AudioFileID file, const AudioStreamBasicDescription& coding,
                             std::unique_ptr<FrameSupply>& supply)
{
    const AudioStreamBasicDescription decoded = decodedFormat(coding);
    AudioConverterRef converter = nullptr;
    OSStatus status = AudioConverterNew(&coding, &decoded, &converter);
    if (status != noErr)
        return status;
    ConverterHandle decoder(converter, &AudioConverterDispose);
    if (const auto cookie = fileBlock(file, kAudioFilePropertyMagicCookieData); !cookie.empty())
        status = AudioConverterSetProperty(converter, kAudioConverterDecompressionMagicCookie,
                                           static_cast<UInt32>(cookie.size()), cookie.data());
    if (status != noErr)
        return status;
    std::unique_ptr<DecodedSupply> made(new DecodedSupply(file, decoded, std::move(decoder)));
    status = made->loadTable();
    if (status == noErr)
        supply = std::move(made);
    return status;
}

DecodedSupply::DecodedSupply(AudioFileID file, const AudioStreamBasicDescription& decoded, ConverterHandle decoder)
    : FrameSupply(decoded), file_(file), decoder_(std::move(decoder))
{
}

/// Finds the original's frames. Without a table all frames of all packets count as such.
OSStatus DecodedSupply::loadTable()
{
    if (fileValue(file_, kAudioFilePropertyPacketTableInfo, table_) == noErr)
        return noErr;
    AudioFramePacketTranslation end;
    if (const OSStatus status = fileValue(file_, kAudioFilePropertyAudioDataPacketCount, end.mPacket); status != noErr)
        return status;
    const OSStatus status = fileValue(file_, kAudioFilePropertyPacketToFrame, end);
    table_ = {.mNumberValidFrames = end.mFrame};
    return status;
}

OSStatus DecodedSupply::length(SInt64& frames) const
{
    frames = table_.mNumberValidFrames;
    return noErr;
}

void DecodedSupply::seek(SInt64 frame)
{
    mustBegin_ = mustBegin_ || frame != position_;
    position_ = frame;
}

UInt32 DecodedSupply::leastBufferSize() const
{
    UInt32 packetSize = 0;
    fileValue(file_, kAudioFilePropertyMaximumPacketSize, packetSize);
    return std::max<UInt32>(1, packetSize);
}

void DecodedSupply::setBuffer(std::span<std::byte> buffer)
{
    UInt64 packetsInFile = 0;
    fileValue(file_, kAudioFilePropertyAudioDataPacketCount, packetsInFile);
    const UInt64 fitting = std::min<UInt64>(packetsInFile, buffer.size() / leastBufferSize());
    const UInt32 packets = std::max<UInt32>(1, static_cast<UInt32>(fitting));
    const UInt32 frames = std::max<UInt32>(1, static_cast<UInt32>(buffer.size()) / format_.mBytesPerFrame);
    std::vector<AudioStreamPacketDescription> descriptions(packets);
    frames_.resize(std::size_t{frames} * format_.mBytesPerFrame);
    descriptions_ = std::move(descriptions);
    packets_ = buffer;
    packetsAtOnce_ = packets;
    framesAtOnce_ = frames;
    mustBegin_ = true; // packets that were passed to the decoder lay in the old memory
}

/// Starts the decoder far enough before the position that its frames come out exactly.
OSStatus DecodedSupply::begin()
{
    AudioFramePacketTranslation place{.mFrame = position_ + table_.mPrimingFrames};
    OSStatus status = fileValue(file_, kAudioFilePropertyFrameToPacket, place);
    if (status != noErr)
        return status;
    AudioPacketRollDistanceTranslation roll{.mPacket = place.mPacket};
    fileValue(file_, kAudioFilePropertyPacketToRollDistance, roll); // without one the packets stand alone
    AudioFramePacketTranslation start{.mPacket = std::max<SInt64>(0, place.mPacket - roll.mRollDistance)};
    status = fileValue(file_, kAudioFilePropertyPacketToFrame, start);
    if (status != noErr)
        return status;
    const AudioConverterPrimeInfo dropped{
        .leadingFrames = static_cast<UInt32>(position_ + table_.mPrimingFrames - start.mFrame),
        .trailingFrames = static_cast<UInt32>(std::max<SInt32>(0, table_.mRemainderFrames))};
    status = AudioConverterSetProperty(decoder_.get(), kAudioConverterPrimeInfo, sizeof dropped, &dropped);
    nextPacket_ = start.mPacket;
    return status == noErr ? AudioConverterReset(decoder_.get()) : status;
}

OSStatus DecodedSupply::next(const void*& frames, UInt32& count)
{
    count = static_cast<UInt32>(std::clamp<SInt64>(table_.mNumberValidFrames - position_, 0, framesAtOnce_));
    frames = frames_.data();
    if (count == 0)
        return noErr;
    if (mustBegin_)
        if (const OSStatus status = begin(); status != noErr) {
            count = 0;
            return status;
        }
    AudioBufferList list;
    list.mNumberBuffers = 1;
    list.mBuffers[0] = {format_.mChannelsPerFrame, count * format_.mBytesPerFrame, frames_.data()};
    const auto give = [](AudioConverterRef, UInt32* packets, AudioBufferList* data,
                         AudioStreamPacketDescription** descriptions, void* self) {
        return static_cast<DecodedSupply*>(self)->givePackets(*packets, data->mBuffers[0], descriptions);
    };
    const OSStatus status = AudioConverterFillComplexBuffer(decoder_.get(), give, this, &count, &list, nullptr);
    position_ += count;
    mustBegin_ = status != noErr; // what the decoder held before a failure belongs to what follows it
    return count > 0 ? noErr : status;
}

OSStatus DecodedSupply::givePackets(UInt32& count, AudioBuffer& buffer, AudioStreamPacketDescription** descriptions)
{
    count = std::min(count, packetsAtOnce_);
    UInt32 bytes = 0;
    const OSStatus status = readPackets(file_, nextPacket_, count, bytes, descriptions_.data(), packets_.data());
    nextPacket_ += count;
    buffer.mData = packets_.data();
    buffer.mDataByteSize = bytes;
    if (descriptions)
        *descriptions = descriptions_.data();
    return status;
}

} // namespace qmx
