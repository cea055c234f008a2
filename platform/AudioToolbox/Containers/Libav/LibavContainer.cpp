// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Libav/LibavContainer.h"

#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Containers/Libav/LibavMuxer.h"
#include "AudioToolbox/Containers/Libav/LibavReader.h"
#include "AudioToolbox/Containers/Libav/MPEG4Fragments.h"
#include "AudioToolbox/Containers/SampleLayout.h"

#include <algorithm>

namespace qmx
{
namespace
{

constexpr std::size_t flacInfoBytes = 34;

/// A file whose packets a demuxer finds and whose other bytes a muxer writes: those before the packets at once, so that
/// a stream whose writer is killed can be read.
class LibavContainer : public PacketContainer
{
protected:
    LibavContainer(std::unique_ptr<File> file, const char* demuxer, const char* muxer, std::string options = "")
        : PacketContainer(std::move(file)), demuxer_(demuxer), muxerName_(muxer), options_(std::move(options))
    {
    }

    OSStatus read() override
    {
        libav::Reader reader(file_, demuxer_);
        if (const OSStatus status = reader.open(); status != noErr)
            return status;
        format_ = reader.format();
        const OSStatus status = reader.readPackets([&](const PacketPlace& packet) { return addPacket(packet); });
        bare_ = reader.bare();
        setTable(reader.primingFrames(), reader.validFrames());
        return status;
    }

    OSStatus begin() override
    {
        const auto muxer = makeMuxer();
        return muxer ? writeHead(*muxer) : kAudioFileUnspecifiedError;
    }

    bool tellsFormat() const override { return !isLossless(format_.mFormatID) || !bare_.empty(); }

    OSStatus writeHead(const libav::Muxer& muxer)
    {
        endOfData_ = muxer.head().size();
        return file_.writeAll(0, muxer.head());
    }

    /// Null if the muxer refuses the format.
    std::unique_ptr<libav::Muxer> makeMuxer(const std::string& moreOptions = "") const
    {
        auto muxer = std::make_unique<libav::Muxer>(
            muxerName_, format_, bare_, static_cast<UInt32>(table().mPrimingFrames), (options_ + moreOptions).c_str());
        if (!muxer->isOpen())
            muxer.reset();
        return muxer;
    }

    /// Brings the head up to date.
    OSStatus replaceHead(const libav::Muxer& muxer) { return file_.apply({{0, muxer.head()}}); }

