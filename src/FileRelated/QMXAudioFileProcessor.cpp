// SPDX-License-Identifier: MIT
#include "FileRelated/QMXAudioFileProcessor.h"

#include "FileRelated/ProcessingPasses.h"
#include "FileRelated/QMXExtAudioFile.h"
#include "Formats/FileByteOrder.h"
#include "Formats/LastFailure.h"
#include "Formats/OwnedBufferList.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXFileUtils.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/CFString.h"

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace
{

using qmx::checkedStep;
using qmx::framesPerPass;

/// Native floats, one buffer a channel.
AudioStreamBasicDescription processingFormat(Float64 sampleRate)
{
    const auto format = QMXAudioStreamBasicDescription::standardFormat(1);
    format->setSampleRate(sampleRate);
    return *format->audioStreamBasicDescription();
}

AudioBufferList* internalBuffersFor(const AudioStreamBasicDescription& internal)
{
    return QMXAudioBufferList::allocateBuffers_channelsPerBuffer_dataByteSize(internal.mChannelsPerFrame, 1,
                                                                              framesPerPass * UInt32{sizeof(Float32)});
}

AudioBufferList* fileBuffersFor(UInt32 channels, const AudioStreamBasicDescription& fileFormat)
{
    return QMXAudioBufferList::allocateBuffers_channelsPerBuffer_dataByteSize(
        1, channels, framesPerPass * fileFormat.mBytesPerFrame);
}

SInt64 packetsOf(SInt64 frames, const AudioStreamBasicDescription& format)
{
    return format.mFramesPerPacket == 0 ? 0 : frames / format.mFramesPerPacket;
}

/// Holds blocks for the rest of the process.
void keepForever(AudioBufferList* block)
{
    static std::mutex mutex;
    static auto* const kept = new std::vector<AudioBufferList*>;
    const std::scoped_lock lock(mutex);
    (void)qmx::withinMemory([&] { kept->push_back(block); }); // or leaked, which keeps it as well
}

struct CloseFile {
    void operator()(AudioFileID file) const { checkedStep(AudioFileClose(file)); }
};
using OpenFile = std::unique_ptr<OpaqueAudioFileID, CloseFile>;

template <class Value> OSStatus fileProperty(AudioFileID file, AudioFilePropertyID property, Value& value)
{
    UInt32 size = sizeof value;
    return AudioFileGetProperty(file, property, &size, &value);
}

constexpr auto cannotBeOpened = "could not be opened", cannotBeMade = "could not be made",
               cannotBeRead = "could not be read";

class QMXAudioFileProcessorImpl final : public QMXAudioFileProcessor
{
public:
    QMXAudioFileProcessorImpl(const std::string& path, std::shared_ptr<QMXAudioProcessor> processor,
                              std::shared_ptr<QMXProgressSubscriber> subscriber);
    ~QMXAudioFileProcessorImpl() override;

    OSStatus copyFramesToPath_startFrame_endFrame(const std::string& destinationPath, SInt64 startFrame,
                                                  SInt64 endFrame) override;
    OSStatus processFrames_endFrame(SInt64 startFrame, SInt64 endFrame) override;
    OSStatus lastStatus() const override { return failure_.status(); }
    std::string lastError() const override { return failure_.sentence(); }

private:
    OpenFile openSource(SInt8 permissions, AudioFileTypeID typeHint);
    OpenFile createTarget(const std::string& path, const AudioStreamBasicDescription& format);
    OSStatus closeFile(const std::string& path, OpenFile file);
    OSStatus told(const std::string& path, const char* whatFailed, OSStatus status, unsigned line = __builtin_LINE());

    std::shared_ptr<QMXAudioProcessor> mAudioProcessor;
    std::shared_ptr<QMXProgressSubscriber> mProgressSubscriber;
    AudioStreamBasicDescription mFileStreamFormat;
    AudioStreamBasicDescription mInternalFormat;
    std::string mInputFilePath;
    std::shared_ptr<QMXExtAudioFile> mInputFile;
    AudioBufferList* mAUAudioBuffers = nullptr;
    AudioBufferList* mFileAudioBuffers = nullptr;
    ConverterInfo mConverterInfo;
    qmx::LastFailure failure_;
};

QMXAudioFileProcessorImpl::QMXAudioFileProcessorImpl(const std::string& path,
                                                     std::shared_ptr<QMXAudioProcessor> processor,
                                                     std::shared_ptr<QMXProgressSubscriber> subscriber)
    : mAudioProcessor(std::move(processor)), mProgressSubscriber(std::move(subscriber)), mInputFilePath(path),
      mInputFile(QMXExtAudioFile::initForReading(path))
{
    if (!mInputFile)
        throw std::bad_alloc();
    checkedStep(mInputFile->open());
    failure_.keepFirstOf(*mInputFile);
    mFileStreamFormat = *mInputFile->fileStreamFormat();
    mInternalFormat = processingFormat(mFileStreamFormat.mSampleRate);
    checkedStep(mInputFile->setClientStreamFormat(mInternalFormat));
    mAUAudioBuffers = internalBuffersFor(mInternalFormat);
    mFileAudioBuffers = fileBuffersFor(mInternalFormat.mChannelsPerFrame, mFileStreamFormat);
}

QMXAudioFileProcessorImpl::~QMXAudioFileProcessorImpl()
{
    QMXAudioBufferList::destroyBuffers(mAUAudioBuffers);
    keepForever(mFileAudioBuffers); // intended: not freed with the object
    mInputFile = nullptr;
    mInputFilePath.clear();
    mAudioProcessor = nullptr;
    mProgressSubscriber = nullptr;
}

OSStatus QMXAudioFileProcessorImpl::copyFramesToPath_startFrame_endFrame(const std::string& destinationPath,
                                                                         SInt64 startFrame, SInt64 endFrame)
{
    const qmx::LastFailure::Operation operation(failure_);
    if (endFrame < startFrame) {
        failure_.keepFirst(paramErr, mInputFilePath, "could not be copied");
        return -1;
    }
    OpenFile source = openSource(fsRdPerm, kAudioFileAIFFType);
    AudioStreamBasicDescription format;
    told(mInputFilePath, cannotBeRead, fileProperty(source.get(), kAudioFilePropertyDataFormat, format));
    AudioStreamBasicDescription internal;
    OpenFile target;
    const bool isReady = qmx::withinMemory([&] {
        internal = processingFormat(format.mSampleRate);
        internal.mChannelsPerFrame = format.mChannelsPerFrame;
        target = createTarget(destinationPath, format);
    });
    if (!isReady)
        return failure_.keepFirst(memFullErr, destinationPath, cannotBeMade);

    SInt64 packetCount = 0;
    told(mInputFilePath, cannotBeRead, fileProperty(source.get(), kAudioFilePropertyAudioDataPacketCount, packetCount));
    UInt32 largestPacket = 0;
    if (fileProperty(source.get(), kAudioFilePropertyMaximumPacketSize, largestPacket) != noErr)
        largestPacket = format.mBytesPerFrame;

    const qmx::OwnedBufferList internalBuffers(internalBuffersFor(internal));
    const qmx::OwnedBufferList fileBuffers(QMXAudioBufferList::allocateBuffers_channelsPerBuffer_dataByteSize(
        1, format.mChannelsPerFrame, framesPerPass * std::max(largestPacket, format.mBytesPerFrame)));
    mConverterInfo = {source.get(), packetsOf(startFrame, format), fileBuffers.get()};
    qmx::ProcessingPasses({.fileFormat = format,
                           .internalFormat = internal,
                           .source = source.get(),
                           .target = target.get(),
                           .firstPacket = mConverterInfo.mPacketOffset,
                           .packetsToDo = packetsOf(std::min(endFrame, packetCount) - startFrame, format),
                           .internalBuffers = internalBuffers.get(),
                           .fileBuffers = fileBuffers.get(),
                           .processor = mAudioProcessor.get(),
                           .subscriber = mProgressSubscriber.get(),
                           .decoding = &mConverterInfo,
                           .sourcePath = mInputFilePath,
                           .targetPath = destinationPath,
                           .failure = failure_})
        .run();
    closeFile(mInputFilePath, std::move(source));
    return closeFile(destinationPath, std::move(target));
}

OSStatus QMXAudioFileProcessorImpl::processFrames_endFrame(SInt64 startFrame, SInt64 endFrame)
{
    const qmx::LastFailure::Operation operation(failure_);
    const SInt64 lastFrame = std::min(mInputFile->lengthInFrames(), endFrame);
    failure_.keepFirstOf(*mInputFile);
    (void)mInputFile->close(); // nothing of it can be lost
    OpenFile file = openSource(fsRdWrPerm, mInputFile->fileType());
    UInt32 largestPacket = 0;
    // intended: without it nothing is processed, and no line is printed
    const OSStatus status = fileProperty(file.get(), kAudioFilePropertyMaximumPacketSize, largestPacket);
    if (failure_.keepFirst(status, mInputFilePath, cannotBeRead) == noErr) {
        mConverterInfo = {file.get(), packetsOf(startFrame, mFileStreamFormat), mFileAudioBuffers};
        qmx::ProcessingPasses({.fileFormat = mFileStreamFormat,
                               .internalFormat = mInternalFormat,
                               .source = file.get(),
                               .target = file.get(),
                               .firstPacket = mConverterInfo.mPacketOffset,
                               .packetsToDo = packetsOf(lastFrame - startFrame, mFileStreamFormat),
                               .internalBuffers = mAUAudioBuffers,
                               .fileBuffers = mFileAudioBuffers,
                               .processor = mAudioProcessor.get(),
                               .subscriber = mProgressSubscriber.get(),
                               .decoding = &mConverterInfo,
                               .sourcePath = mInputFilePath,
                               .targetPath = mInputFilePath,
                               .failure = failure_})
            .run();
    }
    return closeFile(mInputFilePath, std::move(file));
}

OpenFile QMXAudioFileProcessorImpl::openSource(SInt8 permissions, AudioFileTypeID typeHint)
{
    FSRef reference;
    QMXFileUtils::makeFSRef_fromPath(&reference, mInputFilePath);
    AudioFileID file = nullptr;
    told(mInputFilePath, cannotBeOpened, AudioFileOpen(&reference, permissions, typeHint, &file));
    return OpenFile(file);
}

/// A new file in the source's data format.
OpenFile QMXAudioFileProcessorImpl::createTarget(const std::string& path, const AudioStreamBasicDescription& format)
{
    const std::filesystem::path whole(path);
    FSRef parent;
    if (!QMXFileUtils::makeFSRef_fromPath(&parent, whole.has_parent_path() ? whole.parent_path().string() : "."))
        failure_.keepFirst(dirNFErr, path, cannotBeMade); // the service only says that the argument is wrong
    const AudioFileTypeID type = format.mBitsPerChannel == 32 ? kAudioFileAIFCType : kAudioFileAIFFType;
    const CFStringRef name = CFStringCreate(whole.filename().string());
    AudioFileID file = nullptr;
    told(path, cannotBeMade, AudioFileCreate(&parent, name, type, &format, 0, nullptr, &file));
    CFRelease(name);
    return OpenFile(file);
}

/// Prints a failing step and keeps the first.
OSStatus QMXAudioFileProcessorImpl::told(const std::string& path, const char* whatFailed, OSStatus status,
                                         unsigned line)
{
    return failure_.keepFirst(checkedStep(status, line), path, whatFailed);
}

/// Closes a file; -50 for none.
OSStatus QMXAudioFileProcessorImpl::closeFile(const std::string& path, OpenFile file)
{
    return told(path, "could not be closed", AudioFileClose(file.release()));
}

} // namespace

