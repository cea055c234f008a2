// SPDX-License-Identifier: MIT
#include "FileRelated/QMXAudioFileConverter.h"

#include "FileRelated/ChannelLayoutTransfer.h"
#include "FileRelated/QMXExtAudioFile.h"
#include "Formats/FileByteOrder.h"
#include "Formats/LastFailure.h"
#include "Formats/OwnedBufferList.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Log.h"

#include <algorithm>
#include <utility>

namespace
{

constexpr UInt32 framesAtOnce = 1024;

/// Bytes of the buffer, which must hold all frames of a pass: the stated size is only a lower bound.
UInt32 bufferSize(const QMXAudioStreamBasicDescription& client)
{
    const UInt32 channels = std::max<UInt32>(1, client.channelsPerFrame());
    return std::max(client.bytesPerFrame() * framesAtOnce / channels,
                    framesAtOnce * channels * UInt32{sizeof(Float32)});
}

bool isLossless(const AudioStreamBasicDescription& format)
{
    return format.mFormatID == kAudioFormatAppleLossless || format.mFormatID == kAudioFormatFLAC;
}

/// Whether 16 bits hold every sample of a file in this format.
bool fitsSixteenBits(const AudioStreamBasicDescription& format)
{
    if (isLossless(format))
        return format.mFormatFlags == kAppleLosslessFormatFlag_16BitSourceData;
    return format.mBytesPerFrame > 0 && format.mBytesPerFrame <= format.mChannelsPerFrame * sizeof(SInt16);
}

/// The format of the new file. A lossless coding left to choose would keep 24 bits of the client's floats.
AudioStreamBasicDescription targetFormat(const AudioStreamBasicDescription& requested, AudioFileTypeID type,
                                         const AudioStreamBasicDescription& source)
{
    AudioStreamBasicDescription format = qmx::inByteOrderOfType(requested, type);
    if (isLossless(format) && format.mFormatFlags == 0 && fitsSixteenBits(source))
        format.mFormatFlags = kAppleLosslessFormatFlag_16BitSourceData;
    return format;
}

struct Conversion {
    std::shared_ptr<QMXExtAudioFile> source, destination;
    qmx::OwnedBufferList buffers;
};

class QMXAudioFileConverterImpl final : public QMXAudioFileConverter
{
public:
    explicit QMXAudioFileConverterImpl(const std::string& path) : mInputFilePath(path) {}

    OSStatus
    convertFileToPath_toFileType_toFormat_subscriber(const std::string& destinationPath, AudioFileTypeID fileType,
                                                     const std::shared_ptr<QMXAudioStreamBasicDescription>& format,
                                                     QMXProgressSubscriber* subscriber) override;
    void setBitRate(UInt32 bitsPerSecond) override { bitRate_ = bitsPerSecond; }
    OSStatus convertFileToPath_toFileType_subscriber(const std::string& destinationPath, AudioFileTypeID fileType,
                                                     QMXProgressSubscriber* subscriber) override;
    OSStatus lastStatus() const override { return failure_.status(); }
    std::string lastError() const override { return failure_.sentence(); }

private:
    OSStatus openSource(Conversion& conversion);
    OSStatus prepare(Conversion& conversion, const std::string& destinationPath, AudioFileTypeID fileType,
                     const AudioStreamBasicDescription* format);
    OSStatus copyFrames(const Conversion& conversion, QMXProgressSubscriber* subscriber);
    template <class Step> OSStatus inMemory(Step step);

