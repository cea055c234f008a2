// SPDX-License-Identifier: MIT
// An extended audio file that is read.
#pragma once

#include "AudioToolbox/Extended/ExtendedFile.h"
#include "AudioToolbox/Extended/FrameSupply.h"
#include "AudioToolbox/Extended/PlaneList.h"
#include "AudioToolbox/Extended/ReadAhead.h"

#include <atomic>
#include <limits>
#include <optional>

namespace qmx
{

class ReadingFile final : public ExtendedFile
{
public:
    /// On failure the caller keeps the audio file.
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

    OSStatus connect(const AudioStreamBasicDescription& client, AudioConverterRef& converter) override;
    void connected() override;
    OSStatus rest() override;
    OSStatus settle() override { return rest(); }
    OSStatus complete() override;
    bool reads() const override { return true; }
    UInt32 leastBufferSize() const override { return supply_->leastBufferSize(); }
    void bufferChanged() override;

    /// Client frames per frame of the file; 1 without a client format.
    Float64 ratio() const;
    SInt64 clientFrameAt(SInt64 fileFrame) const;
    SInt64 fileFrameAt(SInt64 clientFrame) const;

    /// A run of the filter of a rate change: the frame of the file where it starts, and the client frame where the next
    /// run takes over. Without a change of the rate one run serves the whole file.
    struct FilterRun {
        SInt64 start = 0;
        SInt64 end = std::numeric_limits<SInt64>::max();
    };

    void moveTo(SInt64 frame);
    void startAgain();
    OSStatus prepare();
    OSStatus begin();
    FilterRun runFor(SInt64 clientFrame);
    UInt64 period();
    SInt64 meetingBefore(SInt64 frame) const;
    OSStatus drop(SInt64 clientFrames);
    OSStatus fill(UInt32& frames, AudioBufferList& data);
    void changeRuns();
    OSStatus convert(UInt32& frames, AudioBufferList& data);
    void passed(UInt32 clientFrames, bool isAtEnd);

    static OSStatus giveFrames(AudioConverterRef, UInt32* packetCount, AudioBufferList* data,
                               AudioStreamPacketDescription**, void* self);
    OSStatus giveFrames(UInt32& count, AudioBuffer& buffer);

    std::unique_ptr<FrameSupply> supply_;
    bool mustBegin_ = true; // the converter starts again with the next frame
    UInt64 period_ = 0;     // of the filter of a rate change, once computed
    std::optional<UInt32> periodQuality_;

    // frames of the client from the file's start
    SInt64 streamStart_ = 0; // where the converter starts
    SInt64 nextFrame_ = 0;   // the next one that is read
    SInt64 converted_ = 0;   // the next one that is converted
    FilterRun run_;
    std::optional<PlaneList> part_; // of the caller's list
    std::atomic<SInt64> position_{0};
    std::atomic<SInt64> end_{0};       // as it was when the stream started
    std::shared_ptr<ReadAhead> ahead_; // once primed
};

} // namespace qmx
