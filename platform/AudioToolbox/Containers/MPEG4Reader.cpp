// SPDX-License-Identifier: MIT
#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Containers/MPEG4Movie.h"
#include "AudioToolbox/Containers/SampleLayout.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>

namespace qmx
{
namespace
{

constexpr int mostAtoms = 4096; // of one level
constexpr std::size_t largestTable = 8 * mostPackets + 64;
constexpr std::size_t largestSmallAtom = std::size_t{1} << 16;

struct Atom {
    FourCharCode type = 0;
    UInt64 start = 0; ///< of the contents
    UInt64 end = 0;
};

/// A table inside an atom: fields of 32 bits. What lies behind its end is 0.
class Fields
{
public:
    explicit Fields(Bytes bytes = {}) : bytes_(std::move(bytes)) {}

    bool has(std::size_t offset, std::size_t count) const
    {
        return offset <= bytes_.size() && count <= bytes_.size() - offset;
    }
    UInt32 u16(std::size_t offset) const { return has(offset, 2) ? load16(&bytes_[offset], ByteOrder::big) : 0; }
    UInt32 u32(std::size_t offset) const { return has(offset, 4) ? load32(&bytes_[offset], ByteOrder::big) : 0; }
    UInt64 u64(std::size_t offset) const { return has(offset, 8) ? load64(&bytes_[offset], ByteOrder::big) : 0; }
    bool isVersion1() const { return !bytes_.empty() && bytes_[0] == 1; }
    /// As many entries of `size` bytes from `offset` on as the count says and as are there.
    std::size_t entries(std::size_t countOffset, std::size_t offset, std::size_t size) const
    {
        const std::size_t room = bytes_.size() > offset ? (bytes_.size() - offset) / size : 0;
        return std::min<std::size_t>(u32(countOffset), room);
    }
    std::span<const UInt8> bytes() const { return bytes_; }

private:
    Bytes bytes_;
};

struct Edit {
    UInt64 mediaTime = 0;
    UInt64 duration = 0; ///< in the movie's time; 0: to the end
};

class MovieReader
{
public:
    explicit MovieReader(ContainerFile& file) : file_(file) {}

    OSStatus read(MPEG4Movie& movie)
    {
        const auto moov = find({0, 0, file_.length()}, fourCharCode("moov"));
        if (!moov)
            return kAudioFileInvalidFileError;
        // most packets, or all, are described elsewhere: a part of the sound would pass for the whole
        if (find({0, 0, file_.length()}, fourCharCode("moof")))
            return kAudioFileUnsupportedFileTypeError;
        OSStatus status = kAudioFileUnsupportedDataFormatError;
        forEach(*moov, [&](const Atom& atom) {
            if (atom.type == fourCharCode("mvhd"))
                movieScale_ = timescale(atom);
            else if (atom.type == fourCharCode("trak") && status == kAudioFileUnsupportedDataFormatError)
                status = readTrack(atom, movie);
            else if (atom.type == fourCharCode("udta"))
                readGaps(atom);
        });
        if (status == noErr)
            setTable(movie);
        return status;
    }

private:
    template <class Visit> void forEach(const Atom& parent, Visit visit)
    {
        UInt64 at = parent.start;
        for (int count = 0; count < mostAtoms; ++count) {
            const auto atom = atomAt(at, parent.end);
            if (!atom)
                return;
            visit(*atom);
            at = atom->end;
        }
    }

    std::optional<Atom> atomAt(UInt64 position, UInt64 limit)
    {
        std::array<UInt8, 16> header{};
        if (position > limit || limit - position < 8)
            return std::nullopt;
        const auto available = static_cast<std::size_t>(std::min<UInt64>(header.size(), limit - position));
        if (file_.readAll(position, std::span(header).first(available)) != noErr)
            return std::nullopt;
        UInt64 size = load32(header.data(), ByteOrder::big);
        UInt64 headerBytes = 8;
        if (size == 1) {
            size = load64(header.data() + 8, ByteOrder::big);
            headerBytes = 16;
        } else if (size == 0) { // to the end of the file
            size = limit - position;
        }
        if (size < headerBytes)
            return std::nullopt;
        const UInt64 end = position + std::min(size, limit - position);
        return Atom{load32(header.data() + 4, ByteOrder::big), std::min(position + headerBytes, end), end};
    }

    std::optional<Atom> find(const Atom& parent, FourCharCode type)
    {
        std::optional<Atom> found;
        forEach(parent, [&](const Atom& atom) {
            if (atom.type == type && !found)
                found = atom;
        });
        return found;
    }

    std::optional<Atom> find(Atom parent, std::initializer_list<FourCharCode> path)
    {
        for (const FourCharCode type : path) {
            const auto found = find(parent, type);
            if (!found)
                return std::nullopt;
            parent = *found;
        }
        return parent;
    }

