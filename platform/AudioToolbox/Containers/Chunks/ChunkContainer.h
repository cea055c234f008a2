// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Containers/Chunks/ChunkReader.h"
#include "AudioToolbox/Containers/Container.h"

#include <optional>

namespace qmx
{

/// A container that is one form of chunks (a header, then chunks) with the audio data in one of them. Knows how
/// to load it, and how to write it so that a process killed at any moment leaves a file that opens with all that
/// was acknowledged, and with every other chunk. A derived class supplies the byte order, the headers and the sizes
/// they hold.
///
/// While audio grows in front of other chunks the file is
///
///     ... | audio chunk | filler | chunks behind | end of form | bytes behind the form
///                       ^room_.begin ^room_.end
///
/// and no chunk moves while the audio grows into the filler. The first 8 bytes of the filler (12 with 64-bit sizes) are
/// its header, on which every reader's walk depends; audio that belongs there is held in memory until the audio chunk's
/// size covers them.
///
/// The file's lock is held while audio grows and while headers are rewritten: on opening for writing, on creating, on
/// each write past the end and on finishing. These wait indefinitely for another holder. Whenever the lock is free the
/// headers are true, unless size updates are deferred, so that another writer that holds it may append or change
/// chunks.
class ChunkContainer : public Container
{
public:
    UInt64 byteCount() const override;
    SInt64 dataOffset() const override { return static_cast<SInt64>(audio_.start); }
    bool isOptimized() const override { return !hasChunksBehind(); }
    std::vector<UInt32> chunkIDs() override;
    OSStatus readBytes(UInt64 start, UInt32& count, void* buffer) override;
    OSStatus writeBytes(UInt64 start, UInt32& count, const void* buffer) override;
    OSStatus finish() override;

    /// Reads an existing file's header. Opening for writing brings the sizes of a file that lag behind its length in
    /// line.
    OSStatus load(bool forWriting);
    /// Makes the file one that holds no audio yet; whatever it held is gone.
    OSStatus create(const Bytes& header);

protected:
    /// The positions and sizes that a file's headers state.
    struct Sizes {
        UInt64 formEnd = 0;       ///< position after the last chunk
        UInt64 audioChunkEnd = 0; ///< position after the audio chunk's data, without a pad byte
        UInt64 audioBytes = 0;
    };

    ChunkContainer(std::unique_ptr<File> file, FourCharCode filler, ChunkShape shape = {})
        : file_(std::move(file)), filler_(filler), shape_(shape)
    {
    }

    /// Reads the bytes that open the form and returns where it claims to end; 0 and absurd ends are fine.
    virtual UInt64 readFormHeader(const UInt8* header) = 0;
    /// Reads what is of interest in a chunk; called once for each in file order. May correct the chunk's size.
    virtual OSStatus visit(Chunk& chunk) = 0;
    /// Called after the last chunk: sets `format_`, and the audio bytes by `setAudio`.
    virtual OSStatus finishLoading() = 0;
    virtual bool canHold(const Sizes& sizes) const = 0;
    virtual std::vector<Patch> patchesFor(const Sizes& sizes) = 0;
    /// The chunks from `from` on were moved by `by` bytes.
    virtual void chunksMoved(UInt64 from, SInt64 by) = 0;
    /// Whether what looks like a chunk right after the audio is one, not audio that the header does not count yet.
    virtual bool mayFollowAudio(const Chunk&) { return true; }
    /// An audio chunk without audio, for a file that has none; empty if the container cannot do without one.
    virtual Bytes emptyAudioChunk() const { return {}; }

    /// Sets the audio chunk and where in the file its samples start.
    void setAudioChunk(const Chunk& chunk, UInt64 start);
    /// The position of the audio chunk's header.
    UInt64 audioChunk() const { return audio_.chunk; }
    bool hasAudioChunk() const { return audio_.start != 0; }
    void setAudioBytes(UInt64 bytes) { audio_.bytes = written_.audioBytes = bytes; }
    /// Bytes from the audio's start to the end of its chunk.
    UInt64 audioRoom() const { return written_.audioChunkEnd - audio_.start; }
    void setFormEnd(UInt64 end) { declaredEnd_ = end; }

