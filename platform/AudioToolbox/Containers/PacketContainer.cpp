// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/PacketContainer.h"

#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Codings/CodingsModule.h"
#include "AudioToolbox/Containers/SampleLayout.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qmx
{
namespace
{

constexpr UInt64 largestRun = UInt64{1} << 20; // bytes read at once

UInt64 endOf(const PacketPlace& packet)
{
    return packet.position + packet.size;
}

bool isInside(const AudioStreamPacketDescription& packet, UInt32 bytes)
{
    return packet.mStartOffset >= 0 && packet.mStartOffset <= SInt64{bytes} &&
           packet.mDataByteSize <= bytes - static_cast<UInt32>(packet.mStartOffset);
}

/// Room for `more` elements without a further allocation.
template <class List> void reserveFor(List& list, std::size_t more)
{
    if (list.capacity() - list.size() < more)
        list.reserve(std::max(list.size() + more, 2 * list.capacity()));
}

} // namespace

OSStatus PacketContainer::load()
{
    bool changed = false;
    OSStatus status = file_.refreshLength(changed);
    if (status == noErr)
        status = readAgain();
    // the close of a file that was kept readable changes its head once; the length read before does not go with it
    if (status == kAudioFileInvalidFileError && file_.refreshLength(changed) == noErr && changed)
        status = readAgain();
    return status;
}

OSStatus PacketContainer::readAgain()
{
    packets_.clear();
    firstFrames_.clear();
    bytes_ = largest_ = 0;
    format_ = {};
    const OSStatus status = read();
    return status == noErr && packets_.empty() && format_.mFormatID == 0 ? kAudioFileInvalidFileError : status;
}

OSStatus PacketContainer::create(const AudioStreamBasicDescription& format)
{
    format_ = compressedFormat(format.mFormatID, format.mFormatFlags, format.mSampleRate, format.mChannelsPerFrame,
                               format.mFramesPerPacket);
    if (format_.mFormatID == kAudioFormatMPEG4AAC)
        format_.mFramesPerPacket = 1024;
    isNew_ = true;
    if (const OSStatus status = file_.truncate(0); status != noErr)
        return status;
    return begin();
}

SInt64 PacketContainer::dataOffset() const
{
    return packets_.empty() ? static_cast<SInt64>(endOfData_) : static_cast<SInt64>(packets_.front().position);
}

OSStatus PacketContainer::readBytes(UInt64, UInt32& count, void*)
{
    count = 0;
    return kAudioFileOperationNotSupportedError;
}

OSStatus PacketContainer::writeBytes(UInt64, UInt32& count, const void*)
{
    count = 0;
    return kAudioFileOperationNotSupportedError;
}

OSStatus PacketContainer::readPackets(UInt64 start, UInt32& packets, UInt32& bytes,
                                      AudioStreamPacketDescription* descriptions, void* buffer)
{
    const UInt32 wanted = packets;
    packets = bytes = 0;
    if (start >= packets_.size())
        return kAudioFileEndOfFileError;
    if (!descriptions && wanted > 1)
        return paramErr;
    const auto all = std::span(packets_).subspan(static_cast<std::size_t>(start));
    while (packets < wanted && packets < all.size()) {
        const auto rest = all.subspan(packets, std::min<std::size_t>(wanted - packets, all.size() - packets));
        std::size_t length = 1;
        UInt32 runBytes = rest[0].size;
        while (length < rest.size() && rest[length].position >= endOf(rest[length - 1]) &&
               endOf(rest[length]) - rest[0].position <= std::min(largestRun, 2 * UInt64{runBytes} + 65536))
            runBytes += rest[length++].size;
        if (runBytes > std::numeric_limits<UInt32>::max() - bytes)
            break;
        OSStatus status = noErr;
        const std::size_t whole = readRun(rest.first(length), static_cast<UInt8*>(buffer) + bytes, status);
        for (const PacketPlace& packet : rest.first(whole)) {
            if (descriptions)
                descriptions[packets] = {bytes, packet.frames, packet.size};
            ++packets;
            bytes += packet.size;
        }
        if (status != noErr)
            return status;
    }
    return noErr;
}

// Packets that lie near each other, with what is between them, in one read. Returns the number of whole ones, fewer
// than all on failure.
std::size_t PacketContainer::readRun(std::span<const PacketPlace> run, UInt8* to, OSStatus& status)
{
    const UInt64 start = run.front().position;
    scratch_.resize(static_cast<std::size_t>(endOf(run.back()) - start));
    const Transfer done = file_.read(start, scratch_.data(), scratch_.size());
    std::size_t whole = 0;
    for (; whole < run.size() && endOf(run[whole]) - start <= done.count; ++whole)
        to = std::copy_n(scratch_.begin() + static_cast<std::ptrdiff_t>(run[whole].position - start), run[whole].size,
                         to);
    if (whole < run.size())
        status = done.error != 0 ? statusForSystemError(done.error) : kAudioFileInvalidFileError;
    return whole;
}

OSStatus PacketContainer::writePackets(UInt64 start, UInt32& packets, UInt32 bytes,
                                       const AudioStreamPacketDescription* descriptions, const void* buffer)
{
    const UInt32 given = packets;
    packets = 0;
    if (!isNew_)
        return kAudioFileOperationNotSupportedError;
    if (start != packets_.size())
        return kAudioFileInvalidPacketOffsetError;
    if (given == 0)
        return noErr;
    if (!descriptions || packets_.size() + given > mostPackets)
        return paramErr;
    if (isLossless(format_.mFormatID) && bare_.empty()) // none could decode them
        return kAudioFileOperationNotSupportedError;
    const auto* const data = static_cast<const UInt8*>(buffer);
    Bytes block;
    block.reserve(bytes);
    std::vector<PacketPlace> places;
    for (const AudioStreamPacketDescription& packet : std::span(descriptions, given)) {
        Bytes header;
        if (!isInside(packet, bytes))
            return paramErr;
        const std::span contents(data + packet.mStartOffset, packet.mDataByteSize);
        if (!packetHeader(contents, header))
            return paramErr;
        block.insert(block.end(), header.begin(), header.end());
        places.push_back({block.size(), packet.mDataByteSize, packet.mVariableFramesInPacket});
        block.insert(block.end(), contents.begin(), contents.end());
    }
    reserveFor(packets_, given); // reserved first: once written, packets are entered whatever memory there is
    if (isVariable())
        reserveFor(firstFrames_, given);
    if (const OSStatus status = append(block, places); status != noErr)
        return status;
    for (const PacketPlace& place : places)
        addPacket(place);
    packets = given;
    return noErr;
}

OSStatus PacketContainer::append(std::span<const UInt8> block, std::span<PacketPlace> places)
{
    if (const OSStatus status = file_.writeAll(endOfData_, block); status != noErr) {
        (void)file_.truncate(endOfData_); // what stays of the packet is written over, or cut off by the close
        return status;
    }
    for (PacketPlace& place : places)
        place.position += endOfData_;
    endOfData_ += block.size();
    return noErr;
}

bool PacketContainer::addPacket(const PacketPlace& packet)
{
    const bool isInFile = packet.position <= file_.length() && packet.size <= file_.length() - packet.position;
    if (!isInFile || packets_.size() >= mostPackets)
        return false;
    if (isVariable())
        firstFrames_.push_back(totalFrames());
    packets_.push_back(packet);
    bytes_ += packet.size;
    largest_ = std::max(largest_, packet.size);
    return true;
}

UInt64 PacketContainer::totalFrames() const
{
    if (!isVariable())
        return packets_.size() * UInt64{format_.mFramesPerPacket};
    return packets_.empty() || firstFrames_.empty() ? 0 : firstFrames_.back() + packets_.back().frames;
}

OSStatus PacketContainer::magicCookie(Bytes& cookie) const
{
    if (bare_.empty())
        return kAudioFileUnsupportedPropertyError;
    cookie = cookieFromBare(format_.mFormatID, bare_);
    return noErr;
}

OSStatus PacketContainer::setMagicCookie(std::span<const UInt8> cookie)
{
    if (!isNew_)
        return kAudioFileOperationNotSupportedError;
    Bytes bare = bareFromCookie(format_.mFormatID, cookie);
    if (bare.empty())
        return paramErr;
    bare_.swap(bare);
    const OSStatus status = takeCookie() ? cookieChanged() : paramErr;
    if (status != noErr)
        bare_.swap(bare);
    return status;
}

// A cookie states the format more exactly than a caller needs to; what both state must be the same.
bool PacketContainer::takeCookie()
{
    std::optional<AudioStreamBasicDescription> told;
    UInt64 frames = 0;
    if (isAAC(format_.mFormatID)) {
        const auto config = parseAACConfig(bare_);
        return config && config->sampleRate == format_.mSampleRate && config->channels == format_.mChannelsPerFrame;
    }
    if (format_.mFormatID == kAudioFormatAppleLossless)
        told = formatFromALAC(bare_);
    else if (format_.mFormatID == kAudioFormatFLAC)
        told = formatFromFLAC(bare_, frames);
    if (!told || told->mSampleRate != format_.mSampleRate || told->mChannelsPerFrame != format_.mChannelsPerFrame)
        return false;
    format_ = *told;
    return true;
}

void PacketContainer::setTable(UInt64 priming, UInt64 valid)
{
    const UInt64 total = totalFrames();
    priming = std::min<UInt64>({priming, total, std::numeric_limits<SInt32>::max()});
    valid = std::min(valid, total - priming);
    const UInt64 remainder = std::min<UInt64>(total - priming - valid, std::numeric_limits<SInt32>::max());
    table_ = {static_cast<SInt64>(valid), static_cast<SInt32>(priming), static_cast<SInt32>(remainder)};
}

// While a file is written, what is neither priming nor remainder is valid.
AudioFilePacketTableInfo PacketContainer::table() const
{
    AudioFilePacketTableInfo info = table_;
    if (isNew_)
        info.mNumberValidFrames =
            std::max<SInt64>(0, static_cast<SInt64>(totalFrames()) - info.mPrimingFrames - info.mRemainderFrames);
    return info;
}

OSStatus PacketContainer::packetTableInfo(AudioFilePacketTableInfo& info) const
{
    info = table();
    return noErr;
}

OSStatus PacketContainer::setPacketTableInfo(const AudioFilePacketTableInfo& info)
{
    if (!isNew_)
        return kAudioFileOperationNotSupportedError;
    if (info.mPrimingFrames < 0 || info.mRemainderFrames < 0)
        return paramErr;
    table_ = info;
    return noErr;
}

std::optional<UInt64> PacketContainer::frameOfPacket(UInt64 packet) const
{
    if (!isVariable())
        return Container::frameOfPacket(packet);
    return packet < firstFrames_.size() ? firstFrames_[static_cast<std::size_t>(packet)] : totalFrames();
}

std::pair<UInt64, UInt32> PacketContainer::packetOfFrame(UInt64 frame) const
{
    if (!isVariable())
        return Container::packetOfFrame(frame);
    if (frame >= totalFrames())
        return {packets_.size(), 0};
    const auto behind = std::ranges::upper_bound(firstFrames_, frame);
    const auto packet = static_cast<UInt64>(behind - firstFrames_.begin() - 1);
    return {packet, static_cast<UInt32>(frame - firstFrames_[static_cast<std::size_t>(packet)])};
}

UInt32 PacketContainer::rollDistance() const
{
    return rollDistanceOf(format_.mFormatID);
}

// In the order in which decoders deliver the channels.
AudioChannelLayoutTag PacketContainer::channelLayoutTag() const
{
    constexpr AudioChannelLayoutTag tags[] = {0,
                                              kAudioChannelLayoutTag_Mono,
                                              kAudioChannelLayoutTag_Stereo,
                                              kAudioChannelLayoutTag_MPEG_3_0_A,
                                              kAudioChannelLayoutTag_MPEG_4_0_A,
                                              kAudioChannelLayoutTag_MPEG_5_0_A,
                                              kAudioChannelLayoutTag_MPEG_5_1_A,
                                              kAudioChannelLayoutTag_MPEG_6_1_A,
                                              kAudioChannelLayoutTag_MPEG_7_1_A};
    const UInt32 channels = format_.mChannelsPerFrame;
    if (format_.mFormatID == kAudioFormatFLAC && channels == 4)
        return kAudioChannelLayoutTag_Quadraphonic;
    const bool isTold = channels < std::size(tags) && (format_.mFormatID != kAudioFormatFLAC || channels <= 6);
    return isTold ? tags[channels] : 0;
}

OSStatus PacketContainer::finish()
{
    if (!isNew_)
        return noErr;
    if (!tellsFormat())
        return kAudioFileInvalidFileError;
    Bytes bytes;
    if (const OSStatus status = tail(bytes); status != noErr)
        return status;
    const OSStatus written = file_.writeAll(endOfData_, bytes);
    const bool isThere =
        written == noErr || (written == dskFulErr && needsTail() && writeTailOverPackets(bytes.size()) == noErr);
    if (!isThere && !needsTail())
        (void)file_.truncate(endOfData_); // the first failure counts
    const OSStatus ended = isThere ? end() : written;
    isNew_ = ended != noErr;
    return written == noErr ? ended : written;
}

// If the disk has no room for the tail, the last packets give up theirs: without it none could be read.
OSStatus PacketContainer::writeTailOverPackets(UInt64 needed)
{
    const UInt64 before = endOfData_;
    while (!packets_.empty() && before - endOfData_ < needed)
        dropLastPacket();
    Bytes shorter;
    OSStatus status = tail(shorter);
    if (status == noErr)
        status = file_.writeAll(endOfData_, shorter);
    return status == noErr ? file_.truncate(endOfData_ + shorter.size()) : status;
}

void PacketContainer::dropLastPacket()
{
    const PacketPlace last = packets_.back();
    const UInt64 framesBefore = totalFrames();
    packets_.pop_back();
    if (isVariable())
        firstFrames_.pop_back();
    endOfData_ = last.position;
    bytes_ -= last.size;
    const auto dropped = static_cast<SInt64>(framesBefore - totalFrames());
    table_.mRemainderFrames = static_cast<SInt32>(std::max<SInt64>(0, table_.mRemainderFrames - dropped));
}

bool holdsPackets(const AudioStreamBasicDescription& format)
{
    const bool isWhole = format.mSampleRate == std::floor(format.mSampleRate);
    if (!isWhole || !isPlausible(format.mSampleRate, format.mChannelsPerFrame) || format.mChannelsPerFrame > 8)
        return false;
    const bool isLosslessOne =
        format.mFormatID == kAudioFormatAppleLossless && format.mFramesPerPacket <= mostFramesPerPacket;
    const bool isPlainAAC = format.mFormatID == kAudioFormatMPEG4AAC &&
                            (format.mFramesPerPacket == 0 || format.mFramesPerPacket == 1024) &&
                            !makeAACConfig(format).empty();
    return (isLosslessOne || isPlainAAC) && CodingsModule::find();
}

} // namespace qmx
