// SPDX-License-Identifier: MIT
// Life, paths, opening, format, lengths, and the byte and packet operations. The cache is in QMXAudioFileCache.cpp.
#include "FileRelated/QMXAudioFileImpl.h"

#include "Formats/ByteUtility.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXFileUtils.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Log.h"

#include <utility>

namespace
{

constexpr UInt32 cacheBufferSize = 786432; // 768 KiB

std::string lastPathComponent(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

std::string pathLessLastComponent(const std::string& path)
{
    const auto slash = path.rfind('/');
    if (slash == std::string::npos)
        return "";
    return slash == 0 ? "/" : path.substr(0, slash);
}

/// Keeps the text of an error that the file manager reports, and forwards everything.
class ErrorKeeper : public qmx::FileManagerHandler
{
public:
    explicit ErrorKeeper(qmx::FileManagerHandler* next) : next_(next) {}

    bool fileManager_shouldProceedAfterError(const std::string& path, const std::string& error) override
    {
        error_ = error;
        return next_ && next_->fileManager_shouldProceedAfterError(path, error);
    }
    void fileManager_willProcessPath(const std::string& path) override
    {
        if (next_)
            next_->fileManager_willProcessPath(path);
    }
    const std::string& error() const { return error_; }

private:
    qmx::FileManagerHandler* next_;
    std::string error_;
};

constexpr auto cannotBeOpened = "could not be opened", cannotBeMade = "could not be made",
               cannotBeRead = "could not be read", cannotBeWritten = "could not be written";

} // namespace

std::shared_ptr<QMXAudioFile> QMXAudioFile::initWithPath_accessMode(const std::optional<std::string>& path,
                                                                    QMXAudioFileAccessMode mode)
{
    return qmx::withinMemory(std::shared_ptr<QMXAudioFile>(),
                             [&] { return std::make_shared<QMXAudioFileImpl>(path, mode); });
}

QMXAudioFileImpl::QMXAudioFileImpl(const std::optional<std::string>& path, QMXAudioFileAccessMode mode)
    : fileAccessMode(mode), rawByteBufferSizeInBytes(cacheBufferSize)
{
    if (path)
        takePath(pathOf(path));
}

QMXAudioFileImpl::~QMXAudioFileImpl()
{
    (void)close(); // nobody is left to be told
    closePlatformFile();
}

void QMXAudioFileImpl::updatePath(const std::optional<std::string>& path)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (qmx::withinMemory([&] { takePath(pathOf(path)); }))
        return;
    qmx::Log("QMXAudioFile: not enough memory for a path");
    succeeded(memFullErr, "could not be left for another path");
}

QMXAudioFileImpl::Path QMXAudioFileImpl::pathOf(const std::optional<std::string>& path)
{
    if (!path)
        return {};
    return {path, pathLessLastComponent(*path), lastPathComponent(*path)};
}

void QMXAudioFileImpl::takePath(Path path) noexcept
{
    drainWrites(); // before the span is cleared
    originalFilePath = std::move(path.whole);
    parentDirPath = std::move(path.parent);
    fileName = std::move(path.name);
    resolveReferences();
    _fileOffset = _packetOffset = _fileLength = 0;
    rawByteBufferStartingOffset = rawByteBufferEndingOffset = 0;
    fileIsOpen = fileIsOpenForReading = fileIsOpenForWriting = false;
    fileSizeIsDirty = true;
    _formatFields = {};
}

// What does not exist leaves an empty reference; each open and create looks again.
void QMXAudioFileImpl::resolveReferences()
{
    parentDirRef = audioFileRef = {};
    if (!originalFilePath)
        return;
    const std::string here = ".";
    QMXFileUtils::makeFSRef_fromPath(&parentDirRef, parentDirPath->empty() ? here : *parentDirPath);
    QMXFileUtils::makeFSRef_fromPath(&audioFileRef, *originalFilePath);
}

bool QMXAudioFileImpl::moveToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler)
{
    const qmx::LastFailure::Operation operation(failure_);
    constexpr auto whatFailed = "could not be moved";
    std::optional<Path> path; // before the file is moved: after it nothing may fail
    if (!qmx::withinMemory([&] { path = pathOf(newPath); }))
        return succeeded(memFullErr, whatFailed);
    if (!manages(&qmx::FileManager::movePath_toPath_handler, newPath, handler, whatFailed))
        return false;
    takePath(std::move(*path));
    return true;
}

