// SPDX-License-Identifier: MIT
// Life, paths, opening, format, lengths, and the byte and packet operations. The cache is in QMXAudioFileCache.cpp.
#include "FileRelated/QMXAudioFile.h"

#include "Formats/ByteUtility.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXFileUtils.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Log.h"

#include <new>
#include <utility>

namespace
{

constexpr UInt32 cacheBufferSize = 786432; // 768 KiB
constexpr OSType libraryCreatorCode = qmx::fourCharCode("KaRt");

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

} // namespace

QMXAudioFile::QMXAudioFile(QMXAudioFileAccessMode mode)
    : fileAccessMode(mode), rawByteBufferSizeInBytes(cacheBufferSize)
{
    for (auto& buffer : rawByteBuffer)
        buffer.reset(new (std::nothrow) Byte[cacheBufferSize]);
}

std::shared_ptr<QMXAudioFile> QMXAudioFile::initWithPath_accessMode(const std::optional<std::string>& path,
                                                                    QMXAudioFileAccessMode mode)
{
    return qmx::withinMemory(std::shared_ptr<QMXAudioFile>(), [&] {
        std::shared_ptr<QMXAudioFile> file(new QMXAudioFile(mode));
        if (path)
            file->takePath(pathOf(path));
        return file;
    });
}

QMXAudioFile::~QMXAudioFile()
{
    close();
    closePlatformFile();
}

void QMXAudioFile::updatePath(const std::optional<std::string>& path)
{
    if (!qmx::withinMemory([&] { takePath(pathOf(path)); }))
        qmx::Log("QMXAudioFile: not enough memory for a path");
}

QMXAudioFile::Path QMXAudioFile::pathOf(const std::optional<std::string>& path)
{
    if (!path)
        return {};
    return {path, pathLessLastComponent(*path), lastPathComponent(*path)};
}

void QMXAudioFile::takePath(Path path) noexcept
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
    copyFormatFields({});
}

// What does not exist leaves an empty reference; each open and create looks again.
void QMXAudioFile::resolveReferences()
{
    parentDirSpec = audioFileSpec = {};
    parentDirRef = audioFileRef = {};
    if (!originalFilePath)
        return;
    const std::string here = ".";
    const std::string& parent = parentDirPath->empty() ? here : *parentDirPath;
    QMXFileUtils::makeFSRef_fromPath(&parentDirRef, parent);
    QMXFileUtils::makeFSSpec_fromPath(&parentDirSpec, parent);
    QMXFileUtils::makeFSRef_fromPath(&audioFileRef, *originalFilePath);
    QMXFileUtils::makeFSSpec_fromPath(&audioFileSpec, *originalFilePath);
}

bool QMXAudioFile::moveToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler)
{
    std::optional<Path> path; // before the file is moved: after it nothing may fail
    if (!originalFilePath || !qmx::withinMemory([&] { path = pathOf(newPath); }) ||
        !qmx::FileManager::defaultManager().movePath_toPath_handler(*originalFilePath, newPath, handler))
        return false;
    takePath(std::move(*path));
    return true;
}

bool QMXAudioFile::copyToPath_handler(const std::string& newPath, qmx::FileManagerHandler* handler)
{
    return originalFilePath &&
           qmx::FileManager::defaultManager().copyPath_toPath_handler(*originalFilePath, newPath, handler);
}

bool QMXAudioFile::open()
{
    if (fileIsOpen)
        return true;
    if (fileAccessMode == QMXAudioFileAccessMode::write)
        return create();
    closePlatformFile();
    resolveReferences();
    const bool writes = fileAccessMode == QMXAudioFileAccessMode::readWrite;
    const bool isThere = originalFilePath && qmx::FileManager::defaultManager().fileExistsAtPath(*originalFilePath);
    if (writes && !isThere)
        return create();
    const OSStatus status = AudioFileOpen(&audioFileRef, writes ? fsRdWrPerm : fsRdPerm, 0, &audioFileID_);
    if (status == noErr)
        return didOpen();
    lastStatus_ = status;
    qmx::Log(writes ? "QMXAudioFile: Error opening audio file in read/write mode"
                    : "QMXAudioFile: Error opening audio file in read mode");
    printOSStatusCode(status);
    if (writes) {
        if (formatWasRead_) { // what a file told is no order to replace one that cannot be opened
            _fileStreamFormat.reset();
            copyFormatFields({});
        }
        return create();
    }
    qmx::Log("QMXAudioFile: Error opening audio file");
    printOSStatusCode(status);
    return false;
}