    Fields contents(const std::optional<Atom>& atom, std::size_t largest = largestSmallAtom)
    {
        if (!atom)
            return Fields();
        Bytes bytes(static_cast<std::size_t>(std::min<UInt64>(atom->end - atom->start, largest)));
        return file_.readAll(atom->start, bytes) == noErr ? Fields(std::move(bytes)) : Fields();
    }

    UInt32 timescale(const Atom& headerAtom)
    {
        const Fields header = contents(headerAtom);
        return header.u32(header.isVersion1() ? 20 : 12);
    }

    /// 'fmt?' for a track that is no sound of ours: the next one may be.
    OSStatus readTrack(const Atom& track, MPEG4Movie& movie)
    {
        const auto media = find(track, fourCharCode("mdia"));
        if (!media || contents(find(*media, fourCharCode("hdlr"))).u32(8) != fourCharCode("soun"))
            return kAudioFileUnsupportedDataFormatError;
        const auto mediaHeader = find(*media, fourCharCode("mdhd"));
        const auto tables = find(*media, {fourCharCode("minf"), fourCharCode("stbl")});
        if (!mediaHeader || !tables)
            return kAudioFileInvalidFileError;
        mediaScale_ = timescale(*mediaHeader);
        if (const OSStatus status = readDescription(*tables, movie); status != noErr)
            return status;
        readPackets(*tables, movie);
        readDuration(*tables);
        readEdit(track);
        return mediaScale_ == 0 ? kAudioFileInvalidFileError : noErr;
    }

    OSStatus readDescription(const Atom& tables, MPEG4Movie& movie)
    {
        const auto descriptions = find(tables, fourCharCode("stsd"));
        const auto entry = descriptions ? atomAt(descriptions->start + 8, descriptions->end) : std::nullopt;
        if (!entry)
            return kAudioFileInvalidFileError;
        const Fields sound = contents(*entry);
        // version 1 of the record has 16 more bytes, version 2 has 36
        const UInt32 version = sound.u16(8);
        const UInt64 extra = version == 1 ? 16 : version == 2 ? 36 : 0;
        Atom inside{0, std::min(entry->start + 28 + extra, entry->end), entry->end};
        if (const auto wave = find(inside, fourCharCode("wave")))
            inside = *wave;
        if (entry->type == fourCharCode("mp4a"))
            return describeAAC(contents(find(inside, fourCharCode("esds"))), movie);
        if (entry->type == fourCharCode("alac"))
            return describeALAC(contents(find(inside, fourCharCode("alac"))), movie);
        return kAudioFileUnsupportedDataFormatError;
    }

    static OSStatus describeAAC(const Fields& esds, MPEG4Movie& movie)
    {
        movie.bare = bareFromCookie(kAudioFormatMPEG4AAC, esds.bytes());
        const auto config = parseAACConfig(movie.bare);
        if (!config || config->channels == 0 || !isPlausible(config->outputRate, config->channels))
            return kAudioFileUnsupportedDataFormatError;
        movie.format = config->hasSpectralReplication
                           ? compressedFormat(kAudioFormatMPEG4AAC_HE, 0, config->outputRate, config->channels, 2048)
                           : compressedFormat(kAudioFormatMPEG4AAC, kMPEG4Object_AAC_LC, config->sampleRate,
                                              config->channels, 1024);
        return noErr;
    }

    static OSStatus describeALAC(const Fields& atom, MPEG4Movie& movie)
    {
        if (atom.bytes().size() < 4)
            return kAudioFileUnsupportedDataFormatError;
        movie.bare = bareFromCookie(kAudioFormatAppleLossless, atom.bytes().subspan(4));
        const auto format = formatFromALAC(movie.bare);
        if (!format)
            return kAudioFileUnsupportedDataFormatError;
        movie.format = *format;
        return noErr;
    }

    void readPackets(const Atom& tables, MPEG4Movie& movie)
    {
        const Fields sizes = contents(find(tables, fourCharCode("stsz")), largestTable);
        const Fields runs = contents(find(tables, fourCharCode("stsc")), largestTable);
        auto places = find(tables, fourCharCode("stco"));
        const bool is64 = !places;
        if (is64)
            places = find(tables, fourCharCode("co64"));
        const Fields chunks = contents(places, largestTable);

        const UInt32 constantSize = sizes.u32(4);
        const std::size_t count =
            std::min<std::size_t>(constantSize > 0 ? sizes.u32(8) : sizes.entries(8, 12, 4), mostPackets);
        const std::size_t chunkCount = chunks.entries(4, 8, is64 ? 8 : 4), runCount = runs.entries(4, 8, 12);
        std::size_t run = 0;
        for (std::size_t chunk = 0; chunk < chunkCount && movie.packets.size() < count; ++chunk) {
            while (run + 1 < runCount && runs.u32(8 + (run + 1) * 12) <= chunk + 1)
                ++run;
            UInt64 position = is64 ? chunks.u64(8 + chunk * 8) : chunks.u32(8 + chunk * 4);
            for (UInt32 left = runs.u32(8 + run * 12 + 4); left > 0 && movie.packets.size() < count; --left) {
                const UInt32 size = constantSize > 0 ? constantSize : sizes.u32(12 + movie.packets.size() * 4);
                if (position > file_.length() || size > file_.length() - position)
                    return;
                movie.packets.push_back({position, size, 0});
                position += size;
            }
        }
    }

