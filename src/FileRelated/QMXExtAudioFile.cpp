// SPDX-License-Identifier: MIT
#include "FileRelated/QMXExtAudioFile.h"

#include "Formats/ByteUtility.h"
#include "Formats/LastFailure.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXFileUtils.h"
#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"
#include "Foundation/Text/CFString.h"
#include "Foundation/Text/FailureLine.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace
{

constexpr qmx::FailureLine checked("QMXExtAudioFile", "coreaudio_aac/src/FileRelated/QMXExtAudioFile");

constexpr auto cannotBeOpened = "could not be opened", cannotBeMade = "could not be made",
               cannotBeWritten = "could not be written", cannotTakeFormat = "could not be given a format";

AudioStreamBasicDescription recordOrZero(const AudioStreamBasicDescription* record)
{
    return record ? *record : AudioStreamBasicDescription{};
}

SInt64 saturated(Float64 frames)
{
    constexpr Float64 limit = 9.2e18;
    return std::isnan(frames) ? 0 : static_cast<SInt64>(std::clamp(frames, -limit, limit));
}

class QMXExtAudioFileImpl final : public QMXExtAudioFile
{
public:
    QMXExtAudioFileImpl(const std::string& path, QMXAudioFileAccessMode mode, SInt64 length, AudioFileTypeID fileType,
                        const AudioStreamBasicDescription* clientFormat, const AudioStreamBasicDescription* fileFormat);
    ~QMXExtAudioFileImpl() override
    {
        (void)close(); // nobody is left to be told
    }

    OSStatus open() override;
    OSStatus openForReading() override;
    OSStatus openForWriting() override;
    OSStatus close() override;
    void changeHFSTypeCode() const override;
    bool isOpen() const override { return isOpen_; }
    OSStatus lastStatus() const override { return failure_.status(); }
    std::string lastError() const override { return failure_.sentence(); }
    void setFileAccessMode(QMXAudioFileAccessMode mode) override { mFileAccessMode = mode; }
    void setKeepsFileReadableWhileWriting(bool keeps) override { keepsFileReadable_ = keeps; }
    ExtAudioFileRef extAudioFileRef() const override { return mExtAudioFileRef; }
    const std::string& path() const override { return mOriginalFilePath; }
    const std::string& name() const override { return mFileName; }
    const AudioStreamBasicDescription* fileStreamFormat() const override { return &mFileFormat; }
    const AudioStreamBasicDescription* clientStreamFormat() const override { return &mClientFormat; }
    OSStatus setFileStreamFormat(const AudioStreamBasicDescription& format) override;
    OSStatus setClientStreamFormat(const AudioStreamBasicDescription& format) override;
    AudioFileTypeID fileType() override;
    AudioFileID audioFileId() const override;
    UInt32 bitRate() const override;
    void setBitRate(UInt32 bitsPerSecond) override;
    SInt64 lengthInFrames() override;
    OSStatus seek(SInt64 frame) override;
    SInt64 offset() const override;
    OSStatus read_numberFrames(AudioBufferList* buffers, UInt32* numberFrames) override;
    OSStatus write_numberFrames(const AudioBufferList* buffers, UInt32 numberFrames) override;
    OSStatus writeSynch_numberFrames(const AudioBufferList* buffers, UInt32 numberFrames) override;

private:
    void resolveReferences();
    void feedBothChannels();
    void keepFileReadable();
    OSStatus keepOpenIf(OSStatus status);
    void noteClientFormat();
    OSStatus setFormat(ExtAudioFilePropertyID property, const AudioStreamBasicDescription& format,
                       AudioStreamBasicDescription& kept);
    AudioConverterRef converter() const;
    OSStatus told(OSStatus status, const char* whatFailed) const;
    template <class Call> OSStatus transfer(const char* whatFailed, Call call);

    QMXAudioFileAccessMode mFileAccessMode;
    AudioFileTypeID mAudioFileType;
    [[maybe_unused]] UInt32 mAudioFileEncoding = 0;
    std::string mOriginalFilePath;
    std::string mParentDirPath;
    std::string mFileName;
    FSRef mParentDirRef;
    FSRef mAudioFileRef;
    SInt64 mLengthInFrames;
    ExtAudioFileRef mExtAudioFileRef = nullptr;
    const AudioChannelLayout* mAudioChannelLayout = nullptr;
    AudioStreamBasicDescription mFileFormat;
    AudioStreamBasicDescription mClientFormat;
    bool isOpen_ = false;
    bool keepsFileReadable_ = false;
    mutable qmx::LastFailure failure_;
};

QMXExtAudioFileImpl::QMXExtAudioFileImpl(const std::string& path, QMXAudioFileAccessMode mode, SInt64 length,
                                         AudioFileTypeID fileType, const AudioStreamBasicDescription* clientFormat,
                                         const AudioStreamBasicDescription* fileFormat)
    : mFileAccessMode(mode), mAudioFileType(fileType), mOriginalFilePath(path), mLengthInFrames(length),
      mFileFormat(recordOrZero(fileFormat)), mClientFormat(recordOrZero(clientFormat))
{
    const std::size_t slash = path.rfind('/');
    mFileName = slash == std::string::npos ? path : path.substr(slash + 1);
    mParentDirPath = slash == std::string::npos ? "" : path.substr(0, slash);
    resolveReferences();
}

/// References are to existing items only: a file that is made later is looked up again.
void QMXExtAudioFileImpl::resolveReferences()
{
    const std::string root = "/", here = ".";
    const bool isInRoot = mParentDirPath.empty() && mOriginalFilePath.starts_with('/');
    const std::string& parent = isInRoot ? root : mParentDirPath.empty() ? here : mParentDirPath;
    (void)QMXFileUtils::makeFSRef_fromPath(&mAudioFileRef, mOriginalFilePath);
    (void)QMXFileUtils::makeFSRef_fromPath(&mParentDirRef, parent);
}

OSStatus QMXExtAudioFileImpl::open()
{
    return mFileAccessMode == QMXAudioFileAccessMode::read ? openForReading() : openForWriting();
}

OSStatus QMXExtAudioFileImpl::openForReading()
{
    const qmx::LastFailure::Operation operation(failure_);
    if (isOpen_)
        return noErr;
    resolveReferences();
    OSStatus status = told(checked(ExtAudioFileOpen(&mAudioFileRef, &mExtAudioFileRef)), cannotBeOpened);
    if (status != noErr)
        return status;
    UInt32 size = sizeof mFileFormat;
    told(checked(ExtAudioFileGetProperty(mExtAudioFileRef, kExtAudioFileProperty_FileDataFormat, &size, &mFileFormat)),
         cannotBeOpened);
    if (mClientFormat.mFormatFlags != 0) // nonzero flags show that a client format was given
        status = setClientStreamFormat(mClientFormat);
    else
        noteClientFormat();
    return keepOpenIf(status);
}

OSStatus QMXExtAudioFileImpl::openForWriting()
{
    const qmx::LastFailure::Operation operation(failure_);
    if (isOpen_)
        return noErr;
    resolveReferences();
    if (mParentDirRef.path.empty())
        told(fnfErr, cannotBeMade); // the service only says that the argument is wrong
    const CFStringRef name = CFStringCreate(mFileName);
    told(checked(ExtAudioFileCreateNew(&mParentDirRef, name, mAudioFileType, &mFileFormat, mAudioChannelLayout,
                                       &mExtAudioFileRef)),
         cannotBeMade);
    CFRelease(name);
    const bool isTaken = setClientStreamFormat(mClientFormat) == noErr;
    if (mClientFormat.mChannelsPerFrame == 1 && mFileFormat.mChannelsPerFrame == 2)
        feedBothChannels();
    if (keepsFileReadable_)
        keepFileReadable();
    const OSStatus status =
        keepOpenIf(told(checked(ExtAudioFileWriteAsync(mExtAudioFileRef, 0, nullptr)), cannotBeMade));
    if (isOpen_ && !isTaken)
        noteClientFormat();
    return status;
}

/// Keeps the first failure of an operation; returns the status.
OSStatus QMXExtAudioFileImpl::told(OSStatus status, const char* whatFailed) const
{
    return failure_.keepFirst(status, mOriginalFilePath, whatFailed);
}

/// Status 0 keeps the file open; any other closes it.
OSStatus QMXExtAudioFileImpl::keepOpenIf(OSStatus status)
{
    isOpen_ = status == noErr;
    if (!isOpen_ && mExtAudioFileRef)
        (void)ExtAudioFileDispose(std::exchange(mExtAudioFileRef, nullptr)); // the first failure counts
    return status;
}

/// The platform may have a client format though none was given or accepted.
void QMXExtAudioFileImpl::noteClientFormat()
{
    AudioStreamBasicDescription format;
    UInt32 size = sizeof format;
    if (ExtAudioFileGetProperty(mExtAudioFileRef, kExtAudioFileProperty_ClientDataFormat, &size, &format) == noErr)
        mClientFormat = format;
}

/// Both channels of the file come from the only one of the client.
void QMXExtAudioFileImpl::feedBothChannels()
{
    const std::array<SInt32, 2> map{0, 0};
    told(checked(AudioConverterSetProperty(converter(), kAudioConverterChannelMap, sizeof map, map.data())),
         cannotTakeFormat);
}

void QMXExtAudioFileImpl::keepFileReadable()
{
    constexpr UInt32 keeps = 1;
    told(checked(
             ExtAudioFileSetProperty(mExtAudioFileRef, kExtAudioFileProperty_KeepsFileReadable, sizeof keeps, &keeps)),
         "could not be kept readable");
}

AudioConverterRef QMXExtAudioFileImpl::converter() const
{
    AudioConverterRef found = nullptr;
    UInt32 size = sizeof found;
    told(checked(ExtAudioFileGetProperty(mExtAudioFileRef, kExtAudioFileProperty_AudioConverter, &size, &found)),
         "could not tell its converter");
    return found;
}

OSStatus QMXExtAudioFileImpl::close()
{
    const qmx::LastFailure::Operation operation(failure_);
    qmx::printWaitingFailures();
    if (!isOpen_)
        return noErr;
    const OSStatus status =
        told(checked(ExtAudioFileDispose(std::exchange(mExtAudioFileRef, nullptr))), cannotBeWritten);
    if (mFileAccessMode == QMXAudioFileAccessMode::write)
        changeHFSTypeCode();
    isOpen_ = false;
    return status;
}

void QMXExtAudioFileImpl::changeHFSTypeCode() const
{
    constexpr std::array ownTypes{kAudioFileWAVEType, kAudioFileAIFCType, kAudioFileMP3Type, kAudioFileCAFType,
                                  kAudioFileM4AType};
    UInt32 type = kAudioFileAIFFType;
    for (const AudioFileTypeID own : ownTypes)
        if (mAudioFileType == own)
            type = own;
    // intended: the code is stored byte-reversed, as it always was on little-endian hosts
    ByteUtility::toNetworkByteOrder32bit(&type);
    QMXFileUtils::changeCreatorAndType_creator_fileType(mOriginalFilePath, qmx::libraryCreatorCode, type);
}

OSStatus QMXExtAudioFileImpl::setFileStreamFormat(const AudioStreamBasicDescription& format)
{
    return setFormat(kExtAudioFileProperty_FileDataFormat, format, mFileFormat);
}

OSStatus QMXExtAudioFileImpl::setClientStreamFormat(const AudioStreamBasicDescription& format)
{
    return setFormat(kExtAudioFileProperty_ClientDataFormat, format, mClientFormat);
}

OSStatus QMXExtAudioFileImpl::setFormat(ExtAudioFilePropertyID property, const AudioStreamBasicDescription& format,
                                        AudioStreamBasicDescription& kept)
{
    const qmx::LastFailure::Operation operation(failure_);
    const OSStatus status =
        told(checked(ExtAudioFileSetProperty(mExtAudioFileRef, property, sizeof format, &format)), cannotTakeFormat);
    if (status == noErr)
        kept = format;
    return status;
}

AudioFileTypeID QMXExtAudioFileImpl::fileType()
{
    const qmx::LastFailure::Operation operation(failure_);
    if (mAudioFileType != 0)
        return mAudioFileType;
    resolveReferences();
    AudioFileID file = nullptr;
    if (told(checked(AudioFileOpen(&mAudioFileRef, fsRdPerm, 0, &file)), cannotBeOpened) != noErr)
        return 0;
    UInt32 size = sizeof mAudioFileType;
    told(checked(AudioFileGetProperty(file, kAudioFilePropertyFileFormat, &size, &mAudioFileType)),
         "could not tell its type");
    checked(AudioFileClose(file));
    return mAudioFileType;
}

AudioFileID QMXExtAudioFileImpl::audioFileId() const
{
    AudioFileID file = nullptr;
    const qmx::LastFailure::Operation operation(failure_);
    UInt32 size = sizeof file;
    told(checked(ExtAudioFileGetProperty(mExtAudioFileRef, kExtAudioFileProperty_AudioFile, &size, &file)),
         "could not tell its file");
    return file;
}

UInt32 QMXExtAudioFileImpl::bitRate() const
{
    const qmx::LastFailure::Operation operation(failure_);
    UInt32 rate = 0;
    UInt32 size = sizeof rate;
    const OSStatus status =
        told(checked(AudioConverterGetProperty(converter(), kAudioConverterEncodeBitRate, &size, &rate)),
             "could not tell its bit rate");
    return status == noErr ? rate : 0;
}

void QMXExtAudioFileImpl::setBitRate(UInt32 bitsPerSecond)
{
    const qmx::LastFailure::Operation operation(failure_);
    const AudioConverterRef encoder = converter();
    constexpr auto whatFailed = "could not be given a bit rate";
    Boolean isWritable = false;
    UInt32 size = 0;
    told(checked(AudioConverterGetPropertyInfo(encoder, kAudioConverterEncodeBitRate, &size, &isWritable)), whatFailed);
    if (!isWritable)
        return;
    told(
        checked(AudioConverterSetProperty(encoder, kAudioConverterEncodeBitRate, sizeof bitsPerSecond, &bitsPerSecond)),
        whatFailed);
    told(checked(
             ExtAudioFileSetProperty(mExtAudioFileRef, kExtAudioFileProperty_AudioConverter, sizeof encoder, &encoder)),
         whatFailed);
}

SInt64 QMXExtAudioFileImpl::lengthInFrames()
{
    const qmx::LastFailure::Operation operation(failure_);
    if (mFileAccessMode == QMXAudioFileAccessMode::read && mLengthInFrames == -1) {
        SInt64 length = 0;
        UInt32 size = sizeof length;
        if (told(checked(
                     ExtAudioFileGetProperty(mExtAudioFileRef, kExtAudioFileProperty_FileLengthFrames, &size, &length)),
                 "could not tell its length") == noErr)
            mLengthInFrames = length;
    }
    return mLengthInFrames;
}

OSStatus QMXExtAudioFileImpl::seek(SInt64 frame)
{
    const qmx::LastFailure::Operation operation(failure_);
    return told(checked(ExtAudioFileSeek(mExtAudioFileRef, frame)), "could not be moved to a frame");
}

SInt64 QMXExtAudioFileImpl::offset() const
{
    const qmx::LastFailure::Operation operation(failure_);
    SInt64 frame = 0;
    const OSStatus status = told(checked(ExtAudioFileTell(mExtAudioFileRef, &frame)), "could not tell its position");
    return status == noErr ? frame : -1;
}

OSStatus QMXExtAudioFileImpl::read_numberFrames(AudioBufferList* buffers, UInt32* numberFrames)
{
    return transfer("could not be read",
                    [&] { return checked(ExtAudioFileRead(mExtAudioFileRef, numberFrames, buffers)); });
}

OSStatus QMXExtAudioFileImpl::write_numberFrames(const AudioBufferList* buffers, UInt32 numberFrames)
{
    return transfer(cannotBeWritten,
                    [&] { return checked(ExtAudioFileWriteAsync(mExtAudioFileRef, numberFrames, buffers)); });
}

OSStatus QMXExtAudioFileImpl::writeSynch_numberFrames(const AudioBufferList* buffers, UInt32 numberFrames)
{
    return transfer(cannotBeWritten,
                    [&] { return checked(ExtAudioFileWrite(mExtAudioFileRef, numberFrames, buffers)); });
}

/// On real-time threads failures are not recorded.
template <class Call> OSStatus QMXExtAudioFileImpl::transfer(const char* whatFailed, Call call)
{
    if (qmx::isRealTime())
        return call();
    const qmx::LastFailure::Operation operation(failure_);
    return told(call(), whatFailed);
}

std::shared_ptr<QMXExtAudioFile> make(const std::string& path, QMXAudioFileAccessMode mode, SInt64 length,
                                      AudioFileTypeID fileType = 0,
                                      const AudioStreamBasicDescription* clientFormat = nullptr,
                                      const AudioStreamBasicDescription* fileFormat = nullptr)
{
    return qmx::withinMemory(std::shared_ptr<QMXExtAudioFile>(), [&] {
        return std::make_shared<QMXExtAudioFileImpl>(path, mode, length, fileType, clientFormat, fileFormat);
    });
}

} // namespace

