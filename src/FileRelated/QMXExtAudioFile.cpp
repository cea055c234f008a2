// SPDX-License-Identifier: MIT
#include "FileRelated/QMXExtAudioFile.h"

#include "Formats/ByteUtility.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXFileUtils.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/CFString.h"
#include "Foundation/Text/FailureLine.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace
{

constexpr qmx::FailureLine checked("QMXExtAudioFile", "coreaudio_aac/src/FileRelated/QMXExtAudioFile");

constexpr OSType libraryCreatorCode = qmx::fourCharCode("KaRt");

AudioStreamBasicDescription recordOrZero(const AudioStreamBasicDescription* record)
{
    return record ? *record : AudioStreamBasicDescription{};
}

SInt64 saturated(Float64 frames)
{
    constexpr Float64 limit = 9.2e18;
    return std::isnan(frames) ? 0 : static_cast<SInt64>(std::clamp(frames, -limit, limit));
}

} // namespace

std::shared_ptr<QMXExtAudioFile> QMXExtAudioFile::init(const std::string& path)
{
    return qmx::withinMemory(std::shared_ptr<QMXExtAudioFile>(),
                             [&] { return std::shared_ptr<QMXExtAudioFile>(new QMXExtAudioFile(path)); });
}

std::shared_ptr<QMXExtAudioFile>
QMXExtAudioFile::initForWriting_fileType_clientFormat_fileFormat(const std::string& path, AudioFileTypeID fileType,
                                                                 const AudioStreamBasicDescription* clientFormat,
                                                                 const AudioStreamBasicDescription* fileFormat)
{
    auto file = init(path);
    if (!file)
        return nullptr;
    file->mFileAccessMode = QMXAudioFileAccessMode::write;
    file->mAudioFileType = fileType;
    file->mClientFormat = recordOrZero(clientFormat);
    file->mFileFormat = recordOrZero(fileFormat);
    return file;
}

std::shared_ptr<QMXExtAudioFile>
QMXExtAudioFile::initForWriting_fileType_fileFormat(const std::string& path, AudioFileTypeID fileType,
                                                    const AudioStreamBasicDescription* fileFormat)
{
    return initForWriting_fileType_clientFormat_fileFormat(path, fileType, nullptr, fileFormat);
}

std::shared_ptr<QMXExtAudioFile>
QMXExtAudioFile::initForReading_clientFormat(const std::string& path, const AudioStreamBasicDescription* clientFormat)
{
    auto file = init(path);
    if (!file)
        return nullptr;
    file->mClientFormat = recordOrZero(clientFormat);
    file->mLengthInFrames = -1;
    return file;
}

std::shared_ptr<QMXExtAudioFile> QMXExtAudioFile::initForReading(const std::string& path)
{
    // what a default output unit takes before it is started
    return qmx::withinMemory(std::shared_ptr<QMXExtAudioFile>(), [&] {
        const auto format = QMXAudioStreamBasicDescription::standardFormat(1);
        return initForReading_clientFormat(path, format->audioStreamBasicDescription());
    });
}

QMXExtAudioFile::QMXExtAudioFile(const std::string& path) : mOriginalFilePath(path)
{
    const std::size_t slash = path.rfind('/');
    mFileName = slash == std::string::npos ? path : path.substr(slash + 1);
    mParentDirPath = slash == std::string::npos ? "" : path.substr(0, slash);
    resolveReferences();
}

/// A reference is of something that is there: what is made later is looked for again.
void QMXExtAudioFile::resolveReferences()
{
    const std::string root = "/", here = ".";
    const bool isInRoot = mParentDirPath.empty() && mOriginalFilePath.starts_with('/');
    const std::string& parent = isInRoot ? root : mParentDirPath.empty() ? here : mParentDirPath;
    QMXFileUtils::makeFSRef_fromPath(&mAudioFileRef, mOriginalFilePath);
    QMXFileUtils::makeFSRef_fromPath(&mParentDirRef, parent);
}

QMXExtAudioFile::~QMXExtAudioFile()
{
    close();
}

OSStatus QMXExtAudioFile::open()
{
    return mFileAccessMode == QMXAudioFileAccessMode::read ? openForReading() : openForWriting();
}

