// SPDX-License-Identifier: MIT
#include "FileRelated/ProcessingPasses.h"

#include "Foundation/Memory.h"

#include <algorithm>
#include <cstring>

namespace qmx
{
namespace
{

constexpr auto cannotBeRead = "could not be read", cannotBeProcessed = "could not be processed",
               cannotBeWritten = "could not be written";

} // namespace

ProcessingPasses::ProcessingPasses(const ProcessingRun& run)
    : run_(run), framesPerPacket_(std::max<UInt32>(1, run.fileFormat.mFramesPerPacket)), packetsLeft_(run.packetsToDo)
{
    if (run.fileBuffers)
        fileBytes_ = run.fileBuffers->mBuffers[0].mDataByteSize;
    if (run.fileFormat.mBytesPerFrame == 0) // compressed packets
        run.failure.keepFirst(kAudioFileUnsupportedDataFormatError, run.sourcePath, cannotBeProcessed);
    told(run_.sourcePath, cannotBeProcessed, AudioConverterNew(&run.fileFormat, &run.internalFormat, &decoder_));
    told(run_.targetPath, cannotBeWritten, AudioConverterNew(&run.internalFormat, &run.fileFormat, &encoder_));
}

ProcessingPasses::~ProcessingPasses()
{
    for (const AudioConverterRef converter : {decoder_, encoder_})
        (void)AudioConverterDispose(converter); // there may be none
    *run_.decoding = {};                        // what it points at is not its own
}

void ProcessingPasses::run()
{
    if (!run_.internalBuffers || !run_.fileBuffers)
        run_.failure.keepFirst(memFullErr, run_.sourcePath, cannotBeProcessed);
    if (!decoder_ || !encoder_ || !run_.internalBuffers || !run_.fileBuffers)
        return;
    SInt64 packet = run_.firstPacket;
    for (bool goesOn = true; goesOn && packetsLeft_ > 0;) {
        run_.decoding->mPacketOffset = packet;
        if (run_.target == run_.source) // a pass goes back where it was read, however long it became
            targetPacket_ = packet;
        const UInt32 frames = decode();
        const OSStatus status = processAndWrite(frames);
        if (run_.subscriber) // intended: of this pass alone, not of all so far
            run_.subscriber->progressUpdate(
                static_cast<float>(1.0 - static_cast<double>(frames) / static_cast<double>(run_.packetsToDo)));
        const UInt32 taken = frames / framesPerPacket_;
        packet += taken;
        packetsLeft_ -= taken;
        goesOn = taken > 0 && status == noErr;
    }
    if (packetsLeft_ > 0)
        run_.failure.keepFirst(eofErr, run_.sourcePath, cannotBeRead, "it ends earlier than it says");
}

/// Prints a failing step and keeps the first.
OSStatus ProcessingPasses::told(std::string_view path, const char* whatFailed, OSStatus status, unsigned line)
{
    return run_.failure.keepFirst(checkedStep(status, line), path, whatFailed);
}

/// Fills the internal buffers; returns the frames decoded, 0 on failure.
UInt32 ProcessingPasses::decode()
{
    setInternalFrames(framesPerPass);
    run_.fileBuffers->mBuffers[0].mDataByteSize = fileBytes_;
    UInt32 frames = framesPerPass;
    const OSStatus status =
        told(run_.sourcePath, cannotBeRead,
             AudioConverterFillComplexBuffer(decoder_, &FileInputAudioConverterDataProc, run_.decoding, &frames,
                                             run_.internalBuffers, nullptr));
    if (status != noErr)
        return 0;
    const AudioBuffer& packets = run_.fileBuffers->mBuffers[0];
    if (run_.internalFormat.mChannelsPerFrame < run_.fileFormat.mChannelsPerFrame && packets.mData) {
        const auto* const bytes = static_cast<const Byte*>(packets.mData);
        const auto keep = [&] {
            original_.assign(bytes, bytes + std::size_t{frames} * run_.fileFormat.mBytesPerFrame);
        };
        if (!withinMemory(keep)) {
            told(run_.sourcePath, cannotBeRead, memFullErr);
            return 0;
        }
    }
    return frames;
}

/// Hands the pass to the processor and writes the result, at most a pass; writes nothing if the processor fails.
OSStatus ProcessingPasses::processAndWrite(UInt32 frames)
{
    UInt32 count = frames * framesPerPacket_;
    setInternalFrames(frames);
    OSStatus status = noErr;
    if (run_.processor && frames > 0)
        status = told(run_.sourcePath, cannotBeProcessed,
                      run_.processor->processAudio_numberOfFrames(*run_.internalBuffers, &count));
    const UInt32 packets = std::min(count, framesPerPass) / framesPerPacket_;
    if (status != noErr || packets == 0)
        return status;
    return writeBack(static_cast<UInt32>(std::min<SInt64>(packets, packetsLeft_)));
}

OSStatus ProcessingPasses::writeBack(UInt32 packets)
{
    setInternalFrames(packets * framesPerPacket_);
    AudioBuffer& buffer = run_.fileBuffers->mBuffers[0];
    buffer.mDataByteSize = fileBytes_;
    OSStatus status = told(run_.targetPath, cannotBeWritten,
                           AudioConverterFillComplexBuffer(encoder_, &FileOutputAudioConverterDataProc,
                                                           run_.internalBuffers, &packets, run_.fileBuffers, nullptr));
    if (status != noErr)
        return status;
    keepFurtherChannels(packets);
    status = told(run_.targetPath, cannotBeWritten,
                  AudioFileWritePackets(run_.target, false, packets * run_.fileFormat.mBytesPerPacket, nullptr,
                                        targetPacket_, &packets, buffer.mData));
    targetPacket_ += packets;
    return status;
}

/// Channels that the processor does not see stay what they were.
void ProcessingPasses::keepFurtherChannels(UInt32 packets)
{
    const UInt32 channels = run_.fileFormat.mChannelsPerFrame, seen = run_.internalFormat.mChannelsPerFrame;
    if (seen >= channels)
        return;
    const std::size_t frameBytes = run_.fileFormat.mBytesPerFrame, seenBytes = frameBytes / channels * seen;
    auto* const written = static_cast<Byte*>(run_.fileBuffers->mBuffers[0].mData);
    for (std::size_t at = 0; at + frameBytes <= std::min(original_.size(), packets * frameBytes); at += frameBytes)
        std::memcpy(written + at + seenBytes, original_.data() + at + seenBytes, frameBytes - seenBytes);
}

void ProcessingPasses::setInternalFrames(UInt32 frames)
{
    AudioBuffer* buffer = run_.internalBuffers->mBuffers;
    for (UInt32 i = 0; i < run_.internalBuffers->mNumberBuffers; ++i, ++buffer)
        buffer->mDataByteSize = frames * UInt32{sizeof(Float32)};
}

} // namespace qmx

