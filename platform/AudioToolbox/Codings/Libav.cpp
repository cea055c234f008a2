// SPDX-License-Identifier: MIT
#include "AudioToolbox/Codings/Libav.h"

#include "AudioToolbox/Codings/CodingFacts.h"

#include <algorithm>
#include <mutex>

namespace qmx::libav
{

AVCodecID codecOf(AudioFormatID coding)
{
    if (isAAC(coding))
        return AV_CODEC_ID_AAC;
    switch (coding) {
    case kAudioFormatAppleLossless:
        return AV_CODEC_ID_ALAC;
    case kAudioFormatFLAC:
        return AV_CODEC_ID_FLAC;
    case kAudioFormatMPEGLayer3:
        return AV_CODEC_ID_MP3;
    default:
        return AV_CODEC_ID_NONE;
    }
}

void keepQuiet()
{
    static std::once_flag once;
    std::call_once(once, [] {
        if (av_log_get_level() == AV_LOG_INFO)
            av_log_set_level(AV_LOG_QUIET);
    });
}

Bytes extradataFor(AudioFormatID coding, std::span<const UInt8> bare)
{
    if (coding != kAudioFormatAppleLossless || bare.empty())
        return {bare.begin(), bare.end()};
    return ByteWriter(ByteOrder::big)
        .u32(static_cast<UInt32>(bare.size() + 12))
        .code(fourCharCode("alac"))
        .u32(0)
        .append(bare)
        .bytes();
}

bool setExtradata(std::uint8_t*& data, int& size, std::span<const UInt8> bytes)
{
    av_freep(&data);
    size = 0;
    if (bytes.empty())
        return true;
    data = static_cast<std::uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!data)
        return false;
    std::ranges::copy(bytes, data);
    size = static_cast<int>(bytes.size());
    return true;
}

namespace
{

template <class Find> std::vector<AudioFormatID> codingsWith(std::initializer_list<AudioFormatID> candidates, Find find)
{
    std::vector<AudioFormatID> result;
    std::ranges::copy_if(candidates, std::back_inserter(result),
                         [&](AudioFormatID coding) { return find(codecOf(coding)) != nullptr; });
    return result;
}

} // namespace

std::vector<AudioFormatID> decodableCodings()
{
    return codingsWith({kAudioFormatMPEG4AAC, kAudioFormatMPEG4AAC_HE, kAudioFormatMPEG4AAC_HE_V2,
                        kAudioFormatAppleLossless, kAudioFormatFLAC, kAudioFormatMPEGLayer3},
                       avcodec_find_decoder);
}

std::vector<AudioFormatID> encodableCodings()
{
    return codingsWith({kAudioFormatMPEG4AAC, kAudioFormatAppleLossless, kAudioFormatFLAC, kAudioFormatMPEGLayer3},
                       avcodec_find_encoder);
}

} // namespace qmx::libav
