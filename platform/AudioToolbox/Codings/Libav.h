// SPDX-License-Identifier: MIT
// Owners of what libavcodec and libavformat allocate, and the codings' names in both worlds.
#pragma once

#include "AudioToolbox/Codings/PacketCoding.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
}

#include <memory>

namespace qmx::libav
{

struct FreeContext {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreeFilter {
    void operator()(AVBSFContext* filter) const { av_bsf_free(&filter); }
};
/// Does not close the underlying file, which the caller owns.
struct CloseInput {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct FreeOutput {
    void operator()(AVFormatContext* context) const { avformat_free_context(context); }
};
using Context = std::unique_ptr<AVCodecContext, FreeContext>;
using Packet = std::unique_ptr<AVPacket, FreePacket>;
using Frame = std::unique_ptr<AVFrame, FreeFrame>;
using Filter = std::unique_ptr<AVBSFContext, FreeFilter>;
using Input = std::unique_ptr<AVFormatContext, CloseInput>;
using Output = std::unique_ptr<AVFormatContext, FreeOutput>;

// What the module offers; see PacketCoding.h.
std::unique_ptr<PacketDecoder> makeDecoder(const AudioStreamBasicDescription& source);
std::unique_ptr<PacketEncoder> makeEncoder(const AudioStreamBasicDescription& target, UInt32 sourceBits);
std::vector<AudioFormatID> decodableCodings();
std::vector<AudioFormatID> encodableCodings();

/// AV_CODEC_ID_NONE for codings that are not taken from the library.
AVCodecID codecOf(AudioFormatID coding);
/// Silences the library's log, which goes to standard error, unless the application has chosen a level itself.
void keepQuiet();
/// The coding's own parameters as the library wants them; empty ones too.
Bytes extradataFor(AudioFormatID coding, std::span<const UInt8> bare);
/// Copies with the padding that the library reads into; false without memory.
bool setExtradata(std::uint8_t*& data, int& size, std::span<const UInt8> bytes);

} // namespace qmx::libav
