// SPDX-License-Identifier: MIT
// What an audio file object is made of: QMXAudioFile.cpp has the file, QMXAudioFileCache.cpp the cache.
#pragma once

#include "CoreServices/Files.h"
#include "FileRelated/QMXAudioFile.h"
#include "Formats/LastFailure.h"
#include "Foundation/Threads/ConditionLock.h"
#include "Foundation/Threads/Thread.h"
#include "Foundation/Threads/Worker.h"

#include <array>
#include <atomic>

class QMXAudioFileImpl final : public QMXAudioFile
{
public:
    QMXAudioFileImpl(const std::optional<std::string>& path, QMXAudioFileAccessMode mode);
    ~QMXAudioFileImpl() override;
    void updatePath(const std::optional<std::string>& path) override;
    const std::optional<std::string>& path() const override { return originalFilePath; }
    const std::optional<std::string>& name() const override { return fileName; }
    AudioFileID audioFileID() const override { return audioFileID_; }
    bool moveToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler) override;
    bool copyToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler) override;
    bool open() override;
    bool create() override;
    bool initializeFile() override;
    bool close() override;
    bool isOpen() const override { return fileIsOpen; }
    OSStatus lastStatus() const override { return failure_.status(); }
    std::string lastError() const override { return failure_.sentence(); }
    AudioFileTypeID fileType() const override { return _fileType; }
    void setFileType(AudioFileTypeID type) override { _fileType = type; }
    bool usesCache() const override { return _useCache; }
    void setUseCache(bool uses) override;
    bool usesInternalCache() const override { return _useInternalCache; }
    void setUseInternalCache(bool uses) override { _useInternalCache = uses; }
    void changeAccessMode(QMXAudioFileAccessMode mode) override;
    const std::shared_ptr<QMXAudioStreamBasicDescription>& fileStreamFormat() const override
    {
        return _fileStreamFormat;
    }
    bool setFileStreamFormat(const QMXAudioStreamBasicDescription& format) override;
    const AudioStreamBasicDescription& formatFields() const override { return _formatFields; }
    qmx::HeapBlock magicCookie(UInt32* size) override;
    OSStatus setMagicCookie_size(const void* data, UInt32 size) override;
    bool read_length(void* buffer, UInt32* length) override;
    bool read_length_fromOffset(void* buffer, UInt32* length, SInt64 offset) override;
    bool write_length(const void* buffer, UInt32* length) override;
    bool write_length_atOffset(const void* buffer, UInt32* length, SInt64 offset) override;
    SInt64 offset() const override { return _fileOffset; }
    void setOffset(SInt64 offset) override;
    bool flush() override;
    bool readPackets_numBytes_outPacketDescriptions_numPackets(void* buffer, UInt32* numBytes,
                                                               AudioStreamPacketDescription* descriptions,
                                                               UInt32* numPackets) override;
    bool readPackets_numBytes_outPacketDescriptions_startingPacket_numPackets(
        void* buffer, UInt32* numBytes, AudioStreamPacketDescription* descriptions, SInt64 startingPacket,
        UInt32* numPackets) override;
    bool writePackets_numBytes_inPacketDescriptions_numPackets(const void* buffer, UInt32 numBytes,
                                                               const AudioStreamPacketDescription* descriptions,
                                                               UInt32* numPackets) override;
    bool writePackets_numBytes_inPacketDescriptions_startingPacket_numPackets(
        const void* buffer, UInt32 numBytes, const AudioStreamPacketDescription* descriptions, SInt64 startingPacket,
        UInt32* numPackets) override;
    UInt64 lengthInBytes() override;

private:
    struct Path {
        std::optional<std::string> whole, parent, name;
    };
    static Path pathOf(const std::optional<std::string>& path);
    void takePath(Path path) noexcept;
    using ManagerOperation = decltype(&qmx::FileManager::movePath_toPath_handler);
    bool manages(ManagerOperation transfer, const std::string& newPath, qmx::FileManagerHandler* handler,
                 const char* whatFailed);
    void resolveReferences();
    bool isThere() const { return !audioFileRef.path.empty(); }
    void _setFileStreamFormat(std::shared_ptr<QMXAudioStreamBasicDescription> format);
    const AudioStreamBasicDescription* formatRecord() const;
    void loadFormat();
    bool didOpen();
    OSStatus makeFile();
    OSStatus emptyFile();
    void didCreate(OSStatus status, const char* failure);
    bool succeeded(OSStatus status, const char* whatFailed);
    bool succeededOrLogs(OSStatus status, const char* whatFailed);
    bool closePlatformFile();
    void stampFile() const;

    // the cache, the caller's side
    void resetCache(int bufferCondition);
    bool hasBuffers() const { return rawByteBuffer[0] && rawByteBuffer[1]; }
    bool writesBehind() const { return _useCache && writeThreadIsRunning && writeThread_.thread.isJoinable(); }
    bool hasReadThread() const { return readThreadIsRunning && readThread_.thread.isJoinable(); }
    OSStatus insertBytesIntoBuffer_length_offset(const Byte* bytes, UInt32* length, SInt64 offset);
    UInt32 insertPart(const Byte* bytes, UInt32 length, SInt64 offset);
    void startSpanAt(SInt64 offset);
    void endSpan();
    void handOverCurrentBuffer();
    void drainWrites();
    OSStatus consumeRawBytes_length_offset(Byte* bytes, UInt32* length, SInt64 offset);
    bool spanHolds(SInt64 offset) const;
    OSStatus turnToBufferWith(SInt64 offset);
    void requestFill(SInt64 offset);
    void finishFill();
    void emptySpan();
    struct CacheThread;
    void startCache();
    void startThread(CacheThread& cacheThread, std::atomic<bool>& isRunning, const char* name,
                     void (QMXAudioFileImpl::*body)());
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
    FSRef parentDirRef;
    FSRef audioFileRef;
    AudioFileID audioFileID_ = nullptr;
    SInt64 _fileOffset = 0;
    SInt64 _packetOffset = 0;
    SInt64 _fileLength = 0;
    AudioStreamBasicDescription _formatFields;
    bool fileIsOpen = false;
    bool fileIsOpenForReading = false;
    bool fileIsOpenForWriting = false;
    bool _useCache = false;
    bool _useInternalCache = false;
    bool _isFlushing = false;
    bool fileSizeIsDirty = true;
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

    // filled buffers in the order in which they are saved; the caller adds, the write thread saves
    std::array<Span, 2> handOvers_;
    std::atomic<UInt64> handOversMade_{0};
    UInt64 handOversSaved_ = 0;
    // what the read thread fills, or has filled, ahead of the caller
    Span readAhead_;
    bool fillRequested_ = false;
    std::atomic<OSStatus> cacheFailure_{noErr}; // for the next call
    std::atomic<OSStatus> lossOfBytes_{noErr};  // cached ones; until the file is opened again
    bool formatWasRead_ = false;                // from a file, not set by the caller
    qmx::LastFailure failure_;
    struct CacheThread {
        qmx::ConditionLock& runLock; // 0: there is work
        std::optional<qmx::Worker> worker{};
        qmx::Thread thread{};
    };
    CacheThread readThread_{readThreadRunLock};
    CacheThread writeThread_{writeThreadRunLock};
};