std::shared_ptr<QMXExtAudioFile> QMXExtAudioFile::init(const std::string& path)
{
    return make(path, QMXAudioFileAccessMode::read, 0);
}

std::shared_ptr<QMXExtAudioFile>
QMXExtAudioFile::initForWriting_fileType_clientFormat_fileFormat(const std::string& path, AudioFileTypeID fileType,
                                                                 const AudioStreamBasicDescription* clientFormat,
                                                                 const AudioStreamBasicDescription* fileFormat)
{
    return make(path, QMXAudioFileAccessMode::write, 0, fileType, clientFormat, fileFormat);
}

std::shared_ptr<QMXExtAudioFile>
QMXExtAudioFile::initForWriting_fileType_fileFormat(const std::string& path, AudioFileTypeID fileType,
                                                    const AudioStreamBasicDescription* fileFormat)
{
    return make(path, QMXAudioFileAccessMode::write, 0, fileType, nullptr, fileFormat);
}

std::shared_ptr<QMXExtAudioFile>
QMXExtAudioFile::initForReading_clientFormat(const std::string& path, const AudioStreamBasicDescription* clientFormat)
{
    return make(path, QMXAudioFileAccessMode::read, -1, 0, clientFormat);
}

std::shared_ptr<QMXExtAudioFile> QMXExtAudioFile::initForReading(const std::string& path)
{
    // what a default output unit takes before it is started
    return qmx::withinMemory(std::shared_ptr<QMXExtAudioFile>(), [&] {
        const auto format = QMXAudioStreamBasicDescription::standardFormat(1);
        return initForReading_clientFormat(path, format->audioStreamBasicDescription());
    });
}

SInt64 QMXExtAudioFile::clientLengthInFrames()
{
    if (sampleRate() == 0)
        return 0;
    return saturated(clientSampleRate() / sampleRate() * static_cast<Float64>(lengthInFrames()));
}
