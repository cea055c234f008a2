// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/AudioFile.h"
#include "CoreServices/Files.h"
#include "Foundation/Files/FileManager.h"
#include "Foundation/HeapBlock.h"
#include "Foundation/Object.h"
#include "Foundation/Threads/ConditionLock.h"
#include "Foundation/Threads/Thread.h"
#include "Foundation/Threads/Worker.h"

#include <array>
#include <atomic>
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
/// Failing platform calls are logged; the operation then returns false (or nothing) and the object stays usable. Where
/// memory runs out the maker gives null, reads, writes and opens fail, and a path or format that was to be set is not.
/// All operations: one thread at a time (main, or the saving thread of a recorder). Never on an I/O or render thread:
/// with the cache on a write may wait for a free buffer, without it for the disk.
class QMX_EXPORT QMXAudioFile : public qmx::Object
{
public:
    /// A closed file object on `path` (the file need not exist): type 'AIFF', both caches off, no stream format.
    /// Without a path an object that can do nothing until updatePath().
    static std::shared_ptr<QMXAudioFile> initWithPath_accessMode(const std::optional<std::string>& path,
                                                                 QMXAudioFileAccessMode mode);
    /// Closes the file; what the cache holds is written first.
    ~QMXAudioFile() override;

    /// Turns the object to another path: offsets, lengths and the copies of the format's fields are cleared, the stream
    /// format stays for the next create. Close first: an open file's cached bytes are written, but it is released only
    /// when the object opens another file or ends.
    void updatePath(const std::optional<std::string>& path);
    const std::optional<std::string>& path() const { return originalFilePath; }
    const std::optional<std::string>& name() const { return fileName; }
    AudioFileID audioFileID() const { return audioFileID_; }
    /// Moves the file with its fork and follows it. Close first. False leaves file and object as they were.
    bool moveToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler);
    /// Copies the file with its fork as it is on disk; the object keeps its path.
    bool copyToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler);

    /// Opens in the object's mode: for reading, for reading and writing, or (mode write) creates. Does nothing when
    /// open. What cannot be opened for reading and writing is created instead, which replaces what stands there only
    /// after setFileStreamFormat(). Whether the file is open afterwards.
    bool open();
    /// Creates the file with the object's type and stream format; one that exists is emptied. False when already open.
    bool create();
    /// Empties the existing file and gives it the object's type and stream format. False when already open.
    bool initializeFile();
    /// Writes what the cache holds, however long the disk takes, closes and stamps the file with creator and type
    /// codes. True when nothing was open; false when the platform could not close, or when cached bytes could not be
    /// written at any time since the file was opened. A process made by fork() leaves what the cache holds to its
    /// parent.
    bool close();
    bool isOpen() const { return fileIsOpen; }
    /// The status of the last open, create, write or close that failed; 0 after the file was opened or created.
    OSStatus lastStatus() const { return lastStatus_; }

    AudioFileTypeID fileType() const { return _fileType; }
    /// The container of the next create. Setting a stream format afterwards sets it to 'AIFF' or 'AIFC' again.
    void setFileType(AudioFileTypeID type) { _fileType = type; }
    bool usesCache() const { return _useCache; }
    /// Turned off while the file is open, what the cache holds is written first, however long the disk takes.
    void setUseCache(bool uses);
    bool usesInternalCache() const { return _useInternalCache; }
    void setUseInternalCache(bool uses) { _useInternalCache = uses; }
    /// Closes an open file and sets its mode for the next open; a closed file keeps its mode, which is intended.
    void changeAccessMode(QMXAudioFileAccessMode mode);

    /// Null before a format was set or read.
    const std::shared_ptr<QMXAudioStreamBasicDescription>& fileStreamFormat() const { return _fileStreamFormat; }
    /// Keeps a copy of `format`; an open file is closed and opened again with it. False in mode read.
    bool setFileStreamFormat(const QMXAudioStreamBasicDescription& format);
    /// 'AIFC' for a float format, else 'AIFF'.
    AudioFileTypeID determineFileType(const QMXAudioStreamBasicDescription& format) const;
    Float64 sampleRate() const { return _sampleRate; }
    UInt32 formatID() const { return _formatID; }
    UInt32 formatFlags() const { return _formatFlags; }
    UInt32 bytesPerPacket() const { return _bytesPerPacket; }
    UInt32 framesPerPacket() const { return _framesPerPacket; }
    UInt32 bytesPerFrame() const { return _bytesPerFrame; }
    UInt32 channelsPerFrame() const { return _channelsPerFrame; }
    UInt32 bitsPerChannel() const { return _bitsPerChannel; }
    /// None without a stream format.
    std::optional<std::string> formatIDName() const;
    /// The codec's cookie, its bytes in `*size`; null and 0 where there is none.
    qmx::HeapBlock magicCookie(UInt32* size);
    OSStatus setMagicCookie_size(const void* data, UInt32 size);

    /// Reads `*length` bytes at the current offset, which advances by what came; `*length` becomes that. False at the
    /// end of the data and on an error. On a closed file true, without doing anything.
    bool read_length(void* buffer, UInt32* length);
    /// The same at `offset` (bytes into the audio data); the current offset stays.
    bool read_length_fromOffset(void* buffer, UInt32* length, SInt64 offset);
    /// Writes `*length` bytes at the current offset, which advances. False on an error and on a closed file; with the
    /// cache on a failure to write earlier bytes is reported here, with `*length` 0.
    bool write_length(const void* buffer, UInt32* length);
    /// The same at `offset`; the current offset stays. On a closed file true, without doing anything.
    bool write_length_atOffset(const void* buffer, UInt32* length, SInt64 offset);
    /// The current byte offset into the audio data.
    SInt64 offset() const { return _fileOffset; }
    /// Ignored in mode write.
    void setOffset(SInt64 offset);
    void rewind() { setOffset(0); }
    /// Hands what the cache holds to its thread and waits at most 0.3 seconds for it to be written. Always true.
    bool flush();

    /// Reads `*numPackets` packets at the current packet, which advances by what came. False on an error and when not
    /// open.
    bool readPackets_numBytes_outPacketDescriptions_numPackets(void* buffer, UInt32* numBytes,
                                                               AudioStreamPacketDescription* descriptions,
                                                               UInt32* numPackets);
    bool
    readPackets_numBytes_outPacketDescriptions_startingPacket_numPackets(void* buffer, UInt32* numBytes,
                                                                         AudioStreamPacketDescription* descriptions,
                                                                         SInt64 startingPacket, UInt32* numPackets);
    /// Writes `*numPackets` packets of together `numBytes` bytes at the current packet, which advances. False on an
    /// error, when not open and while the byte cache is on.
    bool writePackets_numBytes_inPacketDescriptions_numPackets(const void* buffer, UInt32 numBytes,
                                                               const AudioStreamPacketDescription* descriptions,
                                                               UInt32* numPackets);
    bool writePackets_numBytes_inPacketDescriptions_startingPacket_numPackets(
        const void* buffer, UInt32 numBytes, const AudioStreamPacketDescription* descriptions, SInt64 startingPacket,
        UInt32* numPackets);

    /// Bytes of audio data. While writing through the cache this is the current offset.
    UInt64 lengthInBytes();
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
    static std::string propertyName(AudioFilePropertyID property);

