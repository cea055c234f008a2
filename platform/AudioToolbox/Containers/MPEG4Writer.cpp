// SPDX-License-Identifier: MIT
#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Containers/MPEG4Movie.h"

#include <algorithm>

namespace qmx
{
namespace
{

class AtomWriter : public ByteWriter
{
public:
    AtomWriter() : ByteWriter(ByteOrder::big) {}

    /// Version, no flags.
    AtomWriter& version(UInt32 number)
    {
        u32(number << 24);
        return *this;
    }
    AtomWriter& atom(const char (&type)[5], const ByteWriter& contents)
    {
        u32(static_cast<UInt32>(contents.bytes().size() + 8))
            .append(std::string_view(type, 4))
            .append(contents.bytes());
        return *this;
    }
};

constexpr UInt32 unity = 0x00010000;

void appendMatrix(ByteWriter& writer)
{
    for (const UInt32 value : {unity, 0U, 0U, 0U, unity, 0U, 0U, 0U, 0x40000000U})
        writer.u32(value);
}

AtomWriter movieHeader(UInt32 rate, UInt64 frames)
{
    AtomWriter header;
    header.version(1).u64(0).u64(0).u32(rate).u64(frames).u32(unity).u16(0x0100).zeros(10);
    appendMatrix(header);
    header.zeros(24).u32(2);
    return header;
}

AtomWriter trackHeader(UInt64 frames)
{
    AtomWriter header;
    header.u32(0x01000003).u64(0).u64(0).u32(1).u32(0).u64(frames).zeros(8).u16(0).u16(1).u16(0x0100).u16(0);
    appendMatrix(header);
    header.zeros(8);
    return header;
}

/// Plays from behind the priming to before the remainder.
AtomWriter edits(const MPEG4Movie& movie)
{
    AtomWriter list;
    list.version(1).u32(1).u64(movie.validFrames).u64(movie.primingFrames).u32(unity);
    return list;
}

AtomWriter soundDescription(const MPEG4Movie& movie)
{
    const bool isALAC = movie.format.mFormatID == kAudioFormatAppleLossless;
    const auto rate = static_cast<UInt32>(movie.format.mSampleRate);
    const UInt32 bits = isALAC ? std::max(16U, sourceBitsOf(movie.format)) : 16;
    AtomWriter entry;
    entry.zeros(6).u16(1).zeros(8);
    entry.u16(static_cast<UInt16>(movie.format.mChannelsPerFrame)).u16(static_cast<UInt16>(bits)).u32(0);
    entry.u32(rate < unity ? rate << 16 : 0); // higher ones are only in the coding's parameters
    AtomWriter parameters;
    parameters.version(0);
    if (isALAC)
        parameters.append(movie.bare);
    else
        parameters.append(cookieFromBare(movie.format.mFormatID, movie.bare));
    if (isALAC)
        entry.atom("alac", parameters);
    else
        entry.atom("esds", parameters);
    AtomWriter table;
    table.version(0).u32(1);
    if (isALAC)
        table.atom("alac", entry);
    else
        table.atom("mp4a", entry);
    return table;
}

/// All packets last equally long but for the last, which ends where the sound does as far as one packet can.
AtomWriter times(const MPEG4Movie& movie, std::size_t count)
{
    const UInt32 frames = movie.format.mFramesPerPacket;
    const UInt64 sound = movie.primingFrames + movie.validFrames;
    const UInt64 before = count > 0 ? (count - 1) * UInt64{frames} : 0;
    const UInt64 last = std::clamp<UInt64>(sound > before ? sound - before : 1, 1, frames);
    AtomWriter table;
    table.version(0);
    if (count == 0 || last == frames) {
        table.u32(count > 0 ? 1 : 0);
        if (count > 0)
            table.u32(static_cast<UInt32>(count)).u32(frames);
        return table;
    }
    table.u32(count > 1 ? 2 : 1);
    if (count > 1)
        table.u32(static_cast<UInt32>(count - 1)).u32(frames);
    table.u32(1).u32(static_cast<UInt32>(last));
    return table;
}

/// How a decoder started amid the packets becomes exact: `distance` packets earlier.
void appendRoll(AtomWriter& tables, std::size_t count, UInt32 distance)
{
    AtomWriter description, samples;
    description.version(1)
        .append(std::string_view("roll"))
        .u32(2)
        .u32(1)
        .u16(static_cast<UInt16>(-static_cast<SInt32>(distance)));
    samples.version(0).append(std::string_view("roll")).u32(1).u32(static_cast<UInt32>(count)).u32(1);
    tables.atom("sgpd", description).atom("sbgp", samples);
}

AtomWriter sampleTables(const MPEG4Movie& movie, std::span<const PacketPlace> packets)
{
    // about a second of packets is one chunk; the packets lie in one run
    const auto perChunk = static_cast<UInt32>(std::max(1.0, movie.format.mSampleRate / movie.format.mFramesPerPacket));
    const auto count = static_cast<UInt32>(packets.size()), chunks = (count + perChunk - 1) / perChunk;
    const UInt32 inLast = count - (chunks > 0 ? chunks - 1 : 0) * perChunk;
    AtomWriter runs, sizes, places;
    const bool hasShortLast = chunks > 1 && inLast != perChunk;
    runs.version(0).u32(count == 0 ? 0 : hasShortLast ? 2 : 1);
    if (count > 0)
        runs.u32(1).u32(chunks > 1 ? perChunk : inLast).u32(1);
    if (hasShortLast)
        runs.u32(chunks).u32(inLast).u32(1);
    sizes.version(0).u32(0).u32(count);
    for (const PacketPlace& packet : packets)
        sizes.u32(packet.size);
    places.version(0).u32(chunks);
    for (std::size_t first = 0; first < packets.size(); first += perChunk)
        places.u64(packets[first].position);
    AtomWriter tables;
    tables.atom("stsd", soundDescription(movie)).atom("stts", times(movie, packets.size()));
    tables.atom("stsc", runs).atom("stsz", sizes).atom("co64", places);
    if (const UInt32 distance = rollDistanceOf(movie.format.mFormatID); distance > 0)
        appendRoll(tables, packets.size(), distance);
    return tables;
}

AtomWriter mediaInformation(const MPEG4Movie& movie, std::span<const PacketPlace> packets)
{
    AtomWriter reference, references, data, information;
    reference.u32(1); // in this file
    references.version(0).u32(1);
    references.atom("url ", reference);
    data.atom("dref", references);
    information.atom("smhd", AtomWriter().version(0).zeros(4)).atom("dinf", data);
    return information.atom("stbl", sampleTables(movie, packets));
}

} // namespace

Bytes movieAtom(const MPEG4Movie& movie, std::span<const PacketPlace> packets)
{
    const auto rate = static_cast<UInt32>(movie.format.mSampleRate);
    AtomWriter mediaHeader, handler, media, editing, track, contents;
    mediaHeader.version(1).u64(0).u64(0).u32(rate).u64(movie.primingFrames + movie.validFrames).u16(0x55C4).u16(0);
    handler.version(0).u32(0).append(std::string_view("soun")).zeros(13);
    media.atom("mdhd", mediaHeader).atom("hdlr", handler).atom("minf", mediaInformation(movie, packets));
    editing.atom("elst", edits(movie));
    track.atom("tkhd", trackHeader(movie.validFrames)).atom("edts", editing).atom("mdia", media);
    contents.atom("mvhd", movieHeader(rate, movie.validFrames)).atom("trak", track);
    return AtomWriter().atom("moov", contents).bytes();
}

} // namespace qmx
