// SPDX-License-Identifier: MIT
#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Codings/Libav.h"
#include "AudioToolbox/Codings/PacketCoding.h"
#include "AudioToolbox/Conversion/PcmLayout.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <limits>

namespace qmx
{
namespace
{

constexpr UInt32 defaultBitsPerSecondAndChannel = 64000;
constexpr UInt32 largestHeader = 8192; // what a packet may need beyond the samples themselves

struct Settings {
    AVCodecID codec = AV_CODEC_ID_NONE;
    AVSampleFormat samples = AV_SAMPLE_FMT_NONE;
    UInt32 bits = 32; ///< of an input sample
};

Settings settingsFor(AudioFormatID coding, UInt32 bits)
{
    const AVCodecID codec = libav::codecOf(coding);
    if (!isLossless(coding))
        return {codec, AV_SAMPLE_FMT_FLTP, 32};
    const bool isShort = bits <= 16;
    if (coding == kAudioFormatFLAC)
        return {codec, isShort ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_S32, isShort ? 16U : 24U};
    return {codec, isShort ? AV_SAMPLE_FMT_S16P : AV_SAMPLE_FMT_S32P, isShort ? 16U : 24U};
}

AudioStreamBasicDescription inputFormat(const AudioStreamBasicDescription& target, const Settings& settings)
{
    AudioStreamBasicDescription format;
    format.mSampleRate = target.mSampleRate;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = (isLossless(target.mFormatID) ? kAudioFormatFlagIsSignedInteger : kAudioFormatFlagIsFloat) |
                          kAudioFormatFlagIsPacked |
                          (hostByteOrder == ByteOrder::big ? kAudioFormatFlagIsBigEndian : 0);
    format.mBytesPerPacket = format.mBytesPerFrame = settings.bits / 8 * target.mChannelsPerFrame;
    format.mFramesPerPacket = 1;
    format.mChannelsPerFrame = target.mChannelsPerFrame;
    format.mBitsPerChannel = settings.bits;
    return format;
}

/// One channel of `count` frames from packed native samples; 24 bits go to the upper ones of 32.
void spread(const UInt8* from, UInt32 fromBytes, std::size_t fromStep, std::uint8_t* to, UInt32 toBytes,
            std::size_t toStep, std::size_t count)
{
    const UInt32 shift = toBytes - fromBytes;
    for (std::size_t i = 0; i < count; ++i) {
        std::uint8_t* const sample = to + i * toStep;
        std::memset(sample, 0, shift);
        std::memcpy(sample + (hostByteOrder == ByteOrder::little ? shift : 0), from + i * fromStep, fromBytes);
        if (hostByteOrder == ByteOrder::big)
            std::memset(sample + fromBytes, 0, shift);
    }
}

class LibavEncoder : public PacketEncoder
{
public:
    LibavEncoder(const AudioStreamBasicDescription& target, UInt32 bits)
        : target_(compressedFormat(target.mFormatID, isLossless(target.mFormatID) ? flagsForSourceBits(bits) : 0,
                                   target.mSampleRate, target.mChannelsPerFrame, 0)),
          settings_(settingsFor(target.mFormatID, bits)), input_(inputFormat(target_, settings_)),
          packet_(av_packet_alloc()), frame_(av_frame_alloc())
    {
        const auto rates = applicableBitRates();
        if (!rates.empty())
            bitRate_ = nearest(rates, defaultBitsPerSecondAndChannel * target.mChannelsPerFrame);
        if (target.mFormatID == kAudioFormatMPEG4AAC)
            target_.mFormatFlags = target.mFormatFlags;
    }

    const AudioStreamBasicDescription& input() const override { return input_; }
    const AudioStreamBasicDescription& target() const override { return target_; }
    UInt32 primingFrames() const override { return static_cast<UInt32>(std::max(0, context_->initial_padding)); }
    UInt32 bitRate() const override { return bitRate_; }

    UInt32 maximumPacketSize() const override
    {
        const UInt32 samples = target_.mFramesPerPacket * target_.mChannelsPerFrame;
        // an AAC packet holds at most 6144 bits a channel, an MP3 frame 1441 bytes
        if (target_.mFormatID == kAudioFormatMPEG4AAC)
            return 768 * target_.mChannelsPerFrame + 64;
        return isLossless(target_.mFormatID) ? samples * settings_.bits / 8 + samples / 8 + largestHeader : 2048;
    }