    /// Shows the muxer all packets, then finishes it. Zeros replace their contents if it does not look at them.
    OSStatus addPackets(libav::Muxer& muxer, bool withContents)
    {
        const AudioFilePacketTableInfo info = table();
        const auto count = static_cast<SInt64>(packetCount());
        const SInt64 frames = std::max(1U, format_.mFramesPerPacket);
        // the durations of the last packets are shortened by the remainder, each to at least one frame
        const SInt64 end = std::clamp(info.mPrimingFrames + info.mNumberValidFrames, count, count * frames);
        const SInt64 priming = std::min<SInt64>(info.mPrimingFrames, end);
        const auto startOf = [&](SInt64 packet) { return std::min(packet * frames, end - (count - packet)); };
        Bytes buffer(maximumPacketSize());
        for (SInt64 i = 0; i < count; ++i) {
            const PacketPlace& place = packets()[static_cast<std::size_t>(i)];
            const auto bytes = std::span(buffer).first(place.size);
            const OSStatus status = withContents ? file_.readAll(place.position, bytes) : noErr;
            if (status != noErr)
                return status;
            const libav::Gaps gaps{i == 0 ? static_cast<UInt32>(info.mPrimingFrames) : 0,
                                   i + 1 == count ? static_cast<UInt32>(info.mRemainderFrames) : 0};
            muxer.moveTo(place.position);
            if (!muxer.add(bytes, startOf(i) - priming, startOf(i + 1) - startOf(i), gaps))
                return kAudioFileUnspecifiedError;
        }
        return muxer.finish() ? noErr : kAudioFileUnspecifiedError;
    }

private:
    const char* demuxer_;
    const char* muxerName_;
    std::string options_;
};

/// The description of the packets is written after them when the file is closed. A file whose writer was killed before
/// can be read if it was written in fragments.
template <AudioFileTypeID createdType> class MPEG4Container : public LibavContainer
{
public:
    explicit MPEG4Container(std::unique_ptr<File> file)
        : LibavContainer(std::move(file), "mov", createdType == kAudioFileM4AType ? "ipod" : "mp4")
    {
    }

    AudioFileTypeID type() const override { return createdType; }
    bool keepsReadable() const override { return fragments_.has_value(); }

    OSStatus setKeepsReadable(bool keeps) override
    {
        if (keeps == keepsReadable())
            return noErr;
        if (!isNew() || !packets().empty())
            return kAudioFileOperationNotSupportedError;
        if (!keeps)
            return leaveFragments();
        fragments_.emplace();
        return describeAhead();
    }

    OSStatus setPacketTableInfo(const AudioFilePacketTableInfo& info) override
    {
        const OSStatus status = LibavContainer::setPacketTableInfo(info);
        return status == noErr ? describeAhead() : status;
    }

    OSStatus writePackets(UInt64 start, UInt32& packets, UInt32 bytes, const AudioStreamPacketDescription* descriptions,
                          const void* buffer) override
    {
        if (!fragments_ || !descriptions)
            return LibavContainer::writePackets(start, packets, bytes, descriptions, buffer);
        const UInt32 given = std::exchange(packets, 0);
        OSStatus status = noErr;
        while (status == noErr && packets < given) {
            auto part = static_cast<UInt32>(std::min<std::size_t>(given - packets, fragments_->room(endOfData_)));
            status = LibavContainer::writePackets(start + packets, part, bytes, descriptions + packets, buffer);
            packets += part;
        }
        return status;
    }

protected:
    OSStatus cookieChanged() override { return describeAhead(); }

    OSStatus append(std::span<const UInt8> block, std::span<PacketPlace> places) override
    {
        return fragments_ ? fragments_->append(file_, block, places, format_.mFramesPerPacket, endOfData_)
                          : LibavContainer::append(block, places);
    }

    bool needsTail() const override { return !fragments_; }

    OSStatus tail(Bytes& bytes) override
    {
        completeCookie();
        finished_ = makeMuxer(movieScale());
        if (!finished_)
            return kAudioFileUnspecifiedError;
        if (const OSStatus status = addPackets(*finished_, false); status != noErr)
            return status;
        bytes = finished_->tail();
        return packets().empty() ? describeEmpty(bytes) : noErr;
    }

    OSStatus end() override { return fragments_ ? fragments_->endAsMovie(file_, endOfData_) : replaceHead(*finished_); }

private:
    // the muxer's option that makes an edit's length exact
    std::string movieScale() const
    {
        return "movie_timescale=" + std::to_string(static_cast<UInt32>(format_.mSampleRate));
    }

    // the muxer omits a track without packets unless fragments are to follow
    std::unique_ptr<libav::Muxer> emptyMovie() const { return makeMuxer(movieScale() + ",movflags=empty_moov"); }

    OSStatus describeEmpty(Bytes& bytes) const
    {
        const auto muxer = emptyMovie();
        if (!muxer)
            return kAudioFileUnspecifiedError;
        const Bytes& head = muxer->head();
        bytes.assign(head.begin() + load32(head.data(), ByteOrder::big), head.end());
        return noErr;
    }

    void completeCookie()
    {
        if (bare_.empty() && isAAC(format_.mFormatID))
            bare_ = makeAACConfig(format_);
    }

    // what a reader needs to know before the packets
    OSStatus describeAhead()
    {
        if (!fragments_ || !packets().empty() || !tellsFormat())
            return noErr;
        completeCookie();
        const auto ordinary = makeMuxer(), empty = emptyMovie();
        const auto priming = static_cast<UInt32>(table().mPrimingFrames);
        const OSStatus status = ordinary && empty
                                    ? fragments_->begin(file_, ordinary->head(), empty->head(), priming, endOfData_)
                                    : OSStatus{kAudioFileUnspecifiedError};
        if (status != noErr)
            (void)leaveFragments(); // the first failure counts
        return status;
    }

    OSStatus leaveFragments()
    {
        fragments_.reset();
        const OSStatus status = begin();
        return status == noErr ? file_.truncate(endOfData_) : status;
    }

    std::optional<MPEG4Fragments> fragments_; // while the file is to be readable before its end
    std::unique_ptr<libav::Muxer> finished_;
};

/// Each packet has a header of its own, which states the format and the size. Packets are delivered without it.
class ADTSContainer : public LibavContainer
{
public:
    explicit ADTSContainer(std::unique_ptr<File> file) : LibavContainer(std::move(file), "aac", "adts") {}