bool QMXAudioFileImpl::copyToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler)
{
    const qmx::LastFailure::Operation operation(failure_);
    return manages(&qmx::FileManager::copyPath_toPath_handler, newPath, handler, "could not be copied");
}

bool QMXAudioFileImpl::manages(ManagerOperation transfer, const std::string& newPath, qmx::FileManagerHandler* handler,
                               const char* whatFailed)
{
    if (!originalFilePath)
        return succeeded(paramErr, whatFailed);
    ErrorKeeper keeper(handler);
    if (qmx::withinMemory(
            false, [&] { return (qmx::FileManager::defaultManager().*transfer)(*originalFilePath, newPath, &keeper); }))
        return true;
    failure_.keepFirst(kAudioFileUnspecifiedError, *originalFilePath, whatFailed, keeper.error());
    return false;
}

bool QMXAudioFileImpl::open()
{
    const qmx::LastFailure::Operation operation(failure_);
    if (fileIsOpen)
        return true;
    if (fileAccessMode == QMXAudioFileAccessMode::write)
        return create();
    closePlatformFile();
    resolveReferences();
    const bool writes = fileAccessMode == QMXAudioFileAccessMode::readWrite;
    if (writes && !isThere())
        return succeeded(makeFile(), cannotBeMade);
    const OSStatus status = AudioFileOpen(&audioFileRef, writes ? fsRdWrPerm : fsRdPerm, 0, &audioFileID_);
    if (status == noErr)
        return didOpen();
    qmx::Log(writes ? "QMXAudioFile: Error opening audio file in read/write mode"
                    : "QMXAudioFile: Error opening audio file in read mode");
    printOSStatusCode(status);
    if (writes) {
        if (formatWasRead_) { // a format read from a file does not permit replacing one that cannot be opened
            _fileStreamFormat.reset();
            _formatFields = {};
        }
        return emptyFile() == noErr || succeeded(status, cannotBeOpened);
    }
    qmx::Log("QMXAudioFile: Error opening audio file");
    printOSStatusCode(status);
    return succeeded(status, cannotBeOpened);
}

bool QMXAudioFileImpl::didOpen()
{
    if (!qmx::withinMemory([this] { loadFormat(); })) {
        qmx::Log("QMXAudioFile: Error opening audio file");
        succeededOrLogs(memFullErr, cannotBeOpened);
        closePlatformFile();
        return false;
    }
    fileIsOpen = fileIsOpenForReading = true;
    fileIsOpenForWriting = fileAccessMode == QMXAudioFileAccessMode::readWrite;
    _fileOffset = _fileLength = 0;
    fileSizeIsDirty = true;
    lengthInBytes();
    resetCache(0);
    startCache();
    return true;
}

// The type that the file itself states outranks the one that follows from its format.
void QMXAudioFileImpl::loadFormat()
{
    if (const auto record = anyProperty_propertyID(audioFileID_, kAudioFilePropertyDataFormat)) {
        _setFileStreamFormat(std::make_shared<QMXAudioStreamBasicDescription>(
            *static_cast<const AudioStreamBasicDescription*>(record.get())));
        formatWasRead_ = true;
    }
    if (const auto type = anyProperty_propertyID(audioFileID_, kAudioFilePropertyFileFormat))
        _fileType = *static_cast<const AudioFileTypeID*>(type.get());
}

bool QMXAudioFileImpl::create()
{
    const qmx::LastFailure::Operation operation(failure_);
    if (fileIsOpen)
        return succeeded(opWrErr, cannotBeMade);
    closePlatformFile();
    resolveReferences();
    return succeeded(isThere() ? emptyFile() : makeFile(), cannotBeMade);
}

bool QMXAudioFileImpl::initializeFile()
{
    const qmx::LastFailure::Operation operation(failure_);
    if (fileIsOpen)
        return succeeded(opWrErr, cannotBeMade);
    closePlatformFile();
    resolveReferences();
    return succeeded(emptyFile(), cannotBeMade);
}

const AudioStreamBasicDescription* QMXAudioFileImpl::formatRecord() const
{
    return _fileStreamFormat ? _fileStreamFormat->audioStreamBasicDescription() : nullptr;
}