    std::string mInputFilePath;
    UInt32 bitRate_ = 0;
    qmx::LastFailure failure_;
};

OSStatus QMXAudioFileConverterImpl::openSource(Conversion& conversion)
{
    conversion.source = QMXExtAudioFile::initForReading(mInputFilePath);
    if (!conversion.source)
        return kAudio_MemFullError;
    const OSStatus status = conversion.source->open();
    failure_.keepFirstOf(*conversion.source);
    return status;
}

/// Opens both sides.
OSStatus QMXAudioFileConverterImpl::prepare(Conversion& conversion, const std::string& destinationPath,
                                            AudioFileTypeID fileType, const AudioStreamBasicDescription* format)
{
    if (const OSStatus status = openSource(conversion); status != noErr)
        return status;
    QMXExtAudioFile& source = *conversion.source;
    const auto client = QMXAudioStreamBasicDescription::standardFormat(0);
    client->setChannelsPerFrame(source.channelsPerFrame());
    client->setSampleRate(source.sampleRate());
    // both sides meet in this format, so that rates, channels and lengths agree
    const OSStatus taken = source.setClientStreamFormat(*client->audioStreamBasicDescription());
    failure_.keepFirstOf(source);
    if (taken != noErr)
        return taken;

    const AudioStreamBasicDescription target =
        targetFormat(format ? *format : AudioStreamBasicDescription{}, fileType, *source.fileStreamFormat());
    const auto destination = conversion.destination = QMXExtAudioFile::initForWriting_fileType_clientFormat_fileFormat(
        destinationPath, fileType, client->audioStreamBasicDescription(), &target);
    if (!destination)
        return kAudio_MemFullError;
    (void)destination->open(); // the status of its last step, which says nothing of the others
    if (const OSStatus status = failure_.keepFirstOf(*destination); status != noErr)
        return status;
    qmx::passLayoutOn(source, *destination);
    if (bitRate_ > 0) {
        destination->setBitRate(bitRate_);
        failure_.keepFirstOf(*destination);
    }
    conversion.buffers.reset(QMXAudioBufferList::allocateBuffers_channelsPerBuffer_dataByteSize(
        1, source.channelsPerFrame(), bufferSize(*client)));
    return conversion.buffers ? noErr : kAudio_MemFullError;
}

/// Copies all frames; returns the status of the last write.
OSStatus QMXAudioFileConverterImpl::copyFrames(const Conversion& conversion, QMXProgressSubscriber* subscriber)
{
    AudioBufferList& buffers = *conversion.buffers;
    const UInt32 bytes = buffers.mBuffers[0].mDataByteSize;
    SInt64 framesLeft = conversion.source->lengthInFrames();
    failure_.keepFirstOf(*conversion.source);
    const auto total = static_cast<float>(framesLeft);
    UInt32 numFrames = 0;
    OSStatus status = noErr;
    qmx::LogDebug("BEFORE LOOP: framesLeft: %qi, numFrames: %u", framesLeft, numFrames);
    while (framesLeft > 0) {
        numFrames = framesAtOnce;
        qmx::LogDebug("INSIDE LOOP: framesLeft: %qi, numFrames: %u", framesLeft, numFrames);
        buffers.mBuffers[0].mDataByteSize = bytes;
        const OSStatus readStatus = conversion.source->read_numberFrames(&buffers, &numFrames);
        failure_.keepFirstOf(*conversion.source);
        if (readStatus == noErr && numFrames == 0) {
            failure_.keepFirst(eofErr, mInputFilePath, "could not be read", "it ends earlier than it says");
            break;
        }
        if (readStatus != noErr)
            framesLeft = 0;
        status = conversion.destination->write_numberFrames(&buffers, numFrames);
        failure_.keepFirstOf(*conversion.destination);
        const bool failed = status != noErr;
        if (subscriber)
            subscriber->progressUpdate(failed ? 1.0F : 1.0F - static_cast<float>(framesLeft) / total);
        framesLeft = (failed ? 0 : framesLeft) - numFrames;
        qmx::LogDebug("INSIDE LOOP END: framesLeft: %qi, numFrames: %u", framesLeft, numFrames);
    }
    return status;
}

/// The result of `step`; kAudio_MemFullError, kept as the failure, when it runs out of memory.
template <class Step> OSStatus QMXAudioFileConverterImpl::inMemory(Step step)
{
    return failure_.keepFirst(qmx::withinMemory(kAudio_MemFullError, step), mInputFilePath, "could not be converted");
}

OSStatus QMXAudioFileConverterImpl::convertFileToPath_toFileType_toFormat_subscriber(
    const std::string& destinationPath, AudioFileTypeID fileType,
    const std::shared_ptr<QMXAudioStreamBasicDescription>& format, QMXProgressSubscriber* subscriber)
{
    const qmx::LastFailure::Operation operation(failure_);
    qmx::LogDebug("Entering convertFile with args: inSourcePath: %@, inDestinationPath: %@, inFormat: %@, "
                  "inProgressSubscriber: %@",
                  mInputFilePath, destinationPath, format, subscriber ? "QMXProgressSubscriber" : "(null)");
    Conversion conversion;
    OSStatus status = inMemory([&] {
        return prepare(conversion, destinationPath, fileType, format ? format->audioStreamBasicDescription() : nullptr);
    });
    if (status != noErr)
        return status;
    status = copyFrames(conversion, subscriber);
    (void)conversion.source->close(); // nothing of it can be lost
    const OSStatus closed = conversion.destination->close();
    failure_.keepFirstOf(*conversion.destination);
    return status != noErr ? status : closed;
}

OSStatus QMXAudioFileConverterImpl::convertFileToPath_toFileType_subscriber(const std::string& destinationPath,
                                                                            AudioFileTypeID fileType,
                                                                            QMXProgressSubscriber* subscriber)
{
    const qmx::LastFailure::Operation operation(failure_);
    qmx::LogDebug("Entering convertFile with args: inSourcePath: %@, inDestinationPath: %@, inProgressSubscriber: %@",
                  mInputFilePath, destinationPath, subscriber ? "QMXProgressSubscriber" : "(null)");
    std::shared_ptr<QMXAudioStreamBasicDescription> format;
    const OSStatus status = inMemory([&]() -> OSStatus {
        Conversion look;
        if (const OSStatus opened = openSource(look); opened != noErr)
            return opened;
        // intended: the byte counts stay those of stereo; a packed format is taken by its channels and bits
        format = QMXAudioStreamBasicDescription::standardFormat(7);
        format->setSampleRate(look.source->sampleRate());
        format->setChannelsPerFrame(look.source->channelsPerFrame());
        return noErr;
    });
    return status == noErr
               ? convertFileToPath_toFileType_toFormat_subscriber(destinationPath, fileType, format, subscriber)
               : status;
}

} // namespace

std::shared_ptr<QMXAudioFileConverter> QMXAudioFileConverter::initWithInputFilePath(const std::string& path)
{
    return qmx::withinMemory(std::shared_ptr<QMXAudioFileConverter>(),
                             [&] { return std::make_shared<QMXAudioFileConverterImpl>(path); });
}