OSStatus QMXExtAudioFile::openForReading()
{
    if (isOpen_)
        return noErr;
    resolveReferences();
    OSStatus status = checked(ExtAudioFileOpen(&mAudioFileRef, &mExtAudioFileRef));
    if (status != noErr)
        return status;
    UInt32 size = sizeof mFileFormat;
    checked(ExtAudioFileGetProperty(mExtAudioFileRef, kExtAudioFileProperty_FileDataFormat, &size, &mFileFormat));
    if (mClientFormat.mFormatFlags != 0) // which is how a client format shows that was given
        status = setClientStreamFormat(mClientFormat);
    else
        noteClientFormat();
    return keepOpenIf(status);
}

OSStatus QMXExtAudioFile::openForWriting()
{
    if (isOpen_)
        return noErr;
    resolveReferences();
    openingFailure_ = mParentDirRef.path.empty() ? fnfErr : noErr;
    const auto keepFirst = [this](OSStatus status) {
        if (openingFailure_ == noErr)
            openingFailure_ = status;
        return status;
    };
    const CFStringRef name = CFStringCreate(mFileName);
    keepFirst(checked(ExtAudioFileCreateNew(&mParentDirRef, name, mAudioFileType, &mFileFormat, mAudioChannelLayout,
                                            &mExtAudioFileRef)));
    CFRelease(name);
    const bool isTaken = keepFirst(setClientStreamFormat(mClientFormat)) == noErr;
    if (mClientFormat.mChannelsPerFrame == 1 && mFileFormat.mChannelsPerFrame == 2)
        feedBothChannels();
    const OSStatus status = keepOpenIf(keepFirst(checked(ExtAudioFileWriteAsync(mExtAudioFileRef, 0, nullptr))));
    if (isOpen_ && !isTaken)
        noteClientFormat();
    return status;
}

/// Opening succeeded with status 0, else nothing of it stays.
OSStatus QMXExtAudioFile::keepOpenIf(OSStatus status)
{
    isOpen_ = status == noErr;
    if (!isOpen_ && mExtAudioFileRef)
        ExtAudioFileDispose(std::exchange(mExtAudioFileRef, nullptr));
    return status;
}

/// The platform may have a client format though none was given or taken.
void QMXExtAudioFile::noteClientFormat()
{
    AudioStreamBasicDescription format;
    UInt32 size = sizeof format;
    if (ExtAudioFileGetProperty(mExtAudioFileRef, kExtAudioFileProperty_ClientDataFormat, &size, &format) == noErr)
        mClientFormat = format;
}

/// Both channels of the file come from the only one of the client.
void QMXExtAudioFile::feedBothChannels()
{
    const std::array<SInt32, 2> map{0, 0};
    checked(AudioConverterSetProperty(converter(), kAudioConverterChannelMap, sizeof map, map.data()));
}

AudioConverterRef QMXExtAudioFile::converter() const
{
    AudioConverterRef found = nullptr;
    UInt32 size = sizeof found;
    checked(ExtAudioFileGetProperty(mExtAudioFileRef, kExtAudioFileProperty_AudioConverter, &size, &found));
    return found;
}

OSStatus QMXExtAudioFile::close()
{
    qmx::printWaitingFailures();
    if (!isOpen_)
        return noErr;
    const OSStatus status = checked(ExtAudioFileDispose(std::exchange(mExtAudioFileRef, nullptr)));
    if (mFileAccessMode == QMXAudioFileAccessMode::write)
        changeHFSTypeCode();
    isOpen_ = false;
    return status;
}

void QMXExtAudioFile::changeHFSTypeCode() const
{
    constexpr std::array ownTypes{kAudioFileWAVEType, kAudioFileAIFCType, kAudioFileMP3Type, kAudioFileCAFType,
                                  kAudioFileM4AType};
    UInt32 type = kAudioFileAIFFType;
    for (const AudioFileTypeID own : ownTypes)
        if (mAudioFileType == own)
            type = own;
    // intended: the code is stored byte-reversed, as it always was on little-endian hosts
    ByteUtility::toNetworkByteOrder32bit(&type);
    QMXFileUtils::changeCreatorAndType_creator_fileType(mOriginalFilePath, libraryCreatorCode, type);
}

