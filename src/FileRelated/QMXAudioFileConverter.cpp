// SPDX-License-Identifier: MIT
#include "FileRelated/QMXAudioFileConverter.h"

#include "FileRelated/QMXExtAudioFile.h"
#include "Formats/FileByteOrder.h"
#include "Formats/OwnedBufferList.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Log.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace
{

constexpr UInt32 framesAtOnce = 1024;

/// The bytes of the buffer: what is stated is a lower bound, the block holds all frames of a pass.
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

/// The format of the new file. A lossless coding without a wish would keep 24 bits of the client's floats.
AudioStreamBasicDescription targetFormat(const AudioStreamBasicDescription& wish, AudioFileTypeID type,
                                         const AudioStreamBasicDescription& source)
{
    AudioStreamBasicDescription format = qmx::inByteOrderOfType(wish, type);
    if (isLossless(format) && format.mFormatFlags == 0 && fitsSixteenBits(source))
        format.mFormatFlags = kAppleLosslessFormatFlag_16BitSourceData;
    return format;
}

/// Tells the destination which channel is which, where the source knows.
void passLayoutOn(const QMXExtAudioFile& source, const QMXExtAudioFile& destination)
{
    UInt32 size = 0;
    if (ExtAudioFileGetPropertyInfo(source.extAudioFileRef(), kExtAudioFileProperty_FileChannelLayout, &size,
                                    nullptr) != noErr ||
        size == 0)
        return;
    std::vector<Byte> layout(size);
    ExtAudioFileGetProperty(source.extAudioFileRef(), kExtAudioFileProperty_FileChannelLayout, &size, layout.data());
    ExtAudioFileSetProperty(destination.extAudioFileRef(), kExtAudioFileProperty_ClientChannelLayout, size,
                            layout.data());
    if (source.channelsPerFrame() == destination.channelsPerFrame())
        ExtAudioFileSetProperty(destination.extAudioFileRef(), kExtAudioFileProperty_FileChannelLayout, size,
                                layout.data());
}

struct Conversion {
    std::shared_ptr<QMXExtAudioFile> source, destination;
    qmx::OwnedBufferList buffers;
};

/// Opens both sides.
OSStatus prepare(Conversion& conversion, const std::string& sourcePath, const std::string& destinationPath,
                 AudioFileTypeID fileType, const AudioStreamBasicDescription* format, UInt32 bitRate)
{
    const auto source = conversion.source = QMXExtAudioFile::initForReading(sourcePath);
    if (const OSStatus status = source ? source->open() : kAudio_MemFullError; status != noErr)
        return status;
    const auto client = QMXAudioStreamBasicDescription::standardFormat(0);
    client->setChannelsPerFrame(source->channelsPerFrame());
    client->setSampleRate(source->sampleRate());
    // both sides meet in this format, so that rates, channels and lengths agree
    if (const OSStatus status = source->setClientStreamFormat(*client->audioStreamBasicDescription()); status != noErr)
        return status;

    const AudioStreamBasicDescription target =
        targetFormat(format ? *format : AudioStreamBasicDescription{}, fileType, *source->fileStreamFormat());
    const auto destination = conversion.destination = QMXExtAudioFile::initForWriting_fileType_clientFormat_fileFormat(
        destinationPath, fileType, client->audioStreamBasicDescription(), &target);
    if (!destination)
        return kAudio_MemFullError;
    (void)destination->open(); // the status of its last step, which says nothing of the others
    if (const OSStatus status = destination->openingFailure(); status != noErr)
        return status;
    passLayoutOn(*source, *destination);
    if (bitRate > 0)
        destination->setBitRate(bitRate);
    conversion.buffers.reset(QMXAudioBufferList::allocateBuffers_channelsPerBuffer_dataByteSize(
        1, source->channelsPerFrame(), bufferSize(*client)));
    return conversion.buffers ? noErr : kAudio_MemFullError;
}

/// Copies all frames; gives the status of the last write.
OSStatus copyFrames(QMXExtAudioFile& source, QMXExtAudioFile& destination, AudioBufferList& buffers,
                    QMXProgressSubscriber* subscriber)
{
    const UInt32 bytes = buffers.mBuffers[0].mDataByteSize;
    SInt64 framesLeft = source.lengthInFrames();
    const auto total = static_cast<float>(framesLeft);
    UInt32 numFrames = 0;
    OSStatus status = noErr;
    qmx::LogDebug("BEFORE LOOP: framesLeft: %qi, numFrames: %u", framesLeft, numFrames);
    while (framesLeft > 0) {
        numFrames = framesAtOnce;
        qmx::LogDebug("INSIDE LOOP: framesLeft: %qi, numFrames: %u", framesLeft, numFrames);
        buffers.mBuffers[0].mDataByteSize = bytes;
        const OSStatus readStatus = source.read_numberFrames(&buffers, &numFrames);
        if (readStatus == noErr && numFrames == 0) // the file ends earlier than it says
            break;
        if (readStatus != noErr)
            framesLeft = 0;
        status = destination.write_numberFrames(&buffers, numFrames);
        const bool failed = status != noErr;
        if (subscriber)
            subscriber->progressUpdate(failed ? 1.0F : 1.0F - static_cast<float>(framesLeft) / total);
        framesLeft = (failed ? 0 : framesLeft) - numFrames;
        qmx::LogDebug("INSIDE LOOP END: framesLeft: %qi, numFrames: %u", framesLeft, numFrames);
    }
    return status;
}

} // namespace

