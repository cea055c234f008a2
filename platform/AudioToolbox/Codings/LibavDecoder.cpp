// SPDX-License-Identifier: MIT
#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Codings/Libav.h"
#include "AudioToolbox/Codings/PacketCoding.h"
#include "AudioToolbox/Conversion/PcmLayout.h"

#include <algorithm>
#include <cstring>

namespace qmx
{
namespace
{

constexpr UInt32 sampleBytes = 4; // of both kinds of output

UInt32 defaultFramesPerPacket(const AudioStreamBasicDescription& format)
{
    if (format.mFormatID == kAudioFormatMPEG4AAC)
        return 1024;
    if (isAAC(format.mFormatID))
        return 2048;
    if (format.mFormatID == kAudioFormatMPEGLayer3)
        return format.mSampleRate >= 32000 ? 1152 : 576;
    return format.mFormatID == kAudioFormatAppleLossless ? 4096 : 0;
}

AudioStreamBasicDescription pcmFormat(Float64 rate, UInt32 channels, bool isInteger)
{
    AudioStreamBasicDescription format;
    format.mSampleRate = rate;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = (isInteger ? kAudioFormatFlagIsSignedInteger : kAudioFormatFlagIsFloat) |
                          kAudioFormatFlagIsPacked |
                          (hostByteOrder == ByteOrder::big ? kAudioFormatFlagIsBigEndian : 0);
    format.mBytesPerPacket = format.mBytesPerFrame = sampleBytes * channels;
    format.mFramesPerPacket = 1;
    format.mChannelsPerFrame = channels;
    format.mBitsPerChannel = 8 * sampleBytes;
    return format;
}

/// `Sample` as the decoder delivers it, as 32 bits of the same kind.
template <class Sample>
void spread(const std::uint8_t* from, std::size_t fromStep, UInt8* to, std::size_t toStep, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        Sample sample{};
        std::memcpy(&sample, from + i * fromStep * sizeof sample, sizeof sample);
        if constexpr (sizeof(Sample) == 2) {
            const auto wide = static_cast<SInt32>(sample) * 65536;
            std::memcpy(to + i * toStep, &wide, sizeof wide);
        } else {
            std::memcpy(to + i * toStep, &sample, sizeof sample);
        }
    }
}

class LibavDecoder : public PacketDecoder
{
public:
    explicit LibavDecoder(const AudioStreamBasicDescription& source)
        : source_(source),
          output_(pcmFormat(source.mSampleRate, source.mChannelsPerFrame, isLossless(source.mFormatID))),
          packet_(av_packet_alloc()), frame_(av_frame_alloc())
    {
        source_.mBytesPerPacket = source_.mBytesPerFrame = source_.mBitsPerChannel = 0;
        if (source_.mFramesPerPacket == 0)
            source_.mFramesPerPacket = defaultFramesPerPacket(source);
    }

    const AudioStreamBasicDescription& source() const override { return source_; }
    const AudioStreamBasicDescription& output() const override { return output_; }

    bool setCookie(std::span<const UInt8> cookie) override
    {
        Bytes bare = bareFromCookie(source_.mFormatID, cookie);
        if (bare.empty())
            return false;
        bare_ = std::move(bare);
        context_.reset();
        return true;
    }

    bool decode(std::span<const UInt8> packet, UInt32 frames, Bytes& pcm) override
    {
        if (!context_ && !open())
            return false;
        const std::size_t start = pcm.size();
        pcm.resize(start + std::size_t{frames} * output_.mBytesPerFrame);
        const std::span room = std::span(pcm).subspan(start);
        if (!send(packet))
            return true;
        for (std::size_t filled = 0; avcodec_receive_frame(context_.get(), frame_.get()) == 0;)
            filled = store(room, filled, frames);
        return true;
    }

    // flushing would keep the shape of the last window and the seed of noise
    void restart() override { context_.reset(); }

private:
    bool open()
    {
        libav::keepQuiet();
        const AVCodec* const codec = avcodec_find_decoder(libav::codecOf(source_.mFormatID));
        libav::Context context(avcodec_alloc_context3(codec));
        if (!context || !packet_ || !frame_)
            return false;
        context->thread_count = 1;
        context->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL; // the caller drops the priming
        context->sample_rate = static_cast<int>(source_.mSampleRate);
        av_channel_layout_default(&context->ch_layout, static_cast<int>(source_.mChannelsPerFrame));
        const Bytes extradata = libav::extradataFor(source_.mFormatID, bare_);
        if (!libav::setExtradata(context->extradata, context->extradata_size, extradata) ||
            avcodec_open2(context.get(), codec, nullptr) < 0)
            return false;
        context_ = std::move(context);
        return true;
    }

    bool send(std::span<const UInt8> packet)
    {
        if (packet.empty() || av_new_packet(packet_.get(), static_cast<int>(packet.size())) < 0)
            return false;
        std::ranges::copy(packet, packet_->data);
        const int result = avcodec_send_packet(context_.get(), packet_.get());
        av_packet_unref(packet_.get());
        return result == 0;
    }

    /// Puts the frame after the first `filled` frames of `room`; returns how many are there then.
    std::size_t store(std::span<UInt8> room, std::size_t filled, std::size_t frames) const
    {
        const std::size_t count = std::min(static_cast<std::size_t>(frame_->nb_samples), frames - filled);
        const auto given = static_cast<std::size_t>(frame_->ch_layout.nb_channels);
        const std::size_t channels = std::min<std::size_t>(given, source_.mChannelsPerFrame);
        const auto format = static_cast<AVSampleFormat>(frame_->format);
        const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
        const auto bytes = static_cast<std::size_t>(av_get_bytes_per_sample(format));
        UInt8* const start = room.data() + filled * output_.mBytesPerFrame;
        if (format == AV_SAMPLE_FMT_S16 && given == source_.mChannelsPerFrame) {
            spread<SInt16>(frame_->extended_data[0], 1, start, sampleBytes, count * given);
            return filled + count;
        }
        for (std::size_t channel = 0; channel < channels; ++channel) {
            const std::uint8_t* const from =
                isPlanar ? frame_->extended_data[channel] : frame_->extended_data[0] + channel * bytes;
            UInt8* const to = start + channel * sampleBytes;
            const std::size_t step = isPlanar ? 1 : given;
            switch (av_get_packed_sample_fmt(format)) {
            case AV_SAMPLE_FMT_S16:
                spread<SInt16>(from, step, to, output_.mBytesPerFrame, count);
                break;
            case AV_SAMPLE_FMT_S32:
            case AV_SAMPLE_FMT_FLT:
                spread<UInt32>(from, step, to, output_.mBytesPerFrame, count);
                break;
            default:
                break;
            }
        }
        return filled + count;
    }

    AudioStreamBasicDescription source_, output_;
    Bytes bare_;
    libav::Context context_;
    libav::Packet packet_;
    libav::Frame frame_;
};

} // namespace

std::unique_ptr<PacketDecoder> libav::makeDecoder(const AudioStreamBasicDescription& source)
{
    const AVCodecID codec = libav::codecOf(source.mFormatID);
    const bool isUsable = isUsableSampleRate(source.mSampleRate) && source.mChannelsPerFrame > 0 &&
                          source.mChannelsPerFrame <= AV_NUM_DATA_POINTERS &&
                          source.mFramesPerPacket <= mostFramesPerPacket;
    if (codec == AV_CODEC_ID_NONE || !isUsable || !avcodec_find_decoder(codec))
        return nullptr;
    return std::make_unique<LibavDecoder>(source);
}

} // namespace qmx