bool QMXAudioFile::didOpen()
{
    if (!qmx::withinMemory([this] { loadFormat(); })) {
        qmx::Log("QMXAudioFile: Error opening audio file");
        lastStatus_ = memFullErr;
        printOSStatusCode(memFullErr);
        closePlatformFile();
        return false;
    }
    lastStatus_ = noErr;
    fileIsOpen = fileIsOpenForReading = true;
    fileIsOpenForWriting = fileAccessMode == QMXAudioFileAccessMode::readWrite;
    _fileOffset = _fileLength = 0;
    fileSizeIsDirty = true;
    lengthInBytes();
    resetCache(0);
    startThread(readThread_, readThreadIsRunning, "QMX file read", &QMXAudioFile::fillBufferRunLoop);
    return true;
}

// The type that the file itself states outranks the one that follows from its format.
void QMXAudioFile::loadFormat()
{
    if (const auto record = anyProperty_propertyID(audioFileID_, kAudioFilePropertyDataFormat)) {
        _setFileStreamFormat(std::make_shared<QMXAudioStreamBasicDescription>(
            *static_cast<const AudioStreamBasicDescription*>(record.get())));
        formatWasRead_ = true;
    }
    if (const auto type = anyProperty_propertyID(audioFileID_, kAudioFilePropertyFileFormat))
        _fileType = *static_cast<const AudioFileTypeID*>(type.get());
}

bool QMXAudioFile::create()
{
    if (fileIsOpen)
        return false;
    if (originalFilePath && qmx::FileManager::defaultManager().fileExistsAtPath(*originalFilePath))
        return initializeFile();
    closePlatformFile();
    resolveReferences();
    const CFStringRef fileNameRef = CFStringCreate(fileName ? std::string_view(*fileName) : "");
    const OSStatus status =
        AudioFileCreate(&parentDirRef, fileNameRef, _fileType,
                        _fileStreamFormat ? _fileStreamFormat->audioStreamBasicDescription() : nullptr, 0,
                        &audioFileRef, &audioFileID_);
    CFRelease(fileNameRef);
    const bool isCreated = didCreate(status, "QMXAudioFile: Error creating audio file");
    if (parentDirRef.path.empty())
        lastStatus_ = dirNFErr; // the service only says that the argument is wrong
    return isCreated;
}

bool QMXAudioFile::initializeFile()
{
    if (fileIsOpen)
        return false;
    closePlatformFile();
    resolveReferences();
    const OSStatus status = AudioFileInitialize(
        &audioFileRef, _fileType, _fileStreamFormat ? _fileStreamFormat->audioStreamBasicDescription() : nullptr, 0,
        &audioFileID_);
    return didCreate(status, "QMXAudioFile: Error initializing audio file");
}

bool QMXAudioFile::didCreate(OSStatus status, const char* failure)
{
    lastStatus_ = status;
    if (status != noErr) {
        qmx::Log(failure);
        printOSStatusCode(status);
        return false;
    }
    fileIsOpen = fileIsOpenForWriting = true;
    fileIsOpenForReading = false;
    copyFormatFields(*_fileStreamFormat->audioStreamBasicDescription());
    _fileOffset = _fileLength = 0;
    resetCache(1);
    startThread(writeThread_, writeThreadIsRunning, "QMX file write", &QMXAudioFile::saveBufferRunLoop);
    return true;
}

bool QMXAudioFile::close()
{
    if (!fileIsOpen)
        return true;
    flush();
    drainWrites();
    const bool closed = closePlatformFile();
    fileIsOpen = fileIsOpenForReading = fileIsOpenForWriting = false;
    stampFile();
    _fileOffset = 0;
    return closed && !cachedBytesAreLost_;
}

// Ends the cache threads and releases the platform's file, also one that updatePath() dropped.
bool QMXAudioFile::closePlatformFile()
{
    endThreads();
    if (!audioFileID_)
        return true;
    const OSStatus status = AudioFileClose(audioFileID_);
    audioFileID_ = nullptr;
    return succeeded(status);
}

// The type code is stored byte-reversed, as it always was on little-endian hosts; other types are stamped as AIFF-C.
// Both are intended.
void QMXAudioFile::stampFile() const
{
    UInt32 type = kAudioFileAIFCType;
    if (_fileType == kAudioFileAIFFType || _fileType == kAudioFileSoundDesigner2Type || _fileType == kAudioFileWAVEType)
        type = _fileType;
    ByteUtility::toNetworkByteOrder32bit(reinterpret_cast<Byte*>(&type));
    QMXFileUtils::changeCreatorAndType_creator_fileType(*originalFilePath, libraryCreatorCode, type);
}