std::shared_ptr<QMXAudioFileConverter> QMXAudioFileConverter::initWithInputFilePath(const std::string& path)
{
    return qmx::withinMemory(std::shared_ptr<QMXAudioFileConverter>(),
                             [&] { return std::shared_ptr<QMXAudioFileConverter>(new QMXAudioFileConverter(path)); });
}

QMXAudioFileConverter::QMXAudioFileConverter(std::string path) : mInputFilePath(std::move(path)) {}

OSStatus QMXAudioFileConverter::convertFileToPath_toFileType_toFormat_subscriber(
    const std::string& destinationPath, AudioFileTypeID fileType,
    const std::shared_ptr<QMXAudioStreamBasicDescription>& format, QMXProgressSubscriber* subscriber)
{
    qmx::LogDebug("Entering convertFile with args: inSourcePath: %@, inDestinationPath: %@, inFormat: %@, "
                  "inProgressSubscriber: %@",
                  mInputFilePath, destinationPath, format, subscriber ? "QMXProgressSubscriber" : "(null)");
    Conversion conversion;
    OSStatus status = qmx::withinMemory(kAudio_MemFullError, [&] {
        return prepare(conversion, mInputFilePath, destinationPath, fileType,
                       format ? format->audioStreamBasicDescription() : nullptr, bitRate_);
    });
    if (status != noErr)
        return status;
    status = copyFrames(*conversion.source, *conversion.destination, *conversion.buffers, subscriber);
    conversion.source->close();
    const OSStatus closed = conversion.destination->close();
    return status != noErr ? status : closed;
}

OSStatus QMXAudioFileConverter::convertFileToPath_toFileType_subscriber(const std::string& destinationPath,
                                                                        AudioFileTypeID fileType,
                                                                        QMXProgressSubscriber* subscriber)
{
    qmx::LogDebug("Entering convertFile with args: inSourcePath: %@, inDestinationPath: %@, inProgressSubscriber: %@",
                  mInputFilePath, destinationPath, subscriber ? "QMXProgressSubscriber" : "(null)");
    std::shared_ptr<QMXAudioStreamBasicDescription> format;
    const OSStatus status = qmx::withinMemory(kAudio_MemFullError, [&] {
        const auto source = QMXExtAudioFile::initForReading(mInputFilePath);
        if (const OSStatus opened = source ? source->open() : kAudio_MemFullError; opened != noErr)
            return opened;
        // intended: the byte counts stay those of stereo; a packed format is taken by its channels and bits
        format = QMXAudioStreamBasicDescription::standardFormat(7);
        format->setSampleRate(source->sampleRate());
        format->setChannelsPerFrame(source->channelsPerFrame());
        return noErr;
    });
    return status == noErr
               ? convertFileToPath_toFileType_toFormat_subscriber(destinationPath, fileType, format, subscriber)
               : status;
}