    UInt64 fileLength() const { return file_.length(); }
    /// The chunk's data, at most `largest` bytes of it.
    OSStatus readChunk(const Chunk& chunk, std::size_t largest, Bytes& data);
    /// Whether a chunk that lies wholly in the file is at `position`.
    bool isChunkAt(UInt64 position);

    ByteOrder order_ = ByteOrder::big;

private:
    struct Room {
        UInt64 begin = 0; ///< where on disk the walk continues after the audio chunk
        UInt64 end = 0;   ///< where the first chunk is that is no filler
    };
    struct Held {
        UInt64 position = 0;
        Bytes bytes;
    };

    // Loading (ChunkContainer.cpp)
    OSStatus read();
    OSStatus walk();
    void endWalk(const Chunk& last, bool ranIntoOtherBytes, UInt64 formEnd);
    Bytes cutOffAppendAt(UInt64 tail);
    bool isStoreBegunAt(UInt64 tail);
    void bringInLine();
    OSStatus grow(UInt64 start, UInt32& count, const void* buffer);

    // Sizes and growth (ChunkContainerGrowth.cpp)
    bool hasChunksBehind() const { return room_.begin < written_.formEnd; }
    UInt64 headerBytes() const { return shape_.headerBytes(); }
    ChunkReader reader() { return {file_, order_, shape_}; }
    UInt64 padded(UInt64 end) const { return audio_.chunk + shape_.padded(end - audio_.chunk); }
    Bytes fillerHeader(UInt64 position, UInt64 end) const;
    Transfer store(UInt64 position, const UInt8* data, std::size_t size);
    OSStatus prepareGrowth(UInt64 start, UInt64 end);
    OSStatus addAudioChunk();
    OSStatus fillGap(UInt64 start);
    OSStatus writeSizes(const Sizes& sizes);
    OSStatus writeFormEnd(UInt64 formEnd);
    OSStatus commit();
    OSStatus commitAtEnd(UInt64 chunkEnd);
    OSStatus commitInRoom(UInt64 chunkEnd);
    OSStatus moveFillerOn(UInt64 chunkEnd);
    OSStatus commitFewBytes(UInt64 chunkEnd);
    OSStatus writeHeld();
    OSStatus noticeOtherWriter();
    OSStatus makeRoom(UInt64 end);
    OSStatus dropFiller();
    OSStatus moveChunksBehind(UInt64 lowest);
    OSStatus extendForm(UInt64 formEnd);
    OSStatus trimRoom();

    ContainerFile file_;
    FourCharCode filler_;
    ChunkShape shape_;
    struct {
        UInt64 chunk = 0; // position of the chunk's header
        UInt64 start = 0; // position of the first sample; 0: the file has no audio chunk
        UInt64 bytes = 0; // including those that the header does not count yet
    } audio_;
    Sizes written_; // as the file states them
    Room room_;
    std::optional<Held> held_;
    UInt64 declaredEnd_ = 0;
    bool audioIsLast_ = false;
    bool endsCutOff_ = false;       // the last chunk is not the audio's and longer than the file
    bool endsInOtherBytes_ = false; // bytes that are no chunk end the form
    bool grewInFront_ = false;      // audio grew in front of other chunks
    bool headerLags_ = false;       // the header does not count all audio
    UInt64 nextRoom_ = UInt64{1} << 20;
};

/// Opens a file as a `Form`; `container` is set on success only.
template <class Form>
OSStatus loadContainer(std::unique_ptr<File> file, bool forWriting, std::unique_ptr<Container>& container)
{
    auto form = std::make_unique<Form>(std::move(file));
    const OSStatus status = form->load(forWriting);
    if (status == noErr)
        container = std::move(form);
    return status;
}

/// Makes the file an empty `Form` of this header; `container` is set on success only.
template <class Form>
OSStatus createContainer(std::unique_ptr<File> file, const Bytes& header, std::unique_ptr<Container>& container)
{
    auto form = std::make_unique<Form>(std::move(file));
    const OSStatus status = form->create(header);
    if (status == noErr)
        container = std::move(form);
    return status;
}

} // namespace qmx