OSStatus QMXAudioFileImpl::makeFile()
{
    const CFStringRef fileNameRef = CFStringCreate(fileName ? std::string_view(*fileName) : "");
    const OSStatus status =
        AudioFileCreate(&parentDirRef, fileNameRef, _fileType, formatRecord(), 0, &audioFileRef, &audioFileID_);
    CFRelease(fileNameRef);
    didCreate(status, "QMXAudioFile: Error creating audio file");
    return parentDirRef.path.empty() ? dirNFErr : status; // the service only says that the argument is wrong
}

OSStatus QMXAudioFileImpl::emptyFile()
{
    const OSStatus status = AudioFileInitialize(&audioFileRef, _fileType, formatRecord(), 0, &audioFileID_);
    didCreate(status, "QMXAudioFile: Error initializing audio file");
    return status;
}

void QMXAudioFileImpl::didCreate(OSStatus status, const char* failure)
{
    if (status != noErr) {
        qmx::Log(failure);
        return printOSStatusCode(status);
    }
    fileIsOpen = fileIsOpenForWriting = true;
    fileIsOpenForReading = false;
    _formatFields = *formatRecord();
    _fileOffset = _fileLength = 0;
    resetCache(1);
    startCache();
}

bool QMXAudioFileImpl::close()
{
    const qmx::LastFailure::Operation operation(failure_);
    if (!fileIsOpen)
        return true;
    flush();
    drainWrites();
    const bool isWhole = succeeded(lossOfBytes_, cannotBeWritten);
    const bool closed = closePlatformFile();
    fileIsOpen = fileIsOpenForReading = fileIsOpenForWriting = false;
    stampFile();
    _fileOffset = 0;
    return closed && isWhole;
}

// Ends the cache threads and releases the platform's file, also one that updatePath() dropped.
bool QMXAudioFileImpl::closePlatformFile()
{
    endThreads();
    if (!audioFileID_)
        return true;
    const OSStatus status = AudioFileClose(audioFileID_);
    audioFileID_ = nullptr;
    return succeededOrLogs(status, "could not be closed");
}

// The type code is stored byte-reversed, as it always was on little-endian hosts; other types are stamped as AIFF-C.
// Both are intended.
void QMXAudioFileImpl::stampFile() const
{
    UInt32 type = kAudioFileAIFCType;
    if (_fileType == kAudioFileAIFFType || _fileType == kAudioFileSoundDesigner2Type || _fileType == kAudioFileWAVEType)
        type = _fileType;
    ByteUtility::toNetworkByteOrder32bit(reinterpret_cast<Byte*>(&type));
    QMXFileUtils::changeCreatorAndType_creator_fileType(*originalFilePath, qmx::libraryCreatorCode, type);
}

void QMXAudioFileImpl::changeAccessMode(QMXAudioFileAccessMode mode)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (mode == fileAccessMode || !fileIsOpen)
        return;
    (void)close(); // lastStatus() reports a failure
    fileAccessMode = mode;
    if (mode == QMXAudioFileAccessMode::readWrite) {
        setUseCache(false);
        return;
    }
    for (auto& lock : rawByteBufferLock)
        lock.unlockWithCondition(mode == QMXAudioFileAccessMode::read ? 0 : 1);
}

bool QMXAudioFileImpl::setFileStreamFormat(const QMXAudioStreamBasicDescription& format)
{
    constexpr auto whatFailed = "could not be given a format";
    const qmx::LastFailure::Operation operation(failure_);
    if (fileAccessMode == QMXAudioFileAccessMode::read)
        return succeeded(wrPermErr, whatFailed);
    const auto change = [&] {
        auto copy = std::make_shared<QMXAudioStreamBasicDescription>(*format.audioStreamBasicDescription());
        const bool wasOpen = fileIsOpen;
        (void)close(); // lastStatus() reports a failure
        _setFileStreamFormat(std::move(copy));
        formatWasRead_ = false;
        if (wasOpen)
            (void)open(); // likewise
    };
    return qmx::withinMemory(change) || succeeded(memFullErr, whatFailed);
}

