// SPDX-License-Identifier: MIT
// Loading a form of chunks, reading its audio, and the writing of bytes. How the headers are kept true is in
// ChunkContainerGrowth.cpp.
#include "AudioToolbox/Containers/Chunks/ChunkContainer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace qmx
{
namespace
{

constexpr UInt64 unknownFormEnd = UInt64{std::numeric_limits<UInt32>::max()} + chunkHeaderBytes;

constexpr std::size_t signatureOffset = 8;

} // namespace

UInt64 ChunkContainer::byteCount() const
{
    return audio_.bytes - audio_.bytes % format_.mBytesPerFrame;
}

std::vector<UInt32> ChunkContainer::chunkIDs()
{
    ChunkReader reader = this->reader();
    std::vector<UInt32> ids;
    auto chunk = reader.at(shape_.formHeaderBytes);
    while (chunk && chunk->position < written_.formEnd && ids.size() < mostChunks) {
        ids.push_back(chunk->id);
        if (chunk->position == audio_.chunk)
            chunk->size = written_.audioChunkEnd - chunk->dataStart();
        chunk = reader.after(*chunk);
    }
    return ids;
}

OSStatus ChunkContainer::readChunk(const Chunk& chunk, std::size_t largest, Bytes& data)
{
    const UInt64 available = fileLength() - std::min(fileLength(), chunk.dataStart());
    data.resize(static_cast<std::size_t>(std::min({chunk.size, available, UInt64{largest}})));
    return file_.readAll(chunk.dataStart(), data);
}

bool ChunkContainer::isChunkAt(UInt64 position)
{
    ChunkReader reader = this->reader();
    const auto chunk = reader.at(position);
    return chunk && reader.fits(*chunk);
}

void ChunkContainer::setAudioChunk(const Chunk& chunk, UInt64 start)
{
    audio_.chunk = chunk.position;
    audio_.start = start;
    written_.audioChunkEnd = std::min(chunk.end(), fileLength());
}

OSStatus ChunkContainer::load(bool forWriting)
{
    if (!forWriting)
        return read();
    const FileLock lock = file_.lock();
    const OSStatus status = read();
    if (status == noErr)
        bringInLine();
    return status;
}

OSStatus ChunkContainer::read()
{
    bool changed = false;
    if (const OSStatus status = file_.refreshLength(changed); status != noErr)
        return status;
    Bytes header(static_cast<std::size_t>(shape_.formHeaderBytes));
    if (const OSStatus status = file_.readAll(0, header); status != noErr)
        return status;
    declaredEnd_ = readFormHeader(header.data());
    if (const OSStatus status = walk(); status != noErr)
        return status;
    return finishLoading();
}

OSStatus ChunkContainer::walk()
{
    ChunkReader reader = this->reader();
    auto chunk = reader.at(shape_.formHeaderBytes);
    Chunk last{0, 0,
               shape_.formHeaderBytes - chunkHeaderBytes}; // the form's header, as if it were a chunk before the first
    bool endsAtDeclared = true;
    const auto formEnd = [&] { // the walk goes to the end of the file if the form does not state its size
        const bool known = declaredEnd_ >= shape_.formHeaderBytes && declaredEnd_ != unknownFormEnd && endsAtDeclared;
        return known ? std::min(declaredEnd_, fileLength()) : fileLength();
    };
    for (int count = 0; chunk && count < mostChunks; ++count) {
        if (chunk->position >= formEnd()) {
            if (reader.endOfChain(chunk->position) == chunk->position)
                break;
            endsAtDeclared = false; // chunks that the form does not count yet
        }
        if (hasAudioChunk() && last.position == audio_.chunk) {
            if (!mayFollowAudio(*chunk))
                break;
            room_.begin = chunk->position;
        }
        if (const OSStatus status = visit(*chunk); status != noErr)
            return status;
        endsCutOff_ = chunk->position != audio_.chunk && chunk->end() > fileLength();
        chunk->size = std::min(chunk->size, fileLength() - chunk->dataStart());
        if (room_.begin == chunk->position)
            room_.end = chunk->id == filler_ ? std::min(chunk->paddedEnd(), fileLength()) : chunk->position;
        last = *chunk;
        chunk = reader.after(last);
    }
    const bool endsInForm = last.paddedEnd() + headerBytes() <= formEnd();
    const bool formIsKnown = formEnd() != fileLength() || declaredEnd_ == fileLength();
    endWalk(last, endsInForm && formIsKnown, formEnd());
    return noErr;
}

// Bytes inside the form that are no chunks are kept like chunks; outside of it they are no part of the file's
// structure.
void ChunkContainer::endWalk(const Chunk& last, bool ranIntoOtherBytes, UInt64 formEnd)
{
    const UInt64 walkEnd = std::min(last.paddedEnd(), fileLength());
    endsInOtherBytes_ = ranIntoOtherBytes;
    written_.formEnd = ranIntoOtherBytes ? formEnd : walkEnd;
    audioIsLast_ = hasAudioChunk() && last.position == audio_.chunk && !ranIntoOtherBytes;
    if (room_.begin == 0)
        room_ = {walkEnd, walkEnd};
}

// The first bytes of an application chunk at `tail` that was being appended when its writer was killed; else empty.
Bytes ChunkContainer::cutOffAppendAt(UInt64 tail)
{
    constexpr FourCharCode applicationChunk = fourCharCode("APPL");
    if (tail + sizeof applicationChunk > fileLength() || isChunkAt(tail))
        return {};
    Bytes head(static_cast<std::size_t>(std::min<UInt64>(fileLength() - tail, signatureOffset + 4)));
    const bool isFound = file_.readAll(tail, head) == noErr && load32(head.data(), ByteOrder::big) == applicationChunk;
    return isFound ? head : Bytes();
}

// Whether the chunk at `tail` is the track store's.
bool ChunkContainer::isStoreBegunAt(UInt64 tail)
{
    const Bytes head = cutOffAppendAt(tail);
    return head.size() >= signatureOffset + 4 && isOfTrackStore(load32(&head[signatureOffset], ByteOrder::big));
}

// Makes the headers count what a killed writer could not: audio at the end of the file, or chunks that another writer
// appended. The start of an appended chunk is no audio; that of the track store is cut off again, others stay. Trailing
// bytes of less than a frame, and a lone pad byte, are no audio. If the disk refuses, the file is used all the same,
// and closing it tries again.
void ChunkContainer::bringInLine()
{
    const UInt64 tail = padded(declaredEnd_);
    if (audioIsLast_ && tail == padded(written_.formEnd) && !cutOffAppendAt(tail).empty()) {
        if (isStoreBegunAt(tail))
            file_.truncate(declaredEnd_);
        return;
    }
    const UInt64 frame = format_.mBytesPerFrame;
    const UInt64 stored = fileLength() - std::min(fileLength(), audio_.start);
    const bool audioLags = audioIsLast_ && fileLength() > room_.begin && stored - stored % frame > audio_.bytes;
    if (!audioLags && declaredEnd_ + 1 >= written_.formEnd)
        return;
    const UInt64 bytes = audioLags ? stored - stored % frame : audio_.bytes;
    if (!canHold({padded(std::max(audio_.start + bytes, written_.formEnd)), audio_.start + bytes, bytes}))
        return;
    if (!audioLags) {
        writeSizes(written_);
        return;
    }
    headerLags_ = true;
    audio_.bytes = bytes;
    if (commit() == noErr && fileLength() > written_.formEnd)
        file_.truncate(written_.formEnd);
}

OSStatus ChunkContainer::create(const Bytes& header)
{
    const FileLock lock = file_.lock();
    bool changed = false;
    if (const OSStatus status = file_.refreshLength(changed); status != noErr)
        return status;
    if (const OSStatus status = fileLength() > 0 ? file_.truncate(0) : noErr; status != noErr)
        return status;
    if (const OSStatus status = file_.writeAll(0, header); status != noErr)
        return status;
    return read();
}

OSStatus ChunkContainer::readBytes(UInt64 start, UInt32& count, void* buffer)
{
    const UInt64 wanted = count;
    count = 0;
    if (start >= byteCount())
        return kAudioFileEndOfFileError;
    const UInt64 position = audio_.start + start;
    const Transfer done = file_.read(position, buffer, static_cast<std::size_t>(std::min(wanted, byteCount() - start)));
    count = static_cast<UInt32>(done.count);
    if (held_) {
        const UInt64 from = std::max(position, held_->position);
        const UInt64 to = std::min(position + count, held_->position + held_->bytes.size());
        if (from < to)
            std::memcpy(static_cast<UInt8*>(buffer) + (from - position), held_->bytes.data() + (from - held_->position),
                        static_cast<std::size_t>(to - from));
    }
    if (done.error != 0)
        return statusForSystemError(done.error);
    return count == 0 && wanted > 0 ? kAudioFileEndOfFileError : noErr;
}

OSStatus ChunkContainer::writeBytes(UInt64 start, UInt32& count, const void* buffer)
{
    if (count == 0)
        return noErr;
    if (start + count > audio_.bytes) {
        const FileLock lock = file_.lock();
        return grow(start, count, buffer);
    }
    const Transfer done = store(audio_.start + start, static_cast<const UInt8*>(buffer), count);
    count = static_cast<UInt32>(done.count);
    if (headerLags_ && !defersSizeUpdates()) { // an earlier write failed to commit; the close retries
        const FileLock lock = file_.lock();
        if (noticeOtherWriter() == noErr)
            (void)commit();
    }
    return statusForSystemError(done.error);
}

// Writes audio past its present end. Called with the lock held; the headers are true again when it is released.
OSStatus ChunkContainer::grow(UInt64 start, UInt32& count, const void* buffer)
{
    const UInt32 wanted = std::exchange(count, 0);
    if (const OSStatus status = prepareGrowth(start, start + wanted); status != noErr)
        return status;
    const Transfer done = store(audio_.start + start, static_cast<const UInt8*>(buffer), wanted);
    count = static_cast<UInt32>(done.count);
    const UInt64 end = start + done.count;
    if (done.count > 0 && end > audio_.bytes) {
        audio_.bytes = end;
        headerLags_ = true;
    }
    const OSStatus committed = headerLags_ && !defersSizeUpdates() ? commit() : noErr;
    return done.error != 0 ? statusForSystemError(done.error) : committed;
}

OSStatus ChunkContainer::finish()
{
    if (!held_ && !headerLags_ && !grewInFront_)
        return noErr;
    const FileLock lock = file_.lock();
    const OSStatus written = writeHeld();
    OSStatus status = noticeOtherWriter();
    if (status == noErr && headerLags_)
        status = commit();
    status = written == noErr ? status : written;
    // what cannot be trimmed stays as filler: nothing is lost
    if (status == noErr && grewInFront_)
        trimRoom();
    return status;
}

} // namespace qmx