    AudioFileTypeID type() const override { return kAudioFileAAC_ADTSType; }

protected:
    OSStatus begin() override
    {
        bare_ = makeAACConfig(format_);
        muxer_ = makeMuxer();
        return muxer_ ? noErr : kAudioFileUnspecifiedError;
    }

    OSStatus cookieChanged() override
    {
        auto muxer = makeMuxer();
        if (!muxer)
            return paramErr;
        muxer_.swap(muxer);
        return noErr;
    }

    bool tellsFormat() const override { return !packets().empty(); }

    bool packetHeader(std::span<const UInt8> packet, Bytes& header) override
    {
        const bool isTaken = muxer_->add(packet, 0, 0);
        header = muxer_->packetHeader();
        return isTaken;
    }

private:
    std::unique_ptr<libav::Muxer> muxer_;
};

/// The first frame may hold no audio but state the number of frames, the priming and the remainder.
class MP3Container : public LibavContainer
{
public:
    explicit MP3Container(std::unique_ptr<File> file) : LibavContainer(std::move(file), "mp3", "mp3", "id3v2_version=0")
    {
    }

    AudioFileTypeID type() const override { return kAudioFileMP3Type; }

protected:
    OSStatus begin() override
    {
        format_.mFramesPerPacket = format_.mSampleRate < 32000 ? 576 : 1152;
        const auto muxer = makeMuxer();
        // readers take an info frame with count 0 for audio: write 1 until the count is known
        if (!muxer || !muxer->add(Bytes(muxer->head()), 0, format_.mFramesPerPacket) || !muxer->finish())
            return kAudioFileUnspecifiedError;
        return writeHead(*muxer);
    }

    OSStatus end() override
    {
        if (packets().empty())
            return noErr;
        const auto muxer = makeMuxer();
        if (!muxer)
            return kAudioFileUnspecifiedError;
        const OSStatus status = addPackets(*muxer, true);
        return status == noErr ? replaceHead(*muxer) : status;
    }
};

class FLACContainer : public LibavContainer
{
public:
    explicit FLACContainer(std::unique_ptr<File> file) : LibavContainer(std::move(file), "flac", "flac") {}

    AudioFileTypeID type() const override { return kAudioFileFLACType; }

protected:
    OSStatus begin() override
    {
        const Bytes none = std::exchange(bare_, Bytes(flacInfoBytes));
        const OSStatus status = LibavContainer::begin();
        bare_ = none;
        return status;
    }

    // written at once, so that a file whose writer is killed can be read
    OSStatus cookieChanged() override
    {
        const auto muxer = makeMuxer();
        return muxer ? replaceHead(*muxer) : paramErr;
    }
};

template <class Format> constexpr CodedFiles files(AudioFileTypeID type)
{
    return {type, loadPackets<Format>, createPackets<Format>};
}

} // namespace

std::span<const CodedFiles> libav::codedFiles()
{
    static constexpr CodedFiles all[] = {
        files<MPEG4Container<kAudioFileM4AType>>(kAudioFileM4AType),
        files<MPEG4Container<kAudioFileMPEG4Type>>(kAudioFileMPEG4Type), files<FLACContainer>(kAudioFileFLACType),
        files<ADTSContainer>(kAudioFileAAC_ADTSType), files<MP3Container>(kAudioFileMP3Type)};
    return all;
}

} // namespace qmx