    Bytes cookie() const override
    {
        Bytes bare(context_->extradata, context_->extradata + context_->extradata_size);
        if (!finalExtradata_.empty())
            bare = finalExtradata_;
        return cookieFromBare(target_.mFormatID,
                              isAAC(target_.mFormatID) ? bare : bareFromCookie(target_.mFormatID, bare));
    }

    bool setBitRate(UInt32 bitsPerSecond) override
    {
        const auto rates = applicableBitRates();
        if (rates.empty() || framesIn_ > 0)
            return false;
        bitRate_ = nearest(rates, bitsPerSecond);
        return open();
    }

    bool encode(std::span<const UInt8> pcm, UInt32 frames) override
    {
        AVFrame* const frame = frame_.get();
        av_frame_unref(frame);
        const UInt32 encoded = std::max(frames, fewestFrames());
        frame->nb_samples = static_cast<int>(encoded);
        frame->format = context_->sample_fmt;
        frame->sample_rate = context_->sample_rate;
        frame->pts = framesIn_;
        if (av_channel_layout_copy(&frame->ch_layout, &context_->ch_layout) < 0 || av_frame_get_buffer(frame, 0) < 0)
            return false;
        av_samples_set_silence(frame->extended_data, 0, frame->nb_samples, frame->ch_layout.nb_channels,
                               context_->sample_fmt);
        fill(*frame, pcm, frames);
        framesIn_ += frames;
        return avcodec_send_frame(context_.get(), frame) == 0 && collect();
    }

    bool finish() override { return avcodec_send_frame(context_.get(), nullptr) == 0 && collect(); }

    bool take(Bytes& packet) override
    {
        if (ready_.empty())
            return false;
        packet = std::move(ready_.front());
        ready_.pop_front();
        return true;
    }

    void restart() override { open(); }

    bool open()
    {
        libav::keepQuiet();
        const AVCodec* const codec = avcodec_find_encoder(settings_.codec);
        libav::Context context(avcodec_alloc_context3(codec));
        if (!context || !packet_ || !frame_)
            return false;
        context->thread_count = 1;
        context->sample_rate = static_cast<int>(target_.mSampleRate);
        context->time_base = {1, context->sample_rate};
        context->sample_fmt = settings_.samples;
        context->bits_per_raw_sample = static_cast<int>(settings_.bits);
        context->bit_rate = bitRate_;
        context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        if (!setLayout(*context, *codec))
            return false;
        if (target_.mFormatID == kAudioFormatMPEG4AAC) {
            // noise that the decoder makes up would differ each time a place is read
            av_opt_set_int(context->priv_data, "aac_pns", 0, 0);
            // the default is slower and leaves 25 dB more error in plain tones
            av_opt_set(context->priv_data, "aac_coder", "fast", 0);
        }
        if (avcodec_open2(context.get(), codec, nullptr) < 0 || context->frame_size <= 0)
            return false;
        context_ = std::move(context);
        target_.mFramesPerPacket = static_cast<UInt32>(context_->frame_size);
        ready_.clear();
        finalExtradata_.clear();
        framesIn_ = 0;
        return true;
    }

private:
    /// The layout that the coding has for that many channels.
    bool setLayout(AVCodecContext& context, const AVCodec& codec) const
    {
        constexpr UInt64 masks[] = {AV_CH_LAYOUT_MONO,         AV_CH_LAYOUT_STEREO,           AV_CH_LAYOUT_SURROUND,
                                    AV_CH_LAYOUT_4POINT0,      AV_CH_LAYOUT_5POINT0_BACK,     AV_CH_LAYOUT_5POINT1_BACK,
                                    AV_CH_LAYOUT_6POINT1_BACK, AV_CH_LAYOUT_7POINT1_WIDE_BACK};
        const UInt32 channels = target_.mChannelsPerFrame;
        const AVChannelLayout* layout = target_.mFormatID == kAudioFormatFLAC ? codec.ch_layouts : nullptr;
        if (target_.mFormatID == kAudioFormatMPEG4AAC && channels == 8) // the one of 8 that its encoder has a code for
            return av_channel_layout_from_mask(&context.ch_layout, AV_CH_LAYOUT_7POINT1) == 0;
        while (layout && layout->nb_channels > 0 && layout->nb_channels != static_cast<int>(channels))
            ++layout;
        return layout ? layout->nb_channels > 0 && av_channel_layout_copy(&context.ch_layout, layout) == 0
                      : av_channel_layout_from_mask(&context.ch_layout, masks[channels - 1]) == 0;
    }

