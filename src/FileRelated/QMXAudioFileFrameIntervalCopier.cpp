// SPDX-License-Identifier: MIT
#include "FileRelated/QMXAudioFileFrameIntervalCopier.h"

#include "FileRelated/QMXAudioFile.h"
#include "Formats/LastFailure.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/HeapBlock.h"
#include "Foundation/Memory.h"
#include "Processing/QMXAudioConverter.h"

namespace
{

/// Of the thread's last copy.
qmx::LastFailure& failure()
{
    thread_local qmx::LastFailure failureOfThread;
    return failureOfThread;
}

OSStatus told(OSStatus status, const QMXAudioFile& file)
{
    return failure().keepFirst(status, file.path() ? std::string_view(*file.path()) : "A file without a path",
                               "could not be copied");
}

/// Reads a frame every `step` bytes, at most `room` frames; returns the position it reached. Positions are 32 bits
/// wide, which is intended.
UInt32 stageFrames(QMXAudioFile& file, UInt32 position, UInt32 end, UInt32 step, Byte* staged, UInt64 room,
                   UInt64 count, QMXProgressSubscriber* subscriber)
{
    const UInt32 frameBytes = file.bytesPerFrame();
    for (UInt64 frame = 0; position < end && frame < room; ++frame) {
        UInt32 bytes = frameBytes;
        if (told(AudioFileReadBytes(file.audioFileID(), true, position, &bytes, staged + frame * frameBytes), file) !=
            noErr)
            break;
        position += step;
        const auto done = static_cast<float>((frame + 1) * frameBytes);
        if (subscriber) // intended: up to the bytes per frame rather than 1
            subscriber->progressUpdate(count > 0 ? done / static_cast<float>(count) : 0);
    }
    return position;
}

std::shared_ptr<QMXAudioStreamBasicDescription> bigEndianFloats(const QMXAudioStreamBasicDescription& fileFormat)
{
    auto format = std::make_shared<QMXAudioStreamBasicDescription>(*fileFormat.audioStreamBasicDescription());
    format->setFormatFlags(format->formatFlags() | kAudioFormatFlagIsFloat | kAudioFormatFlagIsBigEndian);
    format->setBitsPerChannel(32);
    format->setBytesPerFrame(format->channelsPerFrame() * UInt32{sizeof(Float32)});
    format->setBytesPerPacket(format->bytesPerFrame() * format->framesPerPacket());
    if (format->formatFlags() == kAudioFormatFlagIsSignedInteger) // intended: never so after the flags above
        format->setFormatFlags(0);
    return format;
}

} // namespace

UInt32 QMXAudioFileFrameIntervalCopier::copyFramesWithInterval_fromFile_interval_toBuffer_fromFrame_toFrame(
    QMXProgressSubscriber* subscriber, QMXAudioFile& file, UInt32 interval, void* buffer, SInt64 fromFrame,
    SInt64 toFrame)
{
    const qmx::LastFailure::Operation operation(failure());
    if (fromFrame >= toFrame || interval == 0)
        return 0;
    if (!file.isOpen())
        told(fnOpnErr, file);
    const SInt64 length = file.lengthInFrames();
    if (toFrame > length)
        toFrame = length;
    if (fromFrame >= toFrame) // the cut left nothing
        return 0;
    const UInt64 frames = static_cast<UInt64>(toFrame) - static_cast<UInt64>(fromFrame);
    const UInt64 count = frames / interval;
    if (!buffer)
        return static_cast<UInt32>(count);

    const UInt32 frameBytes = file.bytesPerFrame();
    const UInt64 room = (frames - 1) / interval + 1;
    const qmx::HeapBlock staged(frameBytes > 0 ? std::calloc(room, frameBytes) : nullptr);
    const auto format = qmx::withinMemory(std::shared_ptr<QMXAudioStreamBasicDescription>(),
                                          [&] { return bigEndianFloats(*file.fileStreamFormat()); });
    if (!staged || !format) {
        told(frameBytes > 0 ? memFullErr : kAudioFileUnsupportedDataFormatError, file);
        return 0;
    }
    const auto position = [frameBytes](SInt64 frame) { return static_cast<UInt32>(frame) * frameBytes; };
    const UInt32 reached = stageFrames(file, position(fromFrame), position(toFrame), interval * frameBytes,
                                       static_cast<Byte*>(staged.get()), room, count, subscriber);
    const auto converter = QMXAudioConverter::initWithSourceFormat_destinationFormat(file.fileStreamFormat(), format);
    auto outputSize = static_cast<UInt32>(format->bytesPerFrame() * count);
    told(converter ? converter->convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(
                         staged.get(), static_cast<UInt32>(count * frameBytes), buffer, &outputSize)
                   : kAudioConverterErr_FormatNotSupported,
         file);
    return reached / frameBytes - static_cast<UInt32>(fromFrame);
}

OSStatus QMXAudioFileFrameIntervalCopier::lastStatus()
{
    return failure().status();
}

std::string QMXAudioFileFrameIntervalCopier::lastError()
{
    return failure().sentence();
}