    /// The frames that the times of all packets together say.
    void readDuration(const Atom& tables)
    {
        const Fields times = contents(find(tables, fourCharCode("stts")), largestTable);
        const std::size_t count = times.entries(4, 8, 8);
        for (std::size_t i = 0; i < count && mediaTime_ < (UInt64{1} << 62); ++i)
            mediaTime_ += UInt64{times.u32(8 + i * 8)} * times.u32(12 + i * 8);
    }

    /// The first edit that plays something; empty ones before it only delay it.
    void readEdit(const Atom& track)
    {
        const Fields edits = contents(find(track, {fourCharCode("edts"), fourCharCode("elst")}));
        const bool isLong = edits.isVersion1();
        const std::size_t size = isLong ? 20 : 12;
        const std::size_t count = edits.entries(4, 8, size);
        for (std::size_t i = 0; i < count && !edit_; ++i) {
            const std::size_t at = 8 + i * size;
            const UInt64 time = isLong ? edits.u64(at + 8) : edits.u32(at + 4);
            const bool isEmpty = time == (isLong ? std::numeric_limits<UInt64>::max() : 0xFFFFFFFFU);
            if (!isEmpty)
                edit_ = Edit{time, isLong ? edits.u64(at) : edits.u32(at)};
        }
    }

    /// A comment that some encoders leave: zeros, priming, remainder and length in frames as hexadecimal text.
    void readGaps(const Atom& userData)
    {
        auto meta = find(userData, fourCharCode("meta"));
        if (!meta)
            return;
        meta->start = std::min(meta->start + 4, meta->end);
        const auto list = find(*meta, fourCharCode("ilst"));
        if (!list)
            return;
        forEach(*list, [&](const Atom& item) {
            const auto name = contents(find(item, fourCharCode("name"))).bytes();
            constexpr std::string_view wanted = "iTunSMPB";
            const Fields data = contents(find(item, fourCharCode("data")));
            if (item.type != fourCharCode("----") || name.size() != wanted.size() + 4 || data.bytes().size() < 8)
                return;
            if (!std::equal(wanted.begin(), wanted.end(), name.begin() + 4))
                return;
            const std::string text(data.bytes().begin() + 8, data.bytes().end());
            const char* at = text.c_str();
            for (UInt64& number : gaps_) {
                char* end = nullptr;
                number = std::strtoull(at, &end, 16);
                at = end;
            }
        });
    }

    UInt64 framesIn(UInt64 time, UInt32 scale, Float64 rate) const
    {
        const Float64 frames = scale > 0 ? std::round(static_cast<Float64>(time) * rate / scale) : 0;
        return frames < 9e18 ? static_cast<UInt64>(frames) : 0;
    }

    void setTable(MPEG4Movie& movie) const
    {
        const Float64 rate = movie.format.mSampleRate;
        const UInt64 nominal = movie.packets.size() * UInt64{movie.format.mFramesPerPacket};
        const UInt64 gapFrames = gaps_[1] + gaps_[2] + gaps_[3];
        if (gaps_[3] > 0 && gapFrames >= gaps_[3] && gapFrames <= nominal) {
            movie.primingFrames = gaps_[1];
            movie.validFrames = gaps_[3];
            return;
        }
        const UInt64 total = std::min(framesIn(mediaTime_, mediaScale_, rate), nominal);
        movie.primingFrames = edit_ ? std::min(framesIn(edit_->mediaTime, mediaScale_, rate), total) : 0;
        movie.validFrames = total - movie.primingFrames;
        if (!edit_ || edit_->duration == 0)
            return;
        // an edit's length is rounded to the movie's time, the packets' times are exact
        const UInt64 edited = framesIn(edit_->duration, movieScale_, rate);
        const Float64 tick = movieScale_ > 0 ? rate / movieScale_ : 0;
        if (static_cast<Float64>(edited) + tick < static_cast<Float64>(movie.validFrames))
            movie.validFrames = edited;
    }

    ContainerFile& file_;
    UInt32 movieScale_ = 0, mediaScale_ = 0;
    UInt64 mediaTime_ = 0;
    std::optional<Edit> edit_;
    UInt64 gaps_[4] = {};
};

} // namespace

OSStatus readMovie(ContainerFile& file, MPEG4Movie& movie)
{
    return MovieReader(file).read(movie);
}

} // namespace qmx
