// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Libav/LibavReader.h"

#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Codings/PacketCoding.h"
#include "AudioToolbox/Containers/SampleLayout.h"

extern "C" {
#include <libavutil/crc.h>
}

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace qmx::libav
{
namespace
{

constexpr std::string_view movieDemuxer = "mov", adtsDemuxer = "aac", mp3Demuxer = "mp3";
// the bits that no header of a stream changes
constexpr UInt32 sameMP3Stream = 0xFFFE0C00, sameADTSStream = 0xFFFEFDC0;
constexpr std::size_t mp3HeaderBytes = 4, adtsHeaderBytes = 7;
constexpr UInt64 longestTime = UInt64{1} << 62;

int refuse(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**)
{
    return AVERROR(EACCES);
}

/// Edits are kept out of the index: they count when the length is computed. After other bytes between the frames of
/// ADTS a parser would lose its place; the frames come whole without one.
AVDictionary* openingOptions(bool parses)
{
    AVDictionary* options = nullptr;
    for (const auto& [name, value] : {std::pair{"codec_whitelist", "aac,mp3,mp3float"},
                                      {"probesize", "65536"},
                                      {"fflags", parses ? "discardcorrupt" : "discardcorrupt+noparse+nofillin"},
                                      {"ignore_editlist", "1"},
                                      {"ignore_chapters", "1"}})
        av_dict_set(&options, name, value, 0);
    return options;
}

bool isKnown(AVCodecID codec)
{
    return codec == AV_CODEC_ID_AAC || codec == AV_CODEC_ID_ALAC || codec == AV_CODEC_ID_FLAC ||
           codec == AV_CODEC_ID_MP3;
}

AudioFormatID aacOf(const AVCodecParameters& parameters, UInt32 frames)
{
    if (parameters.profile == FF_PROFILE_AAC_HE_V2)
        return kAudioFormatMPEG4AAC_HE_V2;
    return frames > 1024 ? kAudioFormatMPEG4AAC_HE : kAudioFormatMPEG4AAC;
}

/// The size of the FLAC frame that a packet starts with, by the checksum at its end; 0 if the frame is cut. The start
/// of another frame that is too short to be told from this one may follow, or a tag.
std::size_t sizeOfFrame(std::span<const UInt8> packet)
{
    constexpr std::size_t mostAfterFrame = 128;
    const AVCRC* const table = av_crc_get_table(AV_CRC_16_ANSI);
    std::size_t size = 0, at = packet.size() - std::min(packet.size(), mostAfterFrame);
    UInt32 sum = av_crc(table, 0, packet.data(), at);
    for (; at < packet.size(); ++at) {
        size = sum == 0 ? at : size;
        sum = av_crc(table, sum, &packet[at], 1);
    }
    return sum == 0 ? packet.size() : size;
}

} // namespace

OSStatus Reader::statusFor(int error) const
{
    if (input_.status() != noErr)
        return input_.status();
    return error == AVERROR(ENOMEM) ? memFullErr : kAudioFileInvalidFileError;
}

OSStatus Reader::prepare()
{
    if (demuxer_ == movieDemuxer) {
        const OSStatus status = atoms_.read(file_);
        input_.setEnd(atoms_.end());
        return status;
    }
    return demuxer_ == mp3Demuxer ? pad() : noErr;
}

// The demuxer refuses a file of one frame: it wants to see the header of another one after it, which a killed writer
// may have started, and of two after a first frame that holds no audio. The padding never counts as a packet, as no
// packet reaches past the end of the file.
OSStatus Reader::pad()
{
    constexpr std::size_t mostOfOneFrame = 4096;
    Bytes begin(static_cast<std::size_t>(std::min<UInt64>(file_.length(), mostOfOneFrame)));
    if (const OSStatus status = file_.readAll(0, begin); status != noErr)
        return status;
    Bytes header, padding;
    for (std::size_t at = 0; at + 2 <= begin.size(); ++at) {
        const std::size_t there = std::min(mp3HeaderBytes, begin.size() - at);
        std::size_t same = 0;
        while (same < there && ((begin[at + same] ^ begin[same]) & sameMP3Stream >> (24 - 8 * same) & 0xFF) == 0)
            ++same;
        if (same == mp3HeaderBytes) {
            padding = header.empty() ? begin : Bytes();
            header.assign(&begin[at], &begin[at] + mp3HeaderBytes);
        } else if (same == there && !header.empty()) {
            header.erase(header.begin(), header.begin() + static_cast<std::ptrdiff_t>(there));
            break;
        }
    }
    padding.insert(padding.end(), header.begin(), header.end());
    input_.setPadding(std::move(padding));
    return noErr;
}

OSStatus Reader::open()
{
    if (const OSStatus status = prepare(); status != noErr)
        return status;
    keepQuiet();
    AVFormatContext* context = input_.context() ? avformat_alloc_context() : nullptr;
    if (!context)
        return memFullErr;
    context->pb = input_.context();
    context->io_open = refuse;
    AVDictionary* options = openingOptions(demuxer_ != adtsDemuxer);
    const int result =
        avformat_open_input(&context, "", av_find_input_format(demuxer_.c_str()), &options); // frees it on failure
    av_dict_free(&options);
    if (result < 0)
        return statusFor(result);
    context_.reset(context);
    if (!chooseStream())
        return kAudioFileUnsupportedDataFormatError;
    if (demuxer_ == adtsDemuxer && !makeUnwrapper())
        return memFullErr;
    const bool isDescribed = describe();
    if (input_.status() != noErr)
        return input_.status();
    return isDescribed && isPlausible(format_.mSampleRate, format_.mChannelsPerFrame)
               ? noErr
               : kAudioFileUnsupportedDataFormatError;
}

bool Reader::chooseStream()
{
    for (AVStream* const stream : std::span(context_->streams, context_->nb_streams)) {
        if (!stream_ && stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO && isKnown(stream->codecpar->codec_id))
            stream_ = stream;
        else
            stream->discard = AVDISCARD_ALL;
    }
    return stream_ != nullptr;
}

bool Reader::makeUnwrapper()
{
    AVBSFContext* filter = nullptr;
    if (av_bsf_alloc(av_bsf_get_by_name("aac_adtstoasc"), &filter) < 0)
        return false;
    unwrapper_.reset(filter);
    return avcodec_parameters_copy(filter->par_in, stream_->codecpar) >= 0 && av_bsf_init(filter) >= 0;
}

bool Reader::describe()
{
    const AVCodecParameters& parameters = *stream_->codecpar;
    const std::span<const UInt8> extradata(parameters.extradata, static_cast<std::size_t>(parameters.extradata_size));
    std::optional<AudioStreamBasicDescription> told;
    switch (parameters.codec_id) {
    case AV_CODEC_ID_ALAC:
        bare_ = bareFromCookie(kAudioFormatAppleLossless, extradata);
        told = formatFromALAC(bare_);
        break;
    case AV_CODEC_ID_FLAC:
        bare_ = bareFromCookie(kAudioFormatFLAC, extradata);
        told = formatFromFLAC(bare_, validFrames_);
        break;
    case AV_CODEC_ID_AAC:
        bare_ = bareFromCookie(kAudioFormatMPEG4AAC, extradata);
        if (!unwrapper_ && bare_.empty())
            return false;
        [[fallthrough]];
    default:
        told = describeByDecoding();
    }
    format_ = told.value_or(AudioStreamBasicDescription());
    // an MPEG-4 file's packets all have as many frames
    return told && (demuxer_ != movieDemuxer || format_.mFramesPerPacket > 0);
}

// What a high efficiency stream decodes to; its configuration need not say so.
std::optional<AudioStreamBasicDescription> Reader::describeByDecoding()
{
    const AVCodecParameters& parameters = *stream_->codecpar;
    if (avformat_find_stream_info(context_.get(), nullptr) < 0 || !isKnown(parameters.codec_id))
        return std::nullopt;
    const bool isMP3 = parameters.codec_id == AV_CODEC_ID_MP3;
    auto frames = static_cast<UInt32>(std::max(0, parameters.frame_size));
    if (frames == 0 && !isMP3) { // there was nothing to decode
        const auto config = parseAACConfig(bare_);
        frames = config && config->hasSpectralReplication ? 2048 : 1024;
    }
    if (frames == 0 || frames > mostFramesPerPacket)
        return std::nullopt;
    const AudioFormatID coding = isMP3 ? kAudioFormatMPEGLayer3 : aacOf(parameters, frames);
    return compressedFormat(coding, coding == kAudioFormatMPEG4AAC ? kMPEG4Object_AAC_LC : 0, parameters.sample_rate,
                            static_cast<UInt32>(std::max(0, parameters.ch_layout.nb_channels)), frames);
}

OSStatus Reader::readPackets(const AddPacket& add)
{
    UInt64 packets = 0, frames = 0;
    const auto count = [&](const PacketPlace& packet) {
        const bool isTaken = add(format_.mFramesPerPacket > 0 ? PacketPlace{packet.position, packet.size} : packet);
        packets += isTaken ? 1 : 0;
        frames += isTaken ? packet.frames : 0;
        return isTaken;
    };
    const bool isMovie = demuxer_ == movieDemuxer;
    if (!isMovie || atoms_.isFragmented()) {
        if (const OSStatus status = readStream(count); status != noErr)
            return status;
    } else {
        readIndex(count);
    }
    if (isMovie) {
        setLengthOfMovie(packets);
    } else {
        const UInt64 gaps = std::min(frames, primingFrames_ + discarded_);
        validFrames_ = validFrames_ > 0 ? std::min(validFrames_, frames) : frames - gaps;
    }
    return noErr;
}

void Reader::readIndex(const AddPacket& add)
{
    const int count = avformat_index_get_entries_count(stream_);
    for (int i = 0; i < count; ++i) {
        const AVIndexEntry* const entry = avformat_index_get_entry(stream_, i);
        if (entry->pos < 0 || entry->size < 0 ||
            !add({static_cast<UInt64>(entry->pos), static_cast<UInt32>(entry->size), format_.mFramesPerPacket}))
            return;
    }
}

OSStatus Reader::readStream(const AddPacket& add)
{
    const Packet packet(av_packet_alloc());
    if (!packet)
        return memFullErr;
    int result = 0;
    UInt64 framesSoFar = 0;
    while ((result = av_read_frame(context_.get(), packet.get())) >= 0) {
        const bool isSound = packet->stream_index == stream_->index && strip(*packet);
        const UInt32 frames = isSound ? framesOf(*packet) : 0;
        framesSoFar += frames;
        if (frames > 0) {
            if (!trimLastFrame(*packet, framesSoFar) || packet->pos < 0 ||
                !add({static_cast<UInt64>(packet->pos), static_cast<UInt32>(packet->size), frames}))
                break;
            noteGaps(*packet);
        }
        av_packet_unref(packet.get());
    }
    // a damaged stream ends at the damage
    return input_.status() != noErr || result == AVERROR(ENOMEM) ? statusFor(result) : noErr;
}

/// Removes what follows the last frame of a FLAC file. False for a frame that a killed writer left unfinished. If the
/// file already has all frames that it claims, the packet stays as it is.
bool Reader::trimLastFrame(AVPacket& packet, UInt64 framesSoFar) const
{
    const bool isLast = packet.pos >= 0 && static_cast<UInt64>(packet.pos + packet.size) >= file_.length();
    if (format_.mFormatID != kAudioFormatFLAC || !isLast || (validFrames_ > 0 && framesSoFar >= validFrames_))
        return true;
    packet.size = static_cast<int>(sizeOfFrame({packet.data, static_cast<std::size_t>(packet.size)}));
    return packet.size > 0;
}

/// 0 for what is no packet: other bytes between the frames of a FLAC stream come without a duration.
UInt32 Reader::framesOf(const AVPacket& packet) const
{
    if (format_.mFormatID != kAudioFormatFLAC)
        return format_.mFramesPerPacket;
    const UInt64 frames = framesIn(static_cast<UInt64>(std::max<SInt64>(0, packet.duration)), stream_->time_base);
    return frames <= mostFramesPerPacket ? static_cast<UInt32>(frames) : 0;
}

/// Reduces a packet to what a decoder needs. False for one that is not of the stream.
bool Reader::strip(AVPacket& packet)
{
    if (format_.mFormatID == kAudioFormatMPEGLayer3)
        stripOtherBytes(packet);
    return !unwrapper_ || unwrap(packet);
}

/// Removes what is between a frame and the one before.
void Reader::stripOtherBytes(AVPacket& packet)
{
    for (int at = 0; at + static_cast<int>(mp3HeaderBytes) <= packet.size; ++at) {
        const UInt32 header = load32(packet.data + at, ByteOrder::big) & sameMP3Stream;
        if (firstHeader_.value_or(header) == header) {
            firstHeader_ = header;
            packet.data += at;
            packet.size -= at;
            packet.pos += at;
            return;
        }
    }
}

/// Removes the header from a packet. False for one that is not of the stream, or holds several blocks.
bool Reader::unwrap(AVPacket& packet)
{
    if (packet.size < static_cast<int>(adtsHeaderBytes) || (packet.data[6] & 3) != 0)
        return false;
    const UInt32 header = load32(packet.data, ByteOrder::big) & sameADTSStream;
    if (firstHeader_.value_or(header) != header)
        return false;
    firstHeader_ = header;
    const SInt64 end = packet.pos + packet.size;
    if (av_bsf_send_packet(unwrapper_.get(), &packet) < 0 || av_bsf_receive_packet(unwrapper_.get(), &packet) < 0)
        return false;
    packet.pos = end - packet.size;
    std::size_t size = 0;
    const std::uint8_t* const config = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &size);
    if (config)
        bare_.assign(config, config + size);
    return true;
}

