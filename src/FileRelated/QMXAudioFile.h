// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/AudioToolbox/AudioFile.h>
#include <QMXCoreAudio/Foundation/Files/FileManager.h>
#include <QMXCoreAudio/Foundation/HeapBlock.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>
#include <optional>
#include <string>

class QMXAudioStreamBasicDescription;

/// What a file is opened for.
enum class QMXAudioFileAccessMode : SInt32 {
    read = 0,
    readWrite = 1,
    write = 2, ///< a new file: created, or an existing file emptied
};

/// One audio file on disk by bytes and packets: a current byte offset into the audio data, the length in bytes, frames
/// and milliseconds, and the file's stream format with copies of its fields.
///
/// For long sequential work an optional cache keeps two buffers of 768 KiB: a thread of the object's own writes one to
/// disk (or fills it from disk) while the caller works on the other, so that a recorder never waits for the disk.
///
/// Failing platform calls are logged; the operation then returns false (or nothing), lastError() says why, and the
/// object stays usable. When memory runs out, the factory returns null, reads, writes and opens fail, and a path or
/// format to be set is not set. All operations: one thread at a time (main, or the saving thread of a recorder). Never
/// on an I/O or render thread: with the cache on, a write may wait for a free buffer; without it, for the disk.
/// Releasing the last reference closes the file; what the cache holds is written first.
class QMX_EXPORT QMXAudioFile : public qmx::Object
{
public:
    /// A closed file object on `path` (the file need not exist): type 'AIFF', both caches off, no stream format.
    /// Without a path the object can do nothing until updatePath().
    static std::shared_ptr<QMXAudioFile> initWithPath_accessMode(const std::optional<std::string>& path,
                                                                 QMXAudioFileAccessMode mode);

