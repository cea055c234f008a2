// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Libav/LibavMuxer.h"

#include "AudioToolbox/Codings/CodingFacts.h"

#include <algorithm>

namespace qmx::libav
{

Muxer::Muxer(const char* muxer, const AudioStreamBasicDescription& format, std::span<const UInt8> bare, UInt32 priming,
             const char* options)
    : packet_(av_packet_alloc())
{
    keepQuiet();
    isOpen_ = packet_ && surroundings_.context() && open(muxer, format, bare, priming, options);
}

bool Muxer::open(const char* muxer, const AudioStreamBasicDescription& format, std::span<const UInt8> bare,
                 UInt32 priming, const char* options)
{
    AVFormatContext* context = nullptr;
    if (avformat_alloc_output_context2(&context, nullptr, muxer, nullptr) < 0)
        return false;
    context_.reset(context);
    context->pb = surroundings_.context();
    context->flags |= AVFMT_FLAG_BITEXACT;
    context->metadata_header_padding = 0;
    AVStream* const stream = avformat_new_stream(context, nullptr);
    if (!stream)
        return false;
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_AUDIO;
    parameters.codec_id = codecOf(format.mFormatID);
    parameters.sample_rate = static_cast<int>(format.mSampleRate);
    parameters.ch_layout.nb_channels = static_cast<int>(format.mChannelsPerFrame);
    parameters.frame_size = static_cast<int>(format.mFramesPerPacket);
    parameters.initial_padding = static_cast<int>(priming);
    parameters.bits_per_raw_sample = static_cast<int>(std::max(16U, sourceBitsOf(format)));
    if (!setExtradata(parameters.extradata, parameters.extradata_size, extradataFor(format.mFormatID, bare)))
        return false;
    stream->time_base = {1, parameters.sample_rate};
    AVDictionary* own = nullptr;
    const bool isParsed = av_dict_parse_string(&own, options, "=", ",", 0) >= 0;
    const bool isWritten = isParsed && avformat_write_header(context, &own) >= 0;
    av_dict_free(&own);
    surroundings_.endHead();
    return isWritten;
}

bool Muxer::add(std::span<const UInt8> packet, SInt64 start, SInt64 duration, const Gaps& gaps)
{
    if (av_new_packet(packet_.get(), static_cast<int>(packet.size())) < 0)
        return false;
    std::ranges::copy(packet, packet_->data);
    const AVRational frames{1, context_->streams[0]->codecpar->sample_rate};
    packet_->pts = packet_->dts = start;
    packet_->duration = duration;
    av_packet_rescale_ts(packet_.get(), frames, context_->streams[0]->time_base);
    packet_->flags |= AV_PKT_FLAG_KEY;
    if (gaps.priming > 0 || gaps.remainder > 0) {
        constexpr std::size_t sideBytes = 10;
        std::uint8_t* const side = av_packet_new_side_data(packet_.get(), AV_PKT_DATA_SKIP_SAMPLES, sideBytes);
        if (!side)
            return false;
        std::fill_n(side, sideBytes, std::uint8_t{0});
        store32(side, gaps.priming, ByteOrder::little);
        store32(side + 4, gaps.remainder, ByteOrder::little);
    }
    lastSize_ = packet.size();
    const bool isWritten = av_write_frame(context_.get(), packet_.get()) >= 0;
    av_packet_unref(packet_.get());
    return isWritten;
}

Bytes Muxer::packetHeader()
{
    auto [bytes, size] = surroundings_.takePacket();
    bytes.resize(std::min(bytes.size(), size - std::min(size, lastSize_)));
    return bytes;
}

bool Muxer::finish()
{
    surroundings_.endPackets();
    const bool isWritten = av_write_trailer(context_.get()) >= 0;
    surroundings_.flush();
    return isWritten;
}

} // namespace qmx::libav
