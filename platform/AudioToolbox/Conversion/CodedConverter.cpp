// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/CodedConverter.h"

#include "AudioToolbox/Codings/CodingFacts.h"
#include "Foundation/Memory.h"
#include "Foundation/Threads/HelpingThread.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace qmx
{
namespace
{

/// Packets asked for at once when many frames are wanted.
constexpr UInt32 mostPacketsAtOnce = 64;
/// Packets that one thread decodes while another decodes as many.
constexpr std::size_t mostPacketsInRun = 8;
/// Maximum frames held back at a stream's end: some minutes' worth would be no remainder.
constexpr UInt32 mostTrailingFrames = 1 << 20;

using Packets = std::span<const AudioStreamPacketDescription>;

class DecodingConverter : public CodedConverter
{
public:
    /// The helper, of the same format, decodes every second run of packets; null for codings whose packets need those
    /// before them.
    DecodingConverter(std::unique_ptr<PacketDecoder> decoder, std::unique_ptr<PacketDecoder> helper,
                      std::unique_ptr<Converter> linear)
        : CodedConverter(std::move(linear)), decoder_(std::move(decoder)), helper_(std::move(helper))
    {
    }

    const AudioStreamBasicDescription& source() const override { return decoder_->source(); }
    const AudioStreamBasicDescription& target() const override { return linear().target(); }
    UInt32 maximumPacketSize() const override { return linear().targetFrameBytes(); }
    AudioConverterPrimeInfo primeInfo() const override { return prime_; }
    bool setCookie(std::span<const UInt8> cookie) override
    {
        return decoder_->setCookie(cookie) && (!helper_ || helper_->setCookie(cookie));
    }

    OSStatus setPrimeInfo(const AudioConverterPrimeInfo& info) override
    {
        if (info.trailingFrames > mostTrailingFrames)
            return kAudio_ParamError;
        prime_ = info;
        if (!hasBegun_)
            toSkip_ = info.leadingFrames;
        return noErr;
    }

    OSStatus fill(const InputSource& input, UInt32& packetCount, AudioBufferList& output,
                  AudioStreamPacketDescription*) override
    {
        input_ = input;
        return linear().fill({giveFrames, input.converter, this}, packetCount, output);
    }

    void reset() override
    {
        linear().reset();
        packets_ = {};
        beginStream();
    }

private:
    static OSStatus giveFrames(AudioConverterRef, UInt32* frames, AudioBufferList* list, AudioStreamPacketDescription**,
                               void* self)
    {
        return static_cast<DecodingConverter*>(self)->give(*frames, *list);
    }

    void beginStream()
    {
        decoder_->restart();
        if (helper_)
            helper_->restart();
        pcm_.clear();
        given_ = 0;
        hasBegun_ = hasEnded_ = false;
        failure_ = noErr;
        toSkip_ = prime_.leadingFrames;
    }

    std::size_t frameBytes() const { return decoder_->output().mBytesPerFrame; }

    /// Frames that the end of the stream cannot take back.
    std::size_t available() const
    {
        const std::size_t frames = (pcm_.size() - given_) / frameBytes();
        return hasEnded_ ? frames : frames - std::min<std::size_t>(frames, prime_.trailingFrames);
    }

    OSStatus give(UInt32& frames, AudioBufferList& list)
    {
        const UInt32 wanted = frames;
        frames = 0;
        pcm_.erase(pcm_.begin(), pcm_.begin() + static_cast<std::ptrdiff_t>(given_));
        given_ = 0;
        while (available() == 0 && !hasEnded_) {
            OSStatus status = std::exchange(failure_, noErr);
            if (status == noErr)
                status = !packets_.empty() ? decodeNext() : pull(wanted);
            if (status != noErr)
                return status;
        }
        frames = static_cast<UInt32>(std::min<std::size_t>(wanted, available()));
        given_ = frames * frameBytes();
        list.mBuffers[0].mData = pcm_.data();
        list.mBuffers[0].mDataByteSize = static_cast<UInt32>(given_);
        if (frames == 0)
            beginStream();
        return noErr;
    }

    /// Requests packets that hold `frames` frames.
    OSStatus pull(UInt32 frames)
    {
        const UInt32 framesPerPacket = std::max(1U, source().mFramesPerPacket);
        UInt32 count = std::clamp(frames / framesPerPacket, 1U, mostPacketsAtOnce);
        AudioBufferList list{1, {{source().mChannelsPerFrame, 0, nullptr}}};
        AudioStreamPacketDescription* descriptions = nullptr;
        const OSStatus status = input_.give(input_.converter, &count, &list, &descriptions, input_.userData);
        if (status != noErr)
            return status;
        if (count == 0) {
            end();
            return noErr;
        }
        const AudioBuffer& buffer = list.mBuffers[0];
        data_ = buffer.mData && list.mNumberBuffers > 0
                    ? std::span(static_cast<const UInt8*>(buffer.mData), buffer.mDataByteSize)
                    : std::span<const UInt8>();
        if (!descriptions) {
            if (count != 1) // nothing says where one packet ends and the next starts
                return kAudioConverterErr_RequiresPacketDescriptionsError;
            whole_ = {0, 0, static_cast<UInt32>(data_.size())};
            descriptions = &whole_;
        }
        packets_ = {descriptions, count};
        return noErr;
    }

    UInt32 framesOf(const AudioStreamPacketDescription& packet) const
    {
        return source().mFramesPerPacket > 0 ? source().mFramesPerPacket : packet.mVariableFramesInPacket;
    }

    bool isSound(const AudioStreamPacketDescription& packet) const
    {
        const UInt32 frames = framesOf(packet);
        return packet.mStartOffset >= 0 && static_cast<UInt64>(packet.mStartOffset) <= data_.size() &&
               packet.mDataByteSize <= data_.size() - static_cast<UInt64>(packet.mStartOffset) && frames > 0 &&
               frames <= mostFramesPerPacket;
    }

    /// The next packet, or two runs of packets at once where the coding allows it.
    OSStatus decodeNext()
    {
        hasBegun_ = true;
        const std::size_t most = helper_ ? 2 * mostPacketsInRun : 1;
        const auto waiting = packets_.first(std::min(packets_.size(), most));
        const auto isUnsound = [this](const auto& packet) { return !isSound(packet); };
        const auto count = static_cast<std::size_t>(std::ranges::find_if(waiting, isUnsound) - waiting.begin());
        if (count == 0) {
            packets_ = {};
            return kAudio_ParamError;
        }
        const auto first = waiting.first((count + 1) / 2), second = waiting.subspan((count + 1) / 2, count / 2);
        std::size_t frames = 0;
        for (const auto& packet : waiting.first(count))
            frames += framesOf(packet);
        pcm_.reserve(pcm_.size() + frames * frameBytes()); // while nothing is lost if there is no room
        packets_ = packets_.subspan(count);
        const std::size_t before = pcm_.size();
        OSStatus status = noErr, statusOfSecond = noErr;
        Bytes after;
        const auto decodeFirst = [&] { status = decodeRun(*decoder_, first, pcm_); };
        if (second.empty())
            decodeFirst();
        else
            HelpingThread::shared().share(decodeFirst, [&] { statusOfSecond = decodeRun(*helper_, second, after); });
        if (status == noErr) {
            pcm_.insert(pcm_.end(), after.begin(), after.end());
            status = statusOfSecond;
        }
        const bool hasFrames = pcm_.size() > before;
        dropPriming(before);
        if (status == noErr)
            return noErr;
        packets_ = {};
        failure_ = hasFrames ? status : noErr; // once they are given
        return hasFrames ? noErr : status;
    }

    OSStatus decodeRun(PacketDecoder& decoder, Packets packets, Bytes& pcm) const
    {
        return withinMemory(OSStatus{kAudio_MemFullError}, [&] {
            const bool isGood = std::ranges::all_of(packets, [&](const AudioStreamPacketDescription& packet) {
                const auto bytes = data_.subspan(static_cast<std::size_t>(packet.mStartOffset), packet.mDataByteSize);
                return decoder.decode(bytes, framesOf(packet), pcm);
            });
            return isGood ? OSStatus{noErr} : kAudioConverterErr_UnspecifiedError;
        });
    }

    /// Drops what is left of the stream's start from what was decoded last.
    void dropPriming(std::size_t before)
    {
        const auto dropped = static_cast<UInt32>(std::min<std::size_t>(toSkip_, (pcm_.size() - before) / frameBytes()));
        const auto from = pcm_.begin() + static_cast<std::ptrdiff_t>(before);
        pcm_.erase(from, from + static_cast<std::ptrdiff_t>(dropped * frameBytes()));
        toSkip_ -= dropped;
    }

    void end()
    {
        hasEnded_ = true;
        pcm_.resize(pcm_.size() - std::min(pcm_.size(), prime_.trailingFrames * frameBytes()));
    }

    std::unique_ptr<PacketDecoder> decoder_, helper_;
    AudioConverterPrimeInfo prime_;
    UInt32 toSkip_ = 0; ///< frames of the stream's start that are still to be dropped
    bool hasBegun_ = false, hasEnded_ = false;
    OSStatus failure_ = noErr; ///< comes after the decoded frames
    Bytes pcm_;                ///< decoded frames
    std::size_t given_ = 0;    ///< bytes of it that were returned by the last call

    InputSource input_{};
    std::span<const UInt8> data_; ///< of the packets that were supplied last
    Packets packets_;             ///< of them, those that are not decoded
    AudioStreamPacketDescription whole_;
};

class EncodingConverter : public CodedConverter
{
public:
    EncodingConverter(std::unique_ptr<PacketEncoder> encoder, std::unique_ptr<Converter> linear)
        : CodedConverter(std::move(linear)), encoder_(std::move(encoder)),
          block_(std::size_t{encoder_->target().mFramesPerPacket} * encoder_->input().mBytesPerFrame)
    {
    }

    const AudioStreamBasicDescription& source() const override { return linear().source(); }
    const AudioStreamBasicDescription& target() const override { return encoder_->target(); }
    UInt32 maximumPacketSize() const override { return encoder_->maximumPacketSize(); }
    PacketEncoder* encoder() override { return encoder_.get(); }

    AudioConverterPrimeInfo primeInfo() const override
    {
        const UInt64 frames = packetsMade_ * target().mFramesPerPacket, used = framesIn_ + encoder_->primingFrames();
        return {encoder_->primingFrames(), hasEnded_ && frames > used ? static_cast<UInt32>(frames - used) : 0};
    }

    // callers cannot choose what an encoder needs
    OSStatus setPrimeInfo(const AudioConverterPrimeInfo&) override { return kAudioConverterErr_OperationNotSupported; }

    void reset() override
    {
        linear().reset();
        encoder_->restart();
        packet_.clear();
        blockFrames_ = 0;
        framesIn_ = packetsMade_ = 0;
        hasEnded_ = false;
    }

    OSStatus fill(const InputSource& input, UInt32& packetCount, AudioBufferList& output,
                  AudioStreamPacketDescription* descriptions) override
    {
        const UInt32 wanted = packetCount;
        packetCount = 0;
        if (!descriptions)
            return kAudioConverterErr_RequiresPacketDescriptionsError;
        AudioBuffer& buffer = output.mBuffers[0];
        if (output.mNumberBuffers == 0 || !buffer.mData)
            return kAudioConverterErr_InvalidOutputSize;
        const UInt32 room = buffer.mDataByteSize;
        buffer.mDataByteSize = 0;
        OSStatus status = noErr;
        while (packetCount < wanted && (status = makePacket(input)) == noErr && !packet_.empty()) {
            const auto size = static_cast<UInt32>(packet_.size());
            if (size > room - buffer.mDataByteSize)
                return packetCount > 0 ? noErr : kAudioConverterErr_InvalidOutputSize;
            std::memcpy(static_cast<UInt8*>(buffer.mData) + buffer.mDataByteSize, packet_.data(), size);
            descriptions[packetCount++] = {buffer.mDataByteSize, 0, size};
            buffer.mDataByteSize += size;
            packet_.clear();
        }
        return status;
    }

private:
    /// Puts the next packet into `packet_`; none at the end.
    OSStatus makePacket(const InputSource& input)
    {
        while (packet_.empty()) {
            if (encoder_->take(packet_)) {
                ++packetsMade_;
                return noErr;
            }
            if (hasEnded_)
                return noErr;
            if (const OSStatus status = feed(input); status != noErr)
                return status;
        }
        return noErr;
    }

    /// Passes the frames of one packet, or the end of the stream, to the encoder.
    OSStatus feed(const InputSource& input)
    {
        const UInt32 frameBytes = encoder_->input().mBytesPerFrame, whole = target().mFramesPerPacket;
        UInt32 frames = whole - blockFrames_;
        UInt8* const start = block_.data() + std::size_t{blockFrames_} * frameBytes;
        AudioBufferList list{1, {{target().mChannelsPerFrame, frames * frameBytes, start}}};
        const OSStatus status = linear().fill(input, frames, list);
        blockFrames_ += frames;
        if (status != noErr)
            return status;
        bool isGood = true;
        if (blockFrames_ > 0)
            isGood = encoder_->encode(std::span(block_).first(std::size_t{blockFrames_} * frameBytes), blockFrames_);
        framesIn_ += blockFrames_;
        if (blockFrames_ < whole) {
            hasEnded_ = true;
            isGood = encoder_->finish() && isGood;
        }
        blockFrames_ = 0;
        return isGood ? noErr : kAudioConverterErr_UnspecifiedError;
    }

    std::unique_ptr<PacketEncoder> encoder_;
    Bytes packet_; ///< made and not yet returned
    Bytes block_;  ///< frames on their way into the encoder
    UInt32 blockFrames_ = 0;
    UInt64 framesIn_ = 0, packetsMade_ = 0;
    bool hasEnded_ = false;
};

} // namespace

std::unique_ptr<CodedConverter> CodedConverter::between(const AudioStreamBasicDescription& source,
                                                        const AudioStreamBasicDescription& target)
{
    if (auto decoder = PacketDecoder::forFormat(source)) {
        auto helper = isLossless(source.mFormatID) ? PacketDecoder::forFormat(source) : nullptr;
        auto linear = Converter::between(decoder->output(), target);
        return linear ? std::make_unique<DecodingConverter>(std::move(decoder), std::move(helper), std::move(linear))
                      : nullptr;
    }
    const auto pcm = PcmLayout::of(source);
    if (!pcm)
        return nullptr;
    auto encoder = PacketEncoder::forFormat(target, pcm->sample.bits);
    if (!encoder)
        return nullptr;
    auto linear = Converter::between(source, encoder->input());
    return linear ? std::make_unique<EncodingConverter>(std::move(encoder), std::move(linear)) : nullptr;
}

} // namespace qmx