std::shared_ptr<QMXAudioFileProcessor> QMXAudioFileProcessor::initWithSourcePath_processFramesWith_progressSubscriber(
    const std::string& path, std::shared_ptr<QMXAudioProcessor> processor,
    std::shared_ptr<QMXProgressSubscriber> subscriber)
{
    return qmx::withinMemory(std::shared_ptr<QMXAudioFileProcessor>(), [&] {
        return std::make_shared<QMXAudioFileProcessorImpl>(path, std::move(processor), std::move(subscriber));
    });
}

AudioStreamBasicDescription QMXAudioFileProcessor::suitableStreamFormatForFileType(AudioFileTypeID fileType)
{
    switch (fileType) {
    case kAudioFileAIFFType:
    case kAudioFileSoundDesigner2Type:
    case kAudioFileNextType:
    case kAudioFileCAFType:
    case kAudioFileWAVEType:
    case kAudioFileRF64Type:
        return qmx::inByteOrderOfType(*QMXAudioStreamBasicDescription::standardFormat(7)->audioStreamBasicDescription(),
                                      fileType);
    case kAudioFileAIFCType:
        return *QMXAudioStreamBasicDescription::standardFormat(5)->audioStreamBasicDescription();
    default:
        return {};
    }
}

void QMXAudioFileProcessor::swapBytes_wordLength_length(void* buffer, UInt32 wordLength, UInt64 length)
{
    if (wordLength == 0)
        return;
    auto* word = static_cast<Byte*>(buffer);
    for (UInt64 left = length / wordLength; left > 0; --left, word += wordLength)
        std::reverse(word, word + wordLength);
}
