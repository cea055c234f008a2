// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/AudioConverter.h"
#include "AudioToolbox/AudioFile.h"
#include "Foundation/Export.h"
#include "Foundation/Object.h"

#include <memory>
#include <string>

class QMXAudioProcessor;
class QMXProgressSubscriber;

/// Runs a processor over a range of an audio file's frames, in passes of 512: into a new file, or inside the file
/// itself. The processor gets native 32-bit floats, one buffer per channel, always whole passes; what is written back
/// is cut to the range.
///
/// Failing steps print one line each to standard error, and lastStatus() tells the first of them; the results tell no
/// more than is said below. A status other than 0 from the processor ends the run before its pass is written; a read or
/// write that fails, on a full disk for instance, ends it too. The passes before stay written. A file of compressed
/// packets cannot be processed and stays as it is.
///
/// What the processor or the subscriber throws ends the run likewise and goes on to the caller: the files are closed,
/// and the one that was written stays as far as it came.
///
/// All on the caller's thread, which blocks; any but the real-time ones.
class QMX_EXPORT QMXAudioFileProcessor : public qmx::Object
{
public:
    /// Keeps all three (the last two may be null: nothing is changed then, nobody hears) and opens the file to learn
    /// its format.
    static std::shared_ptr<QMXAudioFileProcessor>
    initWithSourcePath_processFramesWith_progressSubscriber(const std::string& path,
                                                            std::shared_ptr<QMXAudioProcessor> processor,
                                                            std::shared_ptr<QMXProgressSubscriber> subscriber);

    /// Writes the processed frames from `startFrame` up to `endFrame` (cut to the file's end) to a new file in the
    /// source's data format: AIFF-C for 32-bit samples, else AIFF. The processor sees all channels. -1 for an end
    /// before the start; else the status of closing the new file, which is -50 where it could not be made (a file that
    /// exists, a format that AIFF does not hold).
    [[nodiscard]] virtual OSStatus copyFramesToPath_startFrame_endFrame(const std::string& destinationPath,
                                                                        SInt64 startFrame, SInt64 endFrame) = 0;
    /// Rewrites the frames from `startFrame` up to `endFrame` (cut to the file's end) in the file itself, and nothing
    /// else in it. The processor sees two channels: the first two, or the only one twice; further ones keep their
    /// samples. Gives the status of closing the file; the object's view of the file stays closed.
    [[nodiscard]] virtual OSStatus processFrames_endFrame(SInt64 startFrame, SInt64 endFrame) = 0;

    /// The status of the first step that failed in the last run, or in opening the file when the object is new: also of
    /// a pass that could not be read, processed or written, and of a file that cannot be processed. 0 when none did.
    /// Any thread but the real-time ones.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people that names the file, empty when nothing failed. Any thread but those.
    virtual std::string lastError() const = 0;

    /// The usual sample format of a file type: 16-bit integers, big-endian but in WAVE; floats in AIFF-C. All zero for
    /// types without uncompressed audio.
    static AudioStreamBasicDescription suitableStreamFormatForFileType(AudioFileTypeID fileType);
    /// Reverses the bytes of each whole word of `wordLength` bytes in `length` bytes.
    static void swapBytes_wordLength_length(void* buffer, UInt32 wordLength, UInt64 length);

    /// What the decoding callback works on: it reads packets of the file at an offset into a buffer list, and moves the
    /// offset on.
    struct ConverterInfo {
        AudioFileID mAudioFile = nullptr;
        SInt64 mPacketOffset = 0;
        AudioBufferList* mAudioBuffer = nullptr;
    };
};

/// Gives a converter the packets that its ConverterInfo (`userData`) is at.
[[nodiscard]] QMX_EXPORT OSStatus FileInputAudioConverterDataProc(AudioConverterRef converter, UInt32* packetCount,
                                                                  AudioBufferList* data,
                                                                  AudioStreamPacketDescription** packetDescriptions,
                                                                  void* userData);
/// Gives a converter the samples of the buffer list `userData`. Always 0.
[[nodiscard]] QMX_EXPORT OSStatus FileOutputAudioConverterDataProc(AudioConverterRef converter, UInt32* packetCount,
                                                                   AudioBufferList* data,
                                                                   AudioStreamPacketDescription** packetDescriptions,
                                                                   void* userData);