    // the library's ALAC encoder ends the process over packets of a few frames of many channels
    UInt32 fewestFrames() const
    {
        return target_.mFormatID == kAudioFormatAppleLossless && target_.mChannelsPerFrame > 2 ? 32 : 1;
    }

    std::vector<UInt32> applicableBitRates() const
    {
        return encodeBitRates(target_.mFormatID, target_.mSampleRate, target_.mChannelsPerFrame);
    }

    static UInt32 nearest(const std::vector<UInt32>& rates, UInt32 wanted)
    {
        const auto distance = [&](UInt32 rate) { return rate > wanted ? rate - wanted : wanted - rate; };
        return *std::ranges::min_element(rates, {}, distance);
    }

    void fill(AVFrame& frame, std::span<const UInt8> pcm, UInt32 frames) const
    {
        const UInt32 from = settings_.bits / 8;
        const auto to = static_cast<UInt32>(av_get_bytes_per_sample(context_->sample_fmt));
        const bool isPlanar = av_sample_fmt_is_planar(context_->sample_fmt) != 0;
        for (UInt32 channel = 0; channel < target_.mChannelsPerFrame; ++channel) {
            std::uint8_t* const plane =
                isPlanar ? frame.extended_data[channel] : frame.extended_data[0] + std::size_t{channel} * to;
            const std::size_t step = isPlanar ? to : std::size_t{to} * target_.mChannelsPerFrame;
            spread(pcm.data() + std::size_t{channel} * from, from, input_.mBytesPerFrame, plane, to, step, frames);
        }
    }

    bool collect()
    {
        int result = 0;
        while ((result = avcodec_receive_packet(context_.get(), packet_.get())) == 0) {
            std::size_t bytes = 0;
            const std::uint8_t* const extradata =
                av_packet_get_side_data(packet_.get(), AV_PKT_DATA_NEW_EXTRADATA, &bytes);
            if (extradata)
                finalExtradata_.assign(extradata, extradata + bytes);
            if (packet_->size > 0)
                ready_.emplace_back(packet_->data, packet_->data + packet_->size);
            av_packet_unref(packet_.get());
        }
        return result == AVERROR(EAGAIN) || result == AVERROR_EOF;
    }

    AudioStreamBasicDescription target_;
    Settings settings_;
    AudioStreamBasicDescription input_;
    UInt32 bitRate_ = 0;
    libav::Context context_;
    libav::Packet packet_;
    libav::Frame frame_;
    std::deque<Bytes> ready_;
    Bytes finalExtradata_;
    SInt64 framesIn_ = 0;
};

/// How many bits a lossless coding keeps: those requested, in the next wider samples that its encoder makes; 0 if none
/// are wide enough. Without a request, 24 for all that is wider than 16 bits, floats too.
UInt32 bitsToKeep(const AudioStreamBasicDescription& target, UInt32 sourceBits)
{
    if (!isLossless(target.mFormatID))
        return 32;
    const UInt32 bits = target.mFormatFlags == 0 ? (sourceBits > 16 ? 24 : 16) : sourceBitsOf(target);
    if (bits == 0 || bits > 24)
        return 0;
    return bits <= 16 ? 16 : 24;
}

} // namespace

std::unique_ptr<PacketEncoder> libav::makeEncoder(const AudioStreamBasicDescription& target, UInt32 sourceBits)
{
    const AVCodecID codec = libav::codecOf(target.mFormatID);
    const UInt32 bits = bitsToKeep(target, sourceBits);
    const bool isEncoded = std::ranges::count(libav::encodableCodings(), target.mFormatID) > 0;
    const bool isUsable = isUsableSampleRate(target.mSampleRate) &&
                          target.mSampleRate == std::floor(target.mSampleRate) && target.mChannelsPerFrame > 0 &&
                          target.mChannelsPerFrame <= AV_NUM_DATA_POINTERS;
    if (codec == AV_CODEC_ID_NONE || !isEncoded || !isUsable || bits == 0)
        return nullptr;
    if (target.mFormatID == kAudioFormatMPEG4AAC && makeAACConfig(target).empty())
        return nullptr;
    auto encoder = std::make_unique<LibavEncoder>(target, bits);
    const UInt32 asked = target.mFramesPerPacket;
    if (!encoder->open() || (asked != 0 && asked != encoder->target().mFramesPerPacket))
        return nullptr;
    return encoder;
}

} // namespace qmx