void QMXAudioFileImpl::_setFileStreamFormat(std::shared_ptr<QMXAudioStreamBasicDescription> format)
{
    _fileType = determineFileType(*format);
    _formatFields = *format->audioStreamBasicDescription();
    _fileStreamFormat = std::move(format);
}

AudioFileTypeID QMXAudioFile::determineFileType(const QMXAudioStreamBasicDescription& format) const
{
    return format.isFloat() ? kAudioFileAIFCType : kAudioFileAIFFType;
}

std::optional<std::string> QMXAudioFile::formatIDName() const
{
    return fileStreamFormat() ? std::optional(fileStreamFormat()->formatIDName()) : std::nullopt;
}

qmx::HeapBlock QMXAudioFileImpl::magicCookie(UInt32* size)
{
    const qmx::LastFailure::Operation operation(failure_);
    *size = 0;
    UInt32 bytes = 0;
    if (AudioFileGetPropertyInfo(audioFileID_, kAudioFilePropertyMagicCookieData, &bytes, nullptr) != noErr)
        return nullptr;
    auto cookie = qmx::zeroedHeapBlock(bytes);
    const OSStatus status =
        cookie ? AudioFileGetProperty(audioFileID_, kAudioFilePropertyMagicCookieData, &bytes, cookie.get())
               : memFullErr;
    if (!succeeded(status, "could not give its cookie"))
        return nullptr;
    *size = bytes;
    return cookie;
}

OSStatus QMXAudioFileImpl::setMagicCookie_size(const void* data, UInt32 size)
{
    const qmx::LastFailure::Operation operation(failure_);
    const OSStatus status = AudioFileSetProperty(audioFileID_, kAudioFilePropertyMagicCookieData, size, data);
    succeeded(status, "could not be given a cookie");
    return status;
}

bool QMXAudioFileImpl::read_length(void* buffer, UInt32* length)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (!read_length_fromOffset(buffer, length, _fileOffset))
        return false;
    _fileOffset += fileIsOpen ? *length : 0;
    return true;
}

bool QMXAudioFileImpl::read_length_fromOffset(void* buffer, UInt32* length, SInt64 offset)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (!fileIsOpen)
        return !succeeded(fnOpnErr, cannotBeRead); // true, as intended
    if (_useCache && hasReadThread())
        return succeeded(consumeRawBytes_length_offset(static_cast<Byte*>(buffer), length, offset), cannotBeRead);
    return succeededOrLogs(AudioFileReadBytes(audioFileID_, _useInternalCache, offset, length, buffer), cannotBeRead);
}

bool QMXAudioFileImpl::write_length(const void* buffer, UInt32* length)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (!write_length_atOffset(buffer, length, _fileOffset) || !fileIsOpen)
        return false;
    _fileOffset += *length;
    _fileLength += *length;
    return true;
}

bool QMXAudioFileImpl::write_length_atOffset(const void* buffer, UInt32* length, SInt64 offset)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (!fileIsOpen)
        return !succeeded(fnOpnErr, cannotBeWritten); // true, as intended
    fileSizeIsDirty = true;
    if (writesBehind())
        return succeeded(insertBytesIntoBuffer_length_offset(static_cast<const Byte*>(buffer), length, offset),
                         cannotBeWritten);
    if (hasReadThread())
        emptySpan();
    return succeededOrLogs(AudioFileWriteBytes(audioFileID_, _useInternalCache, offset, length, buffer),
                           cannotBeWritten);
}

bool QMXAudioFileImpl::succeeded(OSStatus status, const char* whatFailed)
{
    const std::string_view subject = originalFilePath ? std::string_view(*originalFilePath) : "A file without a path";
    return failure_.keepFirst(status, subject, whatFailed) == noErr;
}

bool QMXAudioFileImpl::succeededOrLogs(OSStatus status, const char* whatFailed)
{
    if (status != noErr)
        printOSStatusCode(status);
    return succeeded(status, whatFailed);
}

void QMXAudioFileImpl::setOffset(SInt64 offset)
{
    if (fileAccessMode == QMXAudioFileAccessMode::write || offset == _fileOffset)
        return;
    _fileOffset = offset;
    rawByteBufferEndingOffset = offset;
}

