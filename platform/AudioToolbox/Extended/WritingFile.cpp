// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/WritingFile.h"

#include "AudioToolbox/Extended/FileValues.h"
#include "AudioToolbox/Extended/Silence.h"
#include "CoreAudioTypes/AudioBuffers.h"
#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace qmx
{
namespace
{

/// Returned by the procedure that supplies frames: none are left for now, though the stream goes on.
constexpr OSStatus usedUp = statusCode("used");

/// Maximum packets of a coding made at once.
constexpr UInt32 mostDescriptions = 1024;

} // namespace

WritingFile::WritingFile(AudioFileID file) : ExtendedFile(file)
{
    packetSize_ = std::max<UInt32>(1, fileFormat_.mBytesPerPacket);
    setBufferSize(usualBufferSize);
    startWithFileFormat();
}

WritingFile::~WritingFile()
{
    if (queue_)
        queue_->finish();
}

OSStatus WritingFile::connect(const AudioStreamBasicDescription& client, AudioConverterRef& converter)
{
    if (const OSStatus status = rest(); status != noErr)
        return status;
    if (hasBegun_) // the packets of a coding are one stream
        return kExtAudioFileError_InvalidOperationOrder;
    return AudioConverterNew(&client, &fileFormat_, &converter);
}

void WritingFile::connected()
{
    fitBuffer();
    auto before = std::exchange(queue_, nullptr); // its memory fits frames of the format before
    if (!before)
        return;
    try {
        primeWrites();
    } catch (...) {
        queue_ = std::move(before); // so the old format stays
        throw;
    }
}

void WritingFile::bufferChanged()
{
    UInt32 packets = bufferSize() / packetSize_;
    if (!isLinear()) {
        packets = std::min(packets, mostDescriptions);
        descriptions_.resize(packets);
    }
    packetsAtOnce_ = packets;
}

/// Makes the packets of the converter fit, in own memory if necessary.
void WritingFile::fitBuffer()
{
    UInt32 size = 0;
    if (maximumPacketSize(size) == noErr)
        packetSize_ = std::max<UInt32>(1, size);
    if (packetSize_ > bufferSize())
        setBufferSize(packetSize_);
    else
        bufferChanged();
}

OSStatus WritingFile::maximumPacketSize(UInt32& bytes)
{
    bytes = fileFormat_.mBytesPerPacket;
    if (bytes > 0)
        return noErr;
    return currentConverter()
               ? converterValue(currentConverter(), kAudioConverterPropertyMaximumOutputPacketSize, bytes)
               : kExtAudioFileError_MaxPacketSizeUnknown;
}

OSStatus WritingFile::primeWrites()
{
    if (!currentConverter())
        return kExtAudioFileError_InvalidOperationOrder;
    if (!queue_)
        queue_ = AsyncWrites::make(clientSamples(), clientFormat().mSampleRate,
                                   [this](const AudioBufferList& data, UInt32 frames) { encode(&data, frames); });
    return queue_ ? failure() : kAudioFileUnspecifiedError;
}

OSStatus WritingFile::writeAsync(UInt32 frames, const AudioBufferList& data)
{
    if (!currentConverter() || (!queue_ && isRealTime()))
        return kExtAudioFileError_InvalidOperationOrder;
    if (wholeFrames(data, clientSamples()) < frames)
        return kAudio_ParamError;
    if (const OSStatus status = queue_ ? failure() : primeWrites(); status != noErr)
        return status;
    const OSStatus status = queue_->add(data, frames);
    if (status == noErr)
        acceptedFrames_.fetch_add(frames, std::memory_order_relaxed);
    return status;
}

OSStatus WritingFile::write(UInt32 frames, const AudioBufferList& data)
{
    if (!currentConverter() || isRealTime())
        return kExtAudioFileError_InvalidOperationOrder;
    if (wholeFrames(data, clientSamples()) < frames)
        return kAudio_ParamError;
    OSStatus status = rest();
    if (status == noErr)
        status = encode(&data, frames);
    if (status == noErr)
        acceptedFrames_.fetch_add(frames, std::memory_order_relaxed);
    return status;
}

OSStatus WritingFile::rest()
{
    if (queue_)
        queue_->drain();
    return failure();
}

/// Converts frames and writes the packets that they fill; without frames, what the converter still holds. After a
/// failure nothing is written.
OSStatus WritingFile::encode(const AudioBufferList* data, UInt32 frames)
{
    if (failure() != noErr)
        return failure();
    given_ = data;
    givenFrames_ = frames;
    const OSStatus status = withinMemory(memFullErr, [this] { return convert(); });
    given_ = nullptr;
    givenFrames_ = 0;
    if (status != noErr) {
        (void)AudioConverterReset(currentConverter()); // it may still point into the caller's frames
        failure_.store(status, std::memory_order_release);
    }
    return status;
}

/// Until the supplied frames are used up.
OSStatus WritingFile::convert()
{
    OSStatus status = beginPackets();
    for (bool isUsedUp = false; status == noErr && !isUsedUp;) {
        UInt32 packets = 0;
        status = writePackets(packets, isUsedUp);
        isUsedUp = isUsedUp || packets < packetsAtOnce_;
    }
    return status;
}

/// Makes as many packets as the buffer holds and writes them.
OSStatus WritingFile::writePackets(UInt32& packets, bool& isUsedUp)
{
    AudioBufferList list;
    list.mNumberBuffers = 1;
    list.mBuffers[0] = {fileFormat_.mChannelsPerFrame, static_cast<UInt32>(buffer().size()), buffer().data()};
    auto* const descriptions = descriptions_.empty() ? nullptr : descriptions_.data();
    packets = packetsAtOnce_;
    OSStatus status =
        AudioConverterFillComplexBuffer(currentConverter(), &giveFrames, this, &packets, &list, descriptions);
    isUsedUp = status == usedUp;
    if (packets > 0) {
        const OSStatus written = AudioFileWritePackets(file(), false, list.mBuffers[0].mDataByteSize, descriptions,
                                                       nextPacket_, &packets, buffer().data());
        nextPacket_ += packets;
        if (written != noErr)
            return written;
    }
    return isUsedUp ? noErr : status;
}

OSStatus WritingFile::giveFrames(AudioConverterRef, UInt32* packetCount, AudioBufferList* data,
                                 AudioStreamPacketDescription**, void* self)
{
    auto& file = *static_cast<WritingFile*>(self);
    *packetCount = std::exchange(file.givenFrames_, 0);
    if (!file.given_) // the end
        return noErr;
    if (*packetCount == 0)
        return usedUp;
    std::ranges::copy(buffersOf(*file.given_).first(data->mNumberBuffers), buffersOf(*data).begin());
    return noErr;
}

/// What precedes a coding's packets: its cookie, and how many frames come before the original's.
OSStatus WritingFile::beginPackets()
{
    return isLinear() || std::exchange(hasBegun_, true) ? noErr : describePackets(0);
}

/// Stores in the file what the encoder knows by now.
OSStatus WritingFile::describePackets(SInt64 validFrames)
{
    const auto cookie = converterBlock(currentConverter(), kAudioConverterCompressionMagicCookie);
    OSStatus status = noErr;
    if (!cookie.empty())
        status = AudioFileSetProperty(file(), kAudioFilePropertyMagicCookieData, static_cast<UInt32>(cookie.size()),
                                      cookie.data());
    AudioConverterPrimeInfo prime;
    if (status != noErr || converterValue(currentConverter(), kAudioConverterPrimeInfo, prime) != noErr)
        return status;
    const AudioFilePacketTableInfo table{.mNumberValidFrames = validFrames,
                                         .mPrimingFrames = static_cast<SInt32>(prime.leadingFrames),
                                         .mRemainderFrames = static_cast<SInt32>(prime.trailingFrames)};
    status = AudioFileSetProperty(file(), kAudioFilePropertyPacketTableInfo, sizeof table, &table);
    return status == kAudioFileUnsupportedPropertyError ? noErr : status; // the file has no place for it
}

/// A file without packets is described by the encoder that it would have had. Without an encoder, closing the file
/// reports what is missing.
void WritingFile::describeEmpty()
{
    SInt64 packets = 0;
    if (isCoded() && fileValue(file(), kAudioFilePropertyAudioDataPacketCount, packets) == noErr && packets == 0)
        setClientFormat(floatsLike(fileFormat_));
}

/// The bit rate decides how large packets are.
OSStatus WritingFile::converterChanged()
{
    if (currentConverter())
        fitBuffer();
    return noErr;
}

/// Describes the packets before the first one, so that a file without packets opens too.
OSStatus WritingFile::setKeepsReadable(UInt32 keeps)
{
    OSStatus status = rest();
    if (status == noErr)
        status = AudioFileSetProperty(file(), kAudioFilePropertyKeepsReadable, sizeof keeps, &keeps);
    const bool isToBeDescribed = keeps != 0 && !isLinear() && currentConverter() && !hasBegun_;
    return status == noErr && isToBeDescribed ? describePackets(0) : status;
}

/// Writes all pending frames; the next frames start a new stream after them.
OSStatus WritingFile::settle()
{
    OSStatus status = rest();
    if (isLinear() && currentConverter() && acceptedFrames_ > 0) {
        if (status == noErr)
            status = encode(nullptr, 0);
        (void)AudioConverterReset(currentConverter()); // never fails for an existing one
        base_ = nextPacket_;
        acceptedFrames_ = 0;
    }
    return status;
}

OSStatus WritingFile::complete()
{
    if (queue_)
        queue_->finish();
    OSStatus status = failure();
    if (!currentConverter())
        describeEmpty();
    if (status != noErr || !currentConverter())
        return status;
    const auto frames = static_cast<Float64>(acceptedFrames_.load());
    if (frames > 0)
        status = encode(nullptr, 0);
    if (status != noErr || isLinear())
        return status;
    return describePackets(std::llround(frames * fileFormat_.mSampleRate / clientFormat().mSampleRate));
}

OSStatus WritingFile::seek(SInt64 frame)
{
    if (!isLinear() || frame < 0)
        return kExtAudioFileError_InvalidSeek;
    const OSStatus status = settle();
    base_ = nextPacket_ = frame;
    return status;
}

SInt64 WritingFile::tell() const
{
    if (!currentConverter())
        return base_;
    const Float64 ratio = fileFormat_.mSampleRate / clientFormat().mSampleRate;
    return base_ + static_cast<SInt64>(static_cast<Float64>(acceptedFrames_.load()) * ratio);
}

OSStatus WritingFile::length(SInt64& frames)
{
    const OSStatus status = rest();
    frames = tell();
    return isLinear() ? fileValue(file(), kAudioFilePropertyAudioDataPacketCount, frames) : status;
}

/// A file grows by silence at its end; it is never shortened.
OSStatus WritingFile::setLength(SInt64 frames)
{
    if (!isLinear())
        return kAudioFileOperationNotSupportedError;
    SInt64 before = 0;
    if (const OSStatus status = settle(); status != noErr)
        return status;
    if (const OSStatus status = length(before); status != noErr)
        return status;
    if (frames < before)
        return kAudioFileOperationNotSupportedError;
    const auto silence = silenceIn(fileFormat_);
    const auto add = [&](SInt64 at, SInt64 most) {
        auto count = static_cast<UInt32>(std::min<SInt64>(most, silenceFrames));
        return AudioFileWritePackets(file(), false, count * fileFormat_.mBytesPerPacket, nullptr, at, &count,
                                     silence.data());
    };
    if (frames == before)
        return noErr;
    // the last frame first: a container that cannot hold that much says so before anything is written, and fills up
    // with zeros
    OSStatus status = add(frames - 1, 1);
    const bool isZero = std::ranges::all_of(silence, [](std::byte byte) { return byte == std::byte{0}; });
    for (SInt64 at = before; !isZero && at < frames - 1 && status == noErr; at += silenceFrames)
        status = add(at, frames - 1 - at);
    return status;
}

} // namespace qmx
