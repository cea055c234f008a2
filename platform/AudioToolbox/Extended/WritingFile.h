// SPDX-License-Identifier: MIT
// An extended audio file that is written.
#pragma once

#include "AudioToolbox/Extended/AsyncWrites.h"
#include "AudioToolbox/Extended/ExtendedFile.h"

#include <atomic>

namespace qmx
{

class WritingFile final : public ExtendedFile
{
public:
    explicit WritingFile(AudioFileID file);
    ~WritingFile() override;

    OSStatus write(UInt32 frames, const AudioBufferList& data) override;
    OSStatus writeAsync(UInt32 frames, const AudioBufferList& data) override;
    OSStatus primeWrites() override;
    OSStatus seek(SInt64 frame) override;
    SInt64 tell() const override;
    OSStatus length(SInt64& frames) override;
    OSStatus converterChanged() override;
    OSStatus maximumPacketSize(UInt32& bytes) override;
    bool canSetLength() const override { return isLinear(); }
    OSStatus setLength(SInt64 frames) override;
    bool canSetKeepsReadable() const override { return true; }
    OSStatus setKeepsReadable(UInt32 keeps) override;

private:
    OSStatus connect(const AudioStreamBasicDescription& client, AudioConverterRef& converter) override;
    void connected() override;
    OSStatus rest() override;
    OSStatus settle() override;
    OSStatus complete() override;
    bool reads() const override { return false; }
    UInt32 leastBufferSize() const override { return packetSize_; }
    void bufferChanged() override;

    bool isLinear() const { return fileFormat_.mFramesPerPacket == 1 && fileFormat_.mBytesPerPacket > 0; }
    OSStatus failure() const { return failure_.load(std::memory_order_acquire); }
    void fitBuffer();
    OSStatus beginPackets();
    OSStatus describePackets(SInt64 validFrames);
    void describeEmpty();
    OSStatus encode(const AudioBufferList* data, UInt32 frames);
    OSStatus convert();
    OSStatus writePackets(UInt32& packets, bool& isUsedUp);

    static OSStatus giveFrames(AudioConverterRef, UInt32* packetCount, AudioBufferList* data,
                               AudioStreamPacketDescription**, void* self);

    // what the converter is supplied with
    const AudioBufferList* given_ = nullptr;
    UInt32 givenFrames_ = 0;

    // what the converter makes, in the buffer
    std::vector<AudioStreamPacketDescription> descriptions_; // for packets of variable size
    UInt32 packetSize_ = 1;                                  // the maximum size that may come
    UInt32 packetsAtOnce_ = 0;
    SInt64 nextPacket_ = 0;
    bool hasBegun_ = false; // packets of a coding that starts with a cookie

    SInt64 base_ = 0;                       // where the stream started, in frames of the file
    std::atomic<UInt64> acceptedFrames_{0}; // of the client since then
    std::atomic<OSStatus> failure_{noErr};  // of the first write that failed: nothing is written after it
    std::shared_ptr<AsyncWrites> queue_;    // once primed
};

} // namespace qmx