bool QMXAudioFileImpl::readPackets_numBytes_outPacketDescriptions_numPackets(void* buffer, UInt32* numBytes,
                                                                             AudioStreamPacketDescription* descriptions,
                                                                             UInt32* numPackets)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (!readPackets_numBytes_outPacketDescriptions_startingPacket_numPackets(buffer, numBytes, descriptions,
                                                                              _packetOffset, numPackets))
        return false;
    _packetOffset += *numPackets;
    return true;
}

bool QMXAudioFileImpl::readPackets_numBytes_outPacketDescriptions_startingPacket_numPackets(
    void* buffer, UInt32* numBytes, AudioStreamPacketDescription* descriptions, SInt64 startingPacket,
    UInt32* numPackets)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (!fileIsOpen)
        return succeeded(fnOpnErr, cannotBeRead);
    return succeededOrLogs(AudioFileReadPackets(audioFileID_, _useInternalCache, numBytes, descriptions, startingPacket,
                                                numPackets, buffer),
                           cannotBeRead);
}

bool QMXAudioFileImpl::writePackets_numBytes_inPacketDescriptions_numPackets(
    const void* buffer, UInt32 numBytes, const AudioStreamPacketDescription* descriptions, UInt32* numPackets)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (!writePackets_numBytes_inPacketDescriptions_startingPacket_numPackets(buffer, numBytes, descriptions,
                                                                              _packetOffset, numPackets))
        return false;
    _packetOffset += *numPackets;
    return true;
}

bool QMXAudioFileImpl::writePackets_numBytes_inPacketDescriptions_startingPacket_numPackets(
    const void* buffer, UInt32 numBytes, const AudioStreamPacketDescription* descriptions, SInt64 startingPacket,
    UInt32* numPackets)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (!fileIsOpen || _useCache)
        return succeeded(fileIsOpen ? kAudioFileOperationNotSupportedError : fnOpnErr, cannotBeWritten);
    if (hasReadThread())
        emptySpan();
    fileSizeIsDirty = true;
    return succeededOrLogs(AudioFileWritePackets(audioFileID_, _useInternalCache, numBytes, descriptions,
                                                 startingPacket, numPackets, buffer),
                           cannotBeWritten);
}

UInt64 QMXAudioFileImpl::lengthInBytes()
{
    const qmx::LastFailure::Operation operation(failure_);
    // the platform cannot know yet what the cache holds
    if (fileAccessMode == QMXAudioFileAccessMode::write && _useCache && fileIsOpen)
        return static_cast<UInt64>(_fileOffset);
    if (fileIsOpen && (fileSizeIsDirty || _fileLength == 0)) {
        const auto bytes = anyProperty_propertyID(audioFileID_, kAudioFilePropertyAudioDataByteCount);
        succeeded(bytes ? noErr : kAudioFileUnspecifiedError, "could not tell its length");
        _fileLength = bytes ? *static_cast<const SInt64*>(bytes.get()) : 0;
        fileSizeIsDirty = false;
    }
    return static_cast<UInt64>(_fileLength);
}

UInt32 QMXAudioFile::lengthInFrames()
{
    if (!fileStreamFormat() || bytesPerFrame() == 0)
        return 0;
    return static_cast<UInt32>(lengthInBytes() / bytesPerFrame());
}

UInt64 QMXAudioFile::lengthInMilliSeconds()
{
    if (!fileStreamFormat() || bytesPerFrame() == 0 || !(sampleRate() > 0))
        return 0;
    const UInt64 frames = lengthInBytes() / bytesPerFrame();
    return static_cast<UInt64>(static_cast<Float64>(frames) / sampleRate() * 1000);
}

std::string QMXAudioFile::dumpDebugInfo()
{
    std::string text = qmx::format("\nDebug information <QMXAudioFile: 0x%X>:\n", static_cast<const void*>(this));
    text += qmx::format("\nPath: %@", path());
    text += qmx::format("\nName: %@\n", name());
    text += qmx::format("\n            fileOffset: %qi", offset());
    text += qmx::format("\n         lengthInBytes: %qu", lengthInBytes());
    text += qmx::format("\n        lengthInFrames: %u\n\n", lengthInFrames());
    text += qmx::format("\n  lengthInMilliSeconds: %qu", lengthInMilliSeconds());
    if (fileStreamFormat())
        text += qmx::format("File stream format:\n%@\n", fileStreamFormat()->debugDescription());
    return text;
}