void QMXAudioFile::changeAccessMode(QMXAudioFileAccessMode mode)
{
    if (mode == fileAccessMode || !fileIsOpen)
        return;
    close();
    fileAccessMode = mode;
    if (mode == QMXAudioFileAccessMode::readWrite) {
        setUseCache(false);
        return;
    }
    for (auto& lock : rawByteBufferLock)
        lock.unlockWithCondition(mode == QMXAudioFileAccessMode::read ? 0 : 1);
}

bool QMXAudioFile::setFileStreamFormat(const QMXAudioStreamBasicDescription& format)
{
    if (fileAccessMode == QMXAudioFileAccessMode::read)
        return false;
    return qmx::withinMemory(false, [&] {
        auto copy = std::make_shared<QMXAudioStreamBasicDescription>(*format.audioStreamBasicDescription());
        const bool wasOpen = fileIsOpen;
        close();
        _setFileStreamFormat(std::move(copy));
        formatWasRead_ = false;
        if (wasOpen)
            open();
        return true;
    });
}

void QMXAudioFile::_setFileStreamFormat(std::shared_ptr<QMXAudioStreamBasicDescription> format)
{
    _fileType = determineFileType(*format);
    copyFormatFields(*format->audioStreamBasicDescription());
    _fileStreamFormat = std::move(format);
}

void QMXAudioFile::copyFormatFields(const AudioStreamBasicDescription& record)
{
    _sampleRate = record.mSampleRate;
    _formatID = record.mFormatID;
    _formatFlags = record.mFormatFlags;
    _bytesPerPacket = record.mBytesPerPacket;
    _framesPerPacket = record.mFramesPerPacket;
    _bytesPerFrame = record.mBytesPerFrame;
    _channelsPerFrame = record.mChannelsPerFrame;
    _bitsPerChannel = record.mBitsPerChannel;
}

AudioFileTypeID QMXAudioFile::determineFileType(const QMXAudioStreamBasicDescription& format) const
{
    return format.isFloat() ? kAudioFileAIFCType : kAudioFileAIFFType;
}

std::optional<std::string> QMXAudioFile::formatIDName() const
{
    return _fileStreamFormat ? std::optional(_fileStreamFormat->formatIDName()) : std::nullopt;
}

qmx::HeapBlock QMXAudioFile::magicCookie(UInt32* size)
{
    *size = 0;
    UInt32 bytes = 0;
    if (AudioFileGetPropertyInfo(audioFileID_, kAudioFilePropertyMagicCookieData, &bytes, nullptr) != noErr)
        return nullptr;
    auto cookie = qmx::zeroedHeapBlock(bytes);
    if (!cookie || AudioFileGetProperty(audioFileID_, kAudioFilePropertyMagicCookieData, &bytes, cookie.get()) != noErr)
        return nullptr;
    *size = bytes;
    return cookie;
}

OSStatus QMXAudioFile::setMagicCookie_size(const void* data, UInt32 size)
{
    return AudioFileSetProperty(audioFileID_, kAudioFilePropertyMagicCookieData, size, data);
}

bool QMXAudioFile::read_length(void* buffer, UInt32* length)
{
    if (!fileIsOpen)
        return true;
    if (!read_length_fromOffset(buffer, length, _fileOffset))
        return false;
    _fileOffset += *length;
    return true;
}

bool QMXAudioFile::read_length_fromOffset(void* buffer, UInt32* length, SInt64 offset)
{
    if (!fileIsOpen)
        return true;
    if (_useCache && hasReadThread())
        return consumeRawBytes_length_offset(static_cast<Byte*>(buffer), length, offset);
    const OSStatus status = AudioFileReadBytes(audioFileID_, _useInternalCache, offset, length, buffer);
    if (status != noErr)
        printOSStatusCode(status);
    return status == noErr;
}

bool QMXAudioFile::write_length(const void* buffer, UInt32* length)
{
    if (!fileIsOpen || !write_length_atOffset(buffer, length, _fileOffset))
        return false;
    _fileOffset += *length;
    _fileLength += *length;
    return true;
}

bool QMXAudioFile::write_length_atOffset(const void* buffer, UInt32* length, SInt64 offset)
{
    if (!fileIsOpen)
        return true;
    fileSizeIsDirty = true;
    if (writesBehind())
        return insertBytesIntoBuffer_length_offset(static_cast<const Byte*>(buffer), length, offset);
    if (hasReadThread())
        emptySpan();
    return succeeded(AudioFileWriteBytes(audioFileID_, _useInternalCache, offset, length, buffer));
}