void Reader::noteGaps(const AVPacket& packet)
{
    std::size_t size = 0;
    const std::uint8_t* const gaps = av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
    if (!gaps || size < 8)
        return;
    primingFrames_ += load32(gaps, ByteOrder::little);
    discarded_ += load32(gaps + 4, ByteOrder::little);
}

UInt64 Reader::framesIn(UInt64 time, AVRational tick) const
{
    const Float64 frames =
        tick.den > 0 ? std::round(static_cast<Float64>(time) * tick.num * format_.mSampleRate / tick.den) : 0;
    return frames < static_cast<Float64>(longestTime) ? static_cast<UInt64>(frames) : 0;
}

void Reader::setLengthOfMovie(UInt64 packets)
{
    const UInt64 nominal = packets * format_.mFramesPerPacket;
    if (setLengthFromComment(nominal))
        return;
    const auto time = static_cast<UInt64>(std::max<SInt64>(0, stream_->duration));
    const UInt64 total = std::min(framesIn(time, stream_->time_base), nominal);
    const auto edit = atoms_.editOf(static_cast<UInt32>(stream_->id));
    primingFrames_ = edit ? std::min(framesIn(edit->start, stream_->time_base), total) : 0;
    validFrames_ = total - primingFrames_;
    if (!edit || edit->duration == 0 || atoms_.movieScale() == 0)
        return;
    // an edit's length is rounded to the movie's time, the packets' times are exact
    const AVRational movieTick{1, static_cast<int>(std::min(atoms_.movieScale(), UInt32{INT_MAX}))};
    const UInt64 edited = framesIn(edit->duration, movieTick);
    if (static_cast<Float64>(edited) + format_.mSampleRate / movieTick.den < static_cast<Float64>(validFrames_))
        validFrames_ = edited;
}

// Zeros, priming, remainder and length in frames as hexadecimal text, which some encoders write.
bool Reader::setLengthFromComment(UInt64 frames)
{
    const AVDictionaryEntry* const comment = av_dict_get(context_->metadata, "iTunSMPB", nullptr, 0);
    if (!comment)
        return false;
    UInt64 gaps[4] = {};
    char* at = comment->value;
    for (UInt64& number : gaps)
        number = std::strtoull(at, &at, 16);
    const auto [zeros, priming, remainder, valid] = gaps;
    if (valid == 0 || std::max({priming, remainder, valid}) > frames || priming + remainder + valid > frames)
        return false;
    primingFrames_ = priming;
    validFrames_ = valid;
    return true;
}

} // namespace qmx::libav