    /// Changes the path: offsets, lengths and the copies of the format's fields are cleared; the stream format stays
    /// for the next create. Close first: an open file's cached bytes are written, but the file is released only when
    /// the object opens another one or is destroyed.
    virtual void updatePath(const std::optional<std::string>& path) = 0;
    /// Path and file name; null without a path.
    virtual const std::optional<std::string>& path() const = 0;
    virtual const std::optional<std::string>& name() const = 0;
    /// The platform's file, which this object owns; null while closed.
    virtual AudioFileID audioFileID() const = 0;
    /// Moves the file with its fork; the object follows it. Close first. False leaves file and object as they were.
    [[nodiscard]] virtual bool moveToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler) = 0;
    /// Copies the file with its fork as it is on disk; the object keeps its path.
    [[nodiscard]] virtual bool copyToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler) = 0;

    /// Opens the file in the object's mode: for reading, for reading and writing, or (mode write) by creating it. Does
    /// nothing when open. A file that cannot be opened for reading and writing is created instead; an existing one is
    /// replaced only after setFileStreamFormat(). Returns whether the file is open afterwards.
    [[nodiscard]] virtual bool open() = 0;
    /// Creates the file with the object's type and stream format; an existing one is emptied. False when already open.
    [[nodiscard]] virtual bool create() = 0;
    /// Empties the existing file and gives it the object's type and stream format. False when already open.
    [[nodiscard]] virtual bool initializeFile() = 0;
    /// Writes what the cache holds, however long the disk takes, closes and stamps the file with creator and type
    /// codes. True when nothing was open; false when the platform could not close, or when cached bytes could not be
    /// written at any time since the file was opened. A process made by fork() leaves what the cache holds to its
    /// parent.
    [[nodiscard]] virtual bool close() = 0;
    virtual bool isOpen() const = 0;

    /// The status of what failed in the last operation that can fail, even if its result hides it: a read or write of a
    /// closed file (fnOpnErr), the end of the data (eofErr), a file that could not be opened again. After flush() and
    /// close() it covers every cached write that failed since the file was opened. 0 if nothing failed. Any thread.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people that names the file, empty when nothing failed. Any thread.
    virtual std::string lastError() const = 0;

    virtual AudioFileTypeID fileType() const = 0;
    /// The container of the next create. Setting a stream format afterwards sets it to 'AIFF' or 'AIFC' again.
    virtual void setFileType(AudioFileTypeID type) = 0;
    virtual bool usesCache() const = 0;
    /// Turning the cache off while the file is open first writes what it holds, however long the disk takes.
    virtual void setUseCache(bool uses) = 0;
    /// Passed to the audio file service with each transfer, which ignores it.
    virtual bool usesInternalCache() const = 0;
    virtual void setUseInternalCache(bool uses) = 0;
    /// Closes an open file and sets its mode for the next open; a closed file keeps its mode, which is intended.
    virtual void changeAccessMode(QMXAudioFileAccessMode mode) = 0;

    /// Null before a format was set or read.
    virtual const std::shared_ptr<QMXAudioStreamBasicDescription>& fileStreamFormat() const = 0;
    /// Keeps a copy of `format`; an open file is closed and opened again with it, and lastStatus() reports a failure of
    /// that. False in mode read.
    [[nodiscard]] virtual bool setFileStreamFormat(const QMXAudioStreamBasicDescription& format) = 0;
    /// 'AIFC' for a float format, else 'AIFF'.
    AudioFileTypeID determineFileType(const QMXAudioStreamBasicDescription& format) const;
    /// A copy of the stream format's fields; all zero before there is one, and after updatePath().
    virtual const AudioStreamBasicDescription& formatFields() const = 0;
    Float64 sampleRate() const { return formatFields().mSampleRate; }
    UInt32 formatID() const { return formatFields().mFormatID; }
    UInt32 formatFlags() const { return formatFields().mFormatFlags; }
    UInt32 bytesPerPacket() const { return formatFields().mBytesPerPacket; }
    UInt32 framesPerPacket() const { return formatFields().mFramesPerPacket; }
    UInt32 bytesPerFrame() const { return formatFields().mBytesPerFrame; }
    UInt32 channelsPerFrame() const { return formatFields().mChannelsPerFrame; }
    UInt32 bitsPerChannel() const { return formatFields().mBitsPerChannel; }
    /// None without a stream format.
    std::optional<std::string> formatIDName() const;
    /// The codec's cookie, its size in bytes in `*size`; null and 0 if there is none.
    virtual qmx::HeapBlock magicCookie(UInt32* size) = 0;
    /// Sets the codec's cookie of the open file from `size` bytes; returns the platform's status.
    [[nodiscard]] virtual OSStatus setMagicCookie_size(const void* data, UInt32 size) = 0;

    /// Reads `*length` bytes at the current offset; `*length` becomes the bytes read, by which the offset advances.
    /// False at the end of the data and on an error. On a closed file returns true without doing anything.
    [[nodiscard]] virtual bool read_length(void* buffer, UInt32* length) = 0;
    /// The same at `offset` (bytes into the audio data); the current offset stays.
    [[nodiscard]] virtual bool read_length_fromOffset(void* buffer, UInt32* length, SInt64 offset) = 0;
    /// Writes `*length` bytes at the current offset, which advances. False on an error and on a closed file; with the
    /// cache on, a failure to write earlier bytes is reported here, with `*length` 0.
    [[nodiscard]] virtual bool write_length(const void* buffer, UInt32* length) = 0;
    /// The same at `offset`; the current offset stays. On a closed file returns true without doing anything.
    [[nodiscard]] virtual bool write_length_atOffset(const void* buffer, UInt32* length, SInt64 offset) = 0;
    /// The current byte offset into the audio data.
    virtual SInt64 offset() const = 0;
    /// Ignored in mode write.
    virtual void setOffset(SInt64 offset) = 0;
    void rewind() { setOffset(0); }
    /// Hands what the cache holds to its thread and waits at most 0.3 seconds for it to be written. Always true.
    virtual bool flush() = 0;

    /// Reads `*numPackets` packets at the current packet, which advances by the packets read. False on an error and
    /// when not open.
    [[nodiscard]] virtual bool readPackets_numBytes_outPacketDescriptions_numPackets(
        void* buffer, UInt32* numBytes, AudioStreamPacketDescription* descriptions, UInt32* numPackets) = 0;
    /// The same at `startingPacket`; the current packet stays.
    [[nodiscard]] virtual bool
    readPackets_numBytes_outPacketDescriptions_startingPacket_numPackets(void* buffer, UInt32* numBytes,
                                                                         AudioStreamPacketDescription* descriptions,
                                                                         SInt64 startingPacket, UInt32* numPackets) = 0;
    /// Writes `*numPackets` packets, `numBytes` bytes in all, at the current packet, which advances. False on an error,
    /// when not open and while the byte cache is on.
    [[nodiscard]] virtual bool writePackets_numBytes_inPacketDescriptions_numPackets(
        const void* buffer, UInt32 numBytes, const AudioStreamPacketDescription* descriptions, UInt32* numPackets) = 0;
    /// The same at `startingPacket`; the current packet stays.
    [[nodiscard]] virtual bool writePackets_numBytes_inPacketDescriptions_startingPacket_numPackets(
        const void* buffer, UInt32 numBytes, const AudioStreamPacketDescription* descriptions, SInt64 startingPacket,
        UInt32* numPackets) = 0;

    /// Bytes of audio data. While writing through the cache this is the current offset.
    virtual UInt64 lengthInBytes() = 0;
    /// Whole frames; 32 bits wide, which is intended. 0 without a stream format.
    UInt32 lengthInFrames();
    /// Milliseconds of whole frames, truncated. 0 without a stream format.
    UInt64 lengthInMilliSeconds();
    std::string dumpDebugInfo();

    /// A file property in a block of its own; null on failure, which is logged.
    static qmx::HeapBlock anyProperty_propertyID(AudioFileID file, AudioFilePropertyID property);
    /// Bytes of a property; 0 on failure, which is logged.
    static UInt32 sizeOfPropertyData_propertyID(AudioFileID file, AudioFilePropertyID property);
    /// Logs one line that names the status.
    static void printOSStatusCode(OSStatus status);
    /// The name of the constant for a property; "Unknown property: CODE" for any other code.
    static std::string propertyName(AudioFilePropertyID property);
};