bool QMXAudioFile::succeeded(OSStatus status)
{
    if (status == noErr)
        return true;
    lastStatus_ = status;
    printOSStatusCode(status);
    return false;
}

void QMXAudioFile::setOffset(SInt64 offset)
{
    if (fileAccessMode == QMXAudioFileAccessMode::write || offset == _fileOffset)
        return;
    _fileOffset = offset;
    rawByteBufferEndingOffset = offset;
}

bool QMXAudioFile::readPackets_numBytes_outPacketDescriptions_numPackets(void* buffer, UInt32* numBytes,
                                                                         AudioStreamPacketDescription* descriptions,
                                                                         UInt32* numPackets)
{
    if (!readPackets_numBytes_outPacketDescriptions_startingPacket_numPackets(buffer, numBytes, descriptions,
                                                                              _packetOffset, numPackets))
        return false;
    _packetOffset += *numPackets;
    return true;
}

bool QMXAudioFile::readPackets_numBytes_outPacketDescriptions_startingPacket_numPackets(
    void* buffer, UInt32* numBytes, AudioStreamPacketDescription* descriptions, SInt64 startingPacket,
    UInt32* numPackets)
{
    if (!fileIsOpen)
        return false;
    const OSStatus status = AudioFileReadPackets(audioFileID_, _useInternalCache, numBytes, descriptions,
                                                 startingPacket, numPackets, buffer);
    if (status != noErr)
        printOSStatusCode(status);
    return status == noErr;
}

bool QMXAudioFile::writePackets_numBytes_inPacketDescriptions_numPackets(
    const void* buffer, UInt32 numBytes, const AudioStreamPacketDescription* descriptions, UInt32* numPackets)
{
    if (!writePackets_numBytes_inPacketDescriptions_startingPacket_numPackets(buffer, numBytes, descriptions,
                                                                              _packetOffset, numPackets))
        return false;
    _packetOffset += *numPackets;
    return true;
}

bool QMXAudioFile::writePackets_numBytes_inPacketDescriptions_startingPacket_numPackets(
    const void* buffer, UInt32 numBytes, const AudioStreamPacketDescription* descriptions, SInt64 startingPacket,
    UInt32* numPackets)
{
    if (!fileIsOpen || _useCache)
        return false;
    if (hasReadThread())
        emptySpan();
    fileSizeIsDirty = true;
    const OSStatus status = AudioFileWritePackets(audioFileID_, _useInternalCache, numBytes, descriptions,
                                                  startingPacket, numPackets, buffer);
    if (status != noErr)
        printOSStatusCode(status);
    return status == noErr;
}

UInt64 QMXAudioFile::lengthInBytes()
{
    // the platform cannot know yet what the cache holds
    if (fileAccessMode == QMXAudioFileAccessMode::write && _useCache && fileIsOpen)
        return static_cast<UInt64>(_fileOffset);
    if (fileIsOpen && (fileSizeIsDirty || _fileLength == 0)) {
        const auto bytes = anyProperty_propertyID(audioFileID_, kAudioFilePropertyAudioDataByteCount);
        _fileLength = bytes ? *static_cast<const SInt64*>(bytes.get()) : 0;
        fileSizeIsDirty = false;
    }
    return static_cast<UInt64>(_fileLength);
}

UInt32 QMXAudioFile::lengthInFrames()
{
    if (!_fileStreamFormat || _bytesPerFrame == 0)
        return 0;
    return static_cast<UInt32>(lengthInBytes() / _bytesPerFrame);
}

UInt64 QMXAudioFile::lengthInMilliSeconds()
{
    if (!_fileStreamFormat || _bytesPerFrame == 0 || !(_sampleRate > 0))
        return 0;
    const UInt64 frames = lengthInBytes() / _bytesPerFrame;
    return static_cast<UInt64>(static_cast<Float64>(frames) / _sampleRate * 1000);
}

std::string QMXAudioFile::dumpDebugInfo()
{
    std::string text = qmx::format("\nDebug information <QMXAudioFile: 0x%X>:\n", static_cast<const void*>(this));
    text += qmx::format("\nPath: %@", originalFilePath);
    text += qmx::format("\nName: %@\n", fileName);
    text += qmx::format("\n            fileOffset: %qi", _fileOffset);
    text += qmx::format("\n         lengthInBytes: %qu", lengthInBytes());
    text += qmx::format("\n        lengthInFrames: %u\n\n", lengthInFrames());
    text += qmx::format("\n  lengthInMilliSeconds: %qu", lengthInMilliSeconds());
    if (_fileStreamFormat)
        text += qmx::format("File stream format:\n%@\n", _fileStreamFormat->debugDescription());
    return text;
}