OSStatus FileInputAudioConverterDataProc(AudioConverterRef, UInt32* packetCount, AudioBufferList* data,
                                         AudioStreamPacketDescription**, void* userData)
{
    auto& info = *static_cast<QMXAudioFileProcessor::ConverterInfo*>(userData);
    const AudioBuffer& packets = info.mAudioBuffer->mBuffers[0];
    UInt32 largestPacket = 0;
    UInt32 bytes = sizeof largestPacket;
    OSStatus status =
        AudioFileGetProperty(info.mAudioFile, kAudioFilePropertyMaximumPacketSize, &bytes, &largestPacket);
    if (status != noErr)
        return status;
    *packetCount = std::min(*packetCount, largestPacket > 0 ? packets.mDataByteSize / largestPacket : 0);
    status =
        AudioFileReadPackets(info.mAudioFile, false, &bytes, nullptr, info.mPacketOffset, packetCount, packets.mData);
    if (status == eofErr)
        status = noErr;
    if (status != noErr)
        return status;
    info.mPacketOffset += *packetCount;
    AudioBuffer* buffer = data->mBuffers;
    for (UInt32 i = 0; i < data->mNumberBuffers; ++i, ++buffer) {
        buffer->mData = packets.mData;
        buffer->mDataByteSize = bytes;
    }
    return noErr;
}

OSStatus FileOutputAudioConverterDataProc(AudioConverterRef, UInt32*, AudioBufferList* data,
                                          AudioStreamPacketDescription**, void* userData)
{
    const auto& processed = *static_cast<const AudioBufferList*>(userData);
    const AudioBuffer* from = processed.mBuffers;
    AudioBuffer* to = data->mBuffers;
    for (UInt32 i = 0; i < std::min(data->mNumberBuffers, processed.mNumberBuffers); ++i)
        *to++ = *from++;
    return noErr;
}