OSStatus QMXExtAudioFile::setFileStreamFormat(const AudioStreamBasicDescription& format)
{
    const OSStatus status = checked(
        ExtAudioFileSetProperty(mExtAudioFileRef, kExtAudioFileProperty_FileDataFormat, sizeof format, &format));
    if (status == noErr)
        mFileFormat = format;
    return status;
}

OSStatus QMXExtAudioFile::setClientStreamFormat(const AudioStreamBasicDescription& format)
{
    const OSStatus status = checked(
        ExtAudioFileSetProperty(mExtAudioFileRef, kExtAudioFileProperty_ClientDataFormat, sizeof format, &format));
    if (status == noErr)
        mClientFormat = format;
    return status;
}

AudioFileTypeID QMXExtAudioFile::fileType()
{
    if (mAudioFileType != 0)
        return mAudioFileType;
    resolveReferences();
    AudioFileID file = nullptr;
    if (checked(AudioFileOpen(&mAudioFileRef, fsRdPerm, 0, &file)) != noErr)
        return 0;
    UInt32 size = sizeof mAudioFileType;
    checked(AudioFileGetProperty(file, kAudioFilePropertyFileFormat, &size, &mAudioFileType));
    checked(AudioFileClose(file));
    return mAudioFileType;
}

AudioFileID QMXExtAudioFile::audioFileId() const
{
    AudioFileID file = nullptr;
    UInt32 size = sizeof file;
    checked(ExtAudioFileGetProperty(mExtAudioFileRef, kExtAudioFileProperty_AudioFile, &size, &file));
    return file;
}

UInt32 QMXExtAudioFile::bitRate() const
{
    UInt32 rate = 0;
    UInt32 size = sizeof rate;
    const OSStatus status = checked(AudioConverterGetProperty(converter(), kAudioConverterEncodeBitRate, &size, &rate));
    return status == noErr ? rate : 0;
}

void QMXExtAudioFile::setBitRate(UInt32 bitsPerSecond)
{
    const AudioConverterRef encoder = converter();
    Boolean isWritable = false;
    UInt32 size = 0;
    checked(AudioConverterGetPropertyInfo(encoder, kAudioConverterEncodeBitRate, &size, &isWritable));
    if (!isWritable)
        return;
    checked(AudioConverterSetProperty(encoder, kAudioConverterEncodeBitRate, sizeof bitsPerSecond, &bitsPerSecond));
    checked(ExtAudioFileSetProperty(mExtAudioFileRef, kExtAudioFileProperty_AudioConverter, sizeof encoder, &encoder));
}

SInt64 QMXExtAudioFile::lengthInFrames()
{
    if (mFileAccessMode == QMXAudioFileAccessMode::read && mLengthInFrames == -1) {
        SInt64 length = 0;
        UInt32 size = sizeof length;
        if (checked(ExtAudioFileGetProperty(mExtAudioFileRef, kExtAudioFileProperty_FileLengthFrames, &size,
                                            &length)) == noErr)
            mLengthInFrames = length;
    }
    return mLengthInFrames;
}

SInt64 QMXExtAudioFile::clientLengthInFrames()
{
    if (sampleRate() == 0)
        return 0;
    return saturated(clientSampleRate() / sampleRate() * static_cast<Float64>(lengthInFrames()));
}

OSStatus QMXExtAudioFile::seek(SInt64 frame)
{
    return checked(ExtAudioFileSeek(mExtAudioFileRef, frame));
}

SInt64 QMXExtAudioFile::offset() const
{
    SInt64 frame = 0;
    return checked(ExtAudioFileTell(mExtAudioFileRef, &frame)) == noErr ? frame : -1;
}

OSStatus QMXExtAudioFile::read_numberFrames(AudioBufferList* buffers, UInt32* numberFrames)
{
    return checked(ExtAudioFileRead(mExtAudioFileRef, numberFrames, buffers));
}

OSStatus QMXExtAudioFile::write_numberFrames(const AudioBufferList* buffers, UInt32 numberFrames)
{
    return checked(ExtAudioFileWriteAsync(mExtAudioFileRef, numberFrames, buffers));
}

OSStatus QMXExtAudioFile::writeSynch_numberFrames(const AudioBufferList* buffers, UInt32 numberFrames)
{
    return checked(ExtAudioFileWrite(mExtAudioFileRef, numberFrames, buffers));
}