private:
    explicit QMXAudioFile(QMXAudioFileAccessMode mode);

    struct Path {
        std::optional<std::string> whole, parent, name;
    };
    static Path pathOf(const std::optional<std::string>& path);
    void takePath(Path path) noexcept;
    void resolveReferences();
    void _setFileStreamFormat(std::shared_ptr<QMXAudioStreamBasicDescription> format);
    void copyFormatFields(const AudioStreamBasicDescription& record);
    void loadFormat();
    bool didOpen();
    bool didCreate(OSStatus status, const char* failure);
    bool succeeded(OSStatus status);
    bool closePlatformFile();
    void stampFile() const;

    // the cache, the caller's side
    void resetCache(int bufferCondition);
    bool hasBuffers() const { return rawByteBuffer[0] && rawByteBuffer[1]; }
    bool writesBehind() const { return _useCache && writeThreadIsRunning && writeThread_.thread.isJoinable(); }
    bool hasReadThread() const { return readThreadIsRunning && readThread_.thread.isJoinable(); }
    bool insertBytesIntoBuffer_length_offset(const Byte* bytes, UInt32* length, SInt64 offset);
    UInt32 insertPart(const Byte* bytes, UInt32 length, SInt64 offset);
    void startSpanAt(SInt64 offset);
    void endSpan();
    void handOverCurrentBuffer();
    void drainWrites();
    bool consumeRawBytes_length_offset(Byte* bytes, UInt32* length, SInt64 offset);
    bool spanHolds(SInt64 offset) const;
    OSStatus turnToBufferWith(SInt64 offset);
    void requestFill(SInt64 offset);
    void finishFill();
    void emptySpan();
    struct CacheThread;
    void startThread(CacheThread& cacheThread, std::atomic<bool>& isRunning, const char* name,
                     void (QMXAudioFile::*body)());
    void endThreads();

    // the cache, the threads' side
    void saveBufferRunLoop();
    void saveRawByteBuffer();
    void fillBufferRunLoop();
    void fillRawByteBuffer();

    // a buffer's part of the file
    struct Span {
        UInt32 buffer = 0;
        UInt32 byteCount = 0;
        SInt64 fileOffset = 0;
    };

    std::optional<std::string> originalFilePath;
    std::optional<std::string> parentDirPath;
    std::optional<std::string> fileName;
    std::shared_ptr<QMXAudioStreamBasicDescription> _fileStreamFormat;
    FSSpec parentDirSpec;
    FSRef parentDirRef;
    FSSpec audioFileSpec;
    FSRef audioFileRef;
    AudioFileID audioFileID_ = nullptr;
    SInt64 _fileOffset = 0;
    SInt64 _packetOffset = 0;
    SInt64 _fileLength = 0;
    Float64 _sampleRate = 0;
    UInt32 _formatID = 0;
    UInt32 _formatFlags = 0;
    UInt32 _bytesPerPacket = 0;
    UInt32 _framesPerPacket = 0;
    UInt32 _bytesPerFrame = 0;
    UInt32 _channelsPerFrame = 0;
    UInt32 _bitsPerChannel = 0;
    bool fileIsOpen = false;
    bool fileIsOpenForReading = false;
    bool fileIsOpenForWriting = false;
    bool _useCache = false;
    bool _useInternalCache = false;
    bool _isFlushing = false;
    bool fileSizeIsDirty = true;
    std::atomic<OSStatus> lastStatus_{noErr};
    AudioFileTypeID _fileType = kAudioFileAIFFType;
    QMXAudioFileAccessMode fileAccessMode;
    std::atomic<bool> readThreadIsRunning{false};
    std::atomic<bool> writeThreadIsRunning{false};
    std::atomic<bool> threadShouldExit{false};
    // while writing: 1 is free for the caller, 0 full; while reading: 0 is empty, 1 full
    std::array<qmx::ConditionLock, 2> rawByteBufferLock;
    qmx::ConditionLock writeThreadRunLock{1};
    qmx::ConditionLock readThreadRunLock{1};
    std::array<std::unique_ptr<Byte[]>, 2> rawByteBuffer;
    UInt32 rawByteBufferSizeInBytes;
    UInt32 rawByteBufferOffsetInBytes = 0;
    UInt32 currentBuffer = 1;
    SInt64 rawByteBufferStartingOffset = 0;
    SInt64 rawByteBufferEndingOffset = 0;
    SInt64 rawByteBufferOffsetInFile = 0;
    std::array<UInt32, 2> bytesInRawByteBuffer{};

    // filled buffers in the order they are to be saved; the caller makes, the write thread saves
    std::array<Span, 2> handOvers_;
    std::atomic<UInt64> handOversMade_{0};
    UInt64 handOversSaved_ = 0;
    // what the read thread fills, or has filled, ahead of the caller
    Span readAhead_;
    bool fillRequested_ = false;
    std::atomic<OSStatus> cacheFailure_{noErr};   // for the next call
    std::atomic<bool> cachedBytesAreLost_{false}; // until the file is opened again
    bool formatWasRead_ = false;                  // from a file, not set by the caller
    struct CacheThread {
        qmx::ConditionLock& runLock; // 0: there is work
        std::optional<qmx::Worker> worker{};
        qmx::Thread thread{};
    };
    CacheThread readThread_{readThreadRunLock};
    CacheThread writeThread_{writeThreadRunLock};
};
