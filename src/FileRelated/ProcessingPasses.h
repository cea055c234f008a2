// SPDX-License-Identifier: MIT
// The passes of the file processor: packets decoded, processed, encoded and written back, 512 frames at a time.
#pragma once

#include "FileRelated/QMXAudioFileProcessor.h"
#include "Formats/LastFailure.h"
#include "Foundation/Text/FailureLine.h"
#include "Processing/QMXAudioProcessor.h"
#include "Processing/QMXProgressSubscriber.h"

#include <string_view>
#include <vector>

namespace qmx
{

/// Reports the failing steps of the file processor.
inline constexpr FailureLine checkedStep("QMXAudioFileProcessor", "coreaudio_aac/src/QMXAudioFileProcessor");

/// Frames of one pass.
inline constexpr UInt32 framesPerPass = 512;

/// What a run of passes works on. All pointers stay the caller's.
struct ProcessingRun {
    AudioStreamBasicDescription fileFormat;     ///< of both files
    AudioStreamBasicDescription internalFormat; ///< of the processor: non-interleaved floats
    AudioFileID source = nullptr;
    AudioFileID target = nullptr; ///< the source itself, or a file that is written from its start
    SInt64 firstPacket = 0;       ///< of the source
    SInt64 packetsToDo = 0;
    AudioBufferList* internalBuffers = nullptr; ///< one buffer a channel, 4 bytes a frame
    AudioBufferList* fileBuffers = nullptr;     ///< one interleaved buffer
    QMXAudioProcessor* processor = nullptr;
    QMXProgressSubscriber* subscriber = nullptr;
    QMXAudioFileProcessor::ConverterInfo* decoding = nullptr; ///< cleared after the run
    std::string_view sourcePath, targetPath;
    LastFailure& failure; ///< keeps the first failing step
};

/// Runs the passes. Nothing runs if a converter cannot be made. A failing processor or write ends the run after the
/// report of its pass. Exceptions from the processor or the subscriber pass through.
class ProcessingPasses
{
public:
    explicit ProcessingPasses(const ProcessingRun& run);
    ~ProcessingPasses();
    ProcessingPasses(const ProcessingPasses&) = delete;
    ProcessingPasses& operator=(const ProcessingPasses&) = delete;

    void run();

private:
    OSStatus told(std::string_view path, const char* whatFailed, OSStatus status, unsigned line = __builtin_LINE());
    UInt32 decode();
    OSStatus processAndWrite(UInt32 frames);
    OSStatus writeBack(UInt32 packets);
    void keepFurtherChannels(UInt32 packets);
    void setInternalFrames(UInt32 frames);

    ProcessingRun run_;
    UInt32 framesPerPacket_;
    UInt32 fileBytes_ = 0; ///< room in the file buffer
    AudioConverterRef decoder_ = nullptr;
    AudioConverterRef encoder_ = nullptr;
    SInt64 targetPacket_ = 0;
    SInt64 packetsLeft_;
    std::vector<Byte> original_; // of a pass, where the processor does not see all channels
};

} // namespace qmx
