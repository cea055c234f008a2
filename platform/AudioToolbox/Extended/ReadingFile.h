// SPDX-License-Identifier: MIT
// An extended audio file that is read.
#pragma once

#include "AudioToolbox/Extended/ExtendedFile.h"
#include "AudioToolbox/Extended/FrameSupply.h"
#include "AudioToolbox/Extended/ReadAhead.h"

#include <atomic>

namespace qmx
{

class ReadingFile final : public ExtendedFile
{
public:
    /// On failure the audio file stays the caller's.
    static OSStatus open(AudioFileID file, std::unique_ptr<ExtendedFile>& opened);
    ~ReadingFile() override;

    OSStatus read(UInt32& frames, AudioBufferList& data) override;
    OSStatus primeReads() override;
    OSStatus seek(SInt64 frame) override;
    SInt64 tell() const override { return position_.load(std::memory_order_relaxed); }
    OSStatus converterChanged() override;
    OSStatus length(SInt64& frames) override { return supply_->length(frames); }
    UInt64 missedFrames() const override { return ahead_ ? ahead_->missedFrames() : 0; }

private:
    ReadingFile(AudioFileID file, std::unique_ptr<FrameSupply> supply);

    /// How far before a place the filter of a rate change begins, so that it is in step there with a read from the start.
    struct RunIn {
        UInt32 fileFrames = 0;
        UInt32 clientFrames = 0;
    };
    static RunIn runInBetween(Float64 fileRate, Float64 clientRate);

    OSStatus connect(const AudioStreamBasicDescription& client, AudioConverterRef& converter) override;
    void connected() override;
    OSStatus rest() override;
    OSStatus settle() override { return rest(); }
    OSStatus complete() override;
    bool reads() const override { return true; }
    UInt32 leastBufferSize() const override { return supply_->leastBufferSize(); }
    void bufferChanged() override;

    void moveTo(SInt64 frame);
    OSStatus begin();
    OSStatus runIn();
    OSStatus fill(UInt32& frames, AudioBufferList& data);
    OSStatus convert(UInt32& frames, AudioBufferList& data);
    void passed(UInt32 clientFrames, bool isAtEnd);

    static OSStatus giveFrames(AudioConverterRef, UInt32* packetCount, AudioBufferList* data,
                               AudioStreamPacketDescription**, void* self);
    OSStatus giveFrames(UInt32& count, AudioBuffer& buffer);

    std::unique_ptr<FrameSupply> supply_;
    RunIn runIn_;
    std::vector<std::byte> silence_; // in the supply's format
    SInt64 silentFrames_ = 0;        // to be given before the supply's own
    bool mustBegin_ = true;          // the converter starts anew with the next frame

    SInt64 base_ = 0;         // where the stream began, in frames of the file
    UInt64 passedFrames_ = 0; // of the client since then
    std::atomic<SInt64> position_{0};
    std::atomic<SInt64> end_{0};       // as it was when the stream began
    std::shared_ptr<ReadAhead> ahead_; // once primed
};

} // namespace qmx
