// SPDX-License-Identifier: MIT
// How the headers are kept true, and how audio grows in front of other chunks. Every step leaves a file whose chunks
// are found from its start: what a walk does not reach yet may be written in any order, what it reaches changes by one
// small write.
#include "AudioToolbox/Containers/Chunks/ChunkContainer.h"

#include "Foundation/Memory.h"

#include <algorithm>
#include <limits>

namespace qmx
{
namespace
{

constexpr UInt64 largestRoom = UInt64{1} << 28;
constexpr std::size_t zeroBlock = std::size_t{1} << 16;

} // namespace

Bytes ChunkContainer::fillerHeader(UInt64 position, UInt64 end) const
{
    const UInt64 size = end - position - headerBytes();
    return ByteWriter(order_).code(filler_).integer(size, shape_.sizeBytes, order_).bytes();
}

// Writes audio. Bytes that belong where the filler's header is are held back.
Transfer ChunkContainer::store(UInt64 position, const UInt8* data, std::size_t size)
{
    if (!hasChunksBehind() || position + size <= room_.begin)
        return file_.write(position, data, size);
    std::size_t done = 0;
    while (done < size) {
        const UInt64 at = position + done;
        if (at >= room_.begin && at < room_.begin + headerBytes()) {
            if (!held_)
                held_ = Held{room_.begin, Bytes(headerBytes())};
            held_->bytes[at - room_.begin] = data[done++];
            continue;
        }
        const UInt64 limit = at < room_.begin ? room_.begin - at : size;
        const Transfer part = file_.write(at, data + done, std::min<UInt64>(size - done, limit));
        done += part.count;
        if (part.error != 0)
            return {done, part.error};
    }
    return {done, 0};
}

// Makes the file ready for audio up to `end`, counted from the audio's start.
OSStatus ChunkContainer::prepareGrowth(UInt64 start, UInt64 end)
{
    if (const OSStatus status = writeHeld(); status != noErr)
        return status;
    if (const OSStatus status = noticeOtherWriter(); status != noErr)
        return status;
    // bytes after a chunk that the file cuts off would be taken for its missing part; after other bytes they would not
    // be found
    if ((endsCutOff_ && !audioIsLast_) || (endsInOtherBytes_ && !hasAudioChunk()))
        return kAudioFileInvalidChunkError;
    if (const OSStatus status = hasAudioChunk() ? noErr : addAudioChunk(); status != noErr)
        return status;
    const UInt64 chunkEnd = std::max(written_.audioChunkEnd, audio_.start + end);
    if (!canHold({std::max(written_.formEnd, padded(chunkEnd)), chunkEnd, end}))
        return kAudioFileDoesNotAllow64BitDataSizeError;
    if (const OSStatus status = makeRoom(chunkEnd); status != noErr)
        return status;
    return fillGap(start);
}

OSStatus ChunkContainer::addAudioChunk()
{
    const Bytes chunk = emptyAudioChunk();
    const UInt64 position = shape_.padded(written_.formEnd);
    if (const OSStatus status = file_.writeAll(position, chunk); status != noErr)
        return status;
    const UInt64 end = position + chunk.size();
    setAudioChunk({0, position, chunk.size() - headerBytes(), shape_}, end);
    room_ = {end, end};
    return writeFormEnd(end);
}

// Zeros from the end of the audio to `start`. Past the end of the file the system supplies them.
OSStatus ChunkContainer::fillGap(UInt64 start)
{
    const UInt64 end = std::min(audio_.start + start, fileLength());
    UInt64 position = audio_.start + audio_.bytes;
    if (position >= end)
        return noErr;
    const Bytes zeros(static_cast<std::size_t>(std::min<UInt64>(end - position, zeroBlock)));
    while (position < end) {
        const Transfer done =
            store(position, zeros.data(), static_cast<std::size_t>(std::min<UInt64>(end - position, zeros.size())));
        if (done.error != 0)
            return statusForSystemError(done.error);
        position += done.count;
    }
    return noErr;
}

OSStatus ChunkContainer::writeSizes(const Sizes& sizes)
{
    const OSStatus status = withinMemory(memFullErr, [&] { return file_.apply(patchesFor(sizes)); });
    if (status == noErr)
        written_ = sizes;
    return status;
}

OSStatus ChunkContainer::writeFormEnd(UInt64 formEnd)
{
    Sizes sizes = written_;
    sizes.formEnd = formEnd;
    return writeSizes(sizes);
}

// Makes the headers count all audio.
OSStatus ChunkContainer::commit()
{
    const UInt64 chunkEnd = std::max(written_.audioChunkEnd, audio_.start + audio_.bytes);
    const OSStatus status = hasChunksBehind() ? commitInRoom(chunkEnd) : commitAtEnd(chunkEnd);
    if (status == noErr)
        headerLags_ = false;
    return status;
}

// The pad byte is always written and counted; if the disk has no room for it, the form ends without it.
OSStatus ChunkContainer::commitAtEnd(UInt64 chunkEnd)
{
    UInt64 formEnd = padded(chunkEnd);
    const UInt8 zero = 0;
    const bool padIsOld = chunkEnd == written_.audioChunkEnd && fileLength() > chunkEnd;
    OSStatus padStatus = noErr;
    if (formEnd > chunkEnd && !padIsOld)
        padStatus = file_.writeAll(chunkEnd, {&zero, 1});
    if (padStatus != noErr)
        formEnd = chunkEnd;
    const OSStatus status = writeSizes({formEnd, chunkEnd, audio_.bytes});
    if (status == noErr)
        room_ = {formEnd, formEnd};
    return status == noErr ? padStatus : status;
}

// What was held back is written between two steps, so the frame count, where the container has one, never counts a
// filler's header.
OSStatus ChunkContainer::commitInRoom(UInt64 chunkEnd)
{
    const UInt64 end = padded(chunkEnd);
    if (end > room_.begin && end < room_.begin + headerBytes())
        return commitFewBytes(chunkEnd);
    if (end > room_.begin)
        if (const OSStatus status = moveFillerOn(chunkEnd); status != noErr)
            return status;
    if (const OSStatus status = writeHeld(); status != noErr)
        return status;
    return writeSizes({written_.formEnd, chunkEnd, audio_.bytes});
}

// Moves the start of the filler to `chunkEnd`. The audio chunk takes in the bytes up to there, not yet as audio.
OSStatus ChunkContainer::moveFillerOn(UInt64 chunkEnd)
{
    const UInt64 end = padded(chunkEnd);
    const UInt8 zero = 0;
    if (const Transfer pad = end > chunkEnd ? store(chunkEnd, &zero, 1) : Transfer{}; pad.error != 0)
        return statusForSystemError(pad.error);
    if (const OSStatus status = file_.writeAll(end, fillerHeader(end, room_.end)); status != noErr)
        return status;
    const UInt64 told = held_ ? written_.audioBytes : audio_.bytes;
    if (const OSStatus status = writeSizes({written_.formEnd, chunkEnd, told}); status != noErr)
        return status;
    room_.begin = end;
    return noErr;
}

// The filler's header moves on by less than its own size, so the old and the new one cannot both exist. The audio chunk
// first takes in more of the filler; the new header is then written inside it, and the chunk shrinks back onto it.
OSStatus ChunkContainer::commitFewBytes(UInt64 chunkEnd)
{
    const UInt64 begin = room_.begin;
    const UInt64 end = padded(chunkEnd);
    const UInt64 beyond = padded(begin + 2 * headerBytes());
    const Sizes before = written_;
    Bytes bytes(static_cast<std::size_t>(beyond - begin));
    if (held_)
        std::copy_n(held_->bytes.begin(), end - begin, bytes.begin());
    std::ranges::copy(fillerHeader(end, room_.end), bytes.begin() + static_cast<std::ptrdiff_t>(end - begin));
    if (const OSStatus status = file_.writeAll(beyond, fillerHeader(beyond, room_.end)); status != noErr)
        return status;
    const OSStatus widened = writeSizes({before.formEnd, beyond, before.audioBytes});
    written_ = before; // where the audio ends has not changed
    if (widened != noErr)
        return widened;
    if (const OSStatus status = file_.replace(begin, bytes); status != noErr) {
        writeSizes(before);
        return status;
    }
    held_.reset();
    room_.begin = end;
    return writeSizes({before.formEnd, chunkEnd, audio_.bytes});
}

// Writes the bytes that were held back, once the filler's header has moved on.
OSStatus ChunkContainer::writeHeld()
{
    if (!held_ || held_->position >= room_.begin)
        return noErr;
    const OSStatus status = file_.writeAll(held_->position, held_->bytes);
    if (status == noErr)
        held_.reset();
    return status;
}

// Another writer may have appended chunks, or extended the last one: finds where the chunks end now.
OSStatus ChunkContainer::noticeOtherWriter()
{
    bool changed = false;
    if (const OSStatus status = file_.refreshLength(changed); status != noErr || !changed)
        return status;
    const bool hadChunksBehind = hasChunksBehind();
    const UInt64 audioEnd = padded(std::max(written_.audioChunkEnd, audio_.start + audio_.bytes));
    const UInt64 from = hadChunksBehind ? room_.end : std::max(room_.begin, audioEnd);
    const UInt64 end = reader().endOfChain(from);
    if (end == from) { // audio must not cover the mark of an interrupted store, whose rest would be taken for audio
        const bool isStoreCutOff = !hadChunksBehind && hasAudioChunk() && isStoreBegunAt(from);
        return isStoreCutOff ? file_.truncate(from) : noErr;
    }
    written_.formEnd = end;
    if (hadChunksBehind || !hasAudioChunk())
        return noErr;
    room_ = {from, from};
    // the walk must reach them past the audio that the header does not count yet
    return writeSizes({end, std::max(written_.audioChunkEnd, audio_.start + audio_.bytes), audio_.bytes});
}

OSStatus ChunkContainer::makeRoom(UInt64 end)
{
    if (!hasChunksBehind() || end <= written_.audioChunkEnd)
        return noErr;
    if (room_.end >= written_.formEnd)
        return dropFiller();
    grewInFront_ = true;
    const UInt64 needed = padded(end) + 3 * headerBytes(); // so that the filler's header can always be moved on
    return needed <= room_.end ? noErr : moveChunksBehind(needed);
}

// Drops a filler with nothing after it, which is useless.
OSStatus ChunkContainer::dropFiller()
{
    const UInt64 oldEnd = written_.formEnd;
    if (const OSStatus status = writeFormEnd(room_.begin); status != noErr)
        return status;
    room_.end = room_.begin;
    return fileLength() <= oldEnd ? file_.truncate(room_.begin) : noErr;
}

// Moves the chunks after the audio to `lowest` or further on, and makes all before them filler. They are in both places
// for a while, but one of the two is always inside a filler; a single write of the filler's header switches between
// them.
OSStatus ChunkContainer::moveChunksBehind(UInt64 lowest)
{
    const UInt64 oldEnd = written_.formEnd;
    const UInt64 oldLength = fileLength();
    const UInt64 bytes = oldEnd - room_.end;
    lowest = shape_.padded(std::max(lowest, std::max(oldLength, shape_.padded(oldEnd)) + headerBytes()));
    UInt64 target = lowest + nextRoom_;
    const Sizes grown{0, lowest, lowest - audio_.start};
    const auto fits = [&] {
        const UInt64 formEnd = target + shape_.padded(bytes);
        return canHold({formEnd, grown.audioChunkEnd, grown.audioBytes}) &&
               formEnd - room_.begin <= shape_.largestSize();
    };
    if (!fits())
        target = lowest;
    if (!fits())
        return kAudioFileDoesNotAllow64BitDataSizeError;

    const OSStatus status = withinMemory(memFullErr, [&] {
        OSStatus done = extendForm(target + shape_.padded(bytes));
        if (done == noErr)
            done = file_.copy(room_.end, target, bytes);
        return done == noErr ? file_.replace(room_.begin, fillerHeader(room_.begin, target)) : done;
    });
    if (status != noErr) {
        bool changed = false;
        file_.refreshLength(changed);
        if (oldLength > oldEnd)
            file_.copy(target + shape_.padded(bytes), oldEnd, oldLength - oldEnd);
        if (writeFormEnd(oldEnd) == noErr && fileLength() > oldLength)
            file_.truncate(oldLength);
        return status;
    }
    chunksMoved(room_.end, static_cast<SInt64>(target - room_.end));
    room_.end = target;
    nextRoom_ = std::min(nextRoom_ * 2, largestRoom);
    return noErr;
}

// Extends the form to `formEnd`, with a filler after its last chunk. Bytes after the form stay after it. The room comes
// first: if no form states its size, a filler that the file cuts off would be taken for damage.
OSStatus ChunkContainer::extendForm(UInt64 formEnd)
{
    const UInt64 oldEnd = written_.formEnd;
    if (fileLength() > oldEnd)
        if (const OSStatus status = file_.copy(oldEnd, formEnd, fileLength() - oldEnd); status != noErr)
            return status;
    if (fileLength() < formEnd)
        if (const OSStatus status = file_.truncate(formEnd); status != noErr)
            return status;
    const Bytes header = ByteWriter(order_)
                             .zeros(static_cast<std::size_t>(shape_.padded(oldEnd) - oldEnd))
                             .append(fillerHeader(shape_.padded(oldEnd), formEnd))
                             .bytes();
    if (const OSStatus status = file_.writeAll(oldEnd, header); status != noErr)
        return status;
    return writeFormEnd(formEnd);
}

// Gives up the room that is left: the chunks move to the filler's start, if there is enough of it to do so without
// touching the old ones, and the file is cut after them.
OSStatus ChunkContainer::trimRoom()
{
    const UInt64 bytes = shape_.padded(written_.formEnd - room_.end);
    const UInt64 end = room_.begin + bytes;
    const bool hasRoom = end + headerBytes() <= room_.end;
    if (!hasChunksBehind() || !hasRoom || fileLength() != written_.formEnd || bytes < headerBytes())
        return noErr;
    Bytes first(static_cast<std::size_t>(headerBytes()));
    if (const OSStatus status = file_.readAll(room_.end, first); status != noErr)
        return status;
    const UInt64 rest = written_.formEnd - room_.end - first.size();
    if (const OSStatus status = file_.copy(room_.end + first.size(), room_.begin + first.size(), rest); status != noErr)
        return status;
    const Bytes header = ByteWriter(order_)
                             .zeros(static_cast<std::size_t>(bytes - first.size() - rest))
                             .append(fillerHeader(end, written_.formEnd))
                             .bytes();
    if (const OSStatus status = file_.writeAll(room_.begin + first.size() + rest, header); status != noErr)
        return status;
    if (const OSStatus status = file_.replace(room_.begin, first); status != noErr)
        return status;
    chunksMoved(room_.end, -static_cast<SInt64>(room_.end - room_.begin));
    room_.end = room_.begin;
    if (const OSStatus status = writeFormEnd(end); status != noErr)
        return status;
    return file_.truncate(end);
}

} // namespace qmx
