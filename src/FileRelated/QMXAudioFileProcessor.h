// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/AudioToolbox/AudioConverter.h>
#include <QMXCoreAudio/AudioToolbox/AudioFile.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>
#include <string>

class QMXAudioProcessor;
class QMXProgressSubscriber;

/// Runs a processor over a range of an audio file's frames, in passes of 512: into a new file, or inside the file
/// itself. The processor gets native 32-bit floats, one buffer per channel, always whole passes; what is written back
/// is cut to the range.
///
/// Failing steps print one line each to standard error, and lastStatus() reports the first of them; the results report
/// no more than is said below. A status other than 0 from the processor ends the run before its pass is written; a read
/// or write that fails, on a full disk for instance, ends it too. The passes before stay written. A file of compressed
/// packets cannot be processed and stays as it is.
///
/// An exception from the processor or the subscriber also ends the run and reaches the caller: the files are closed,
/// and the written file keeps what it has.
///
/// Everything runs on the calling thread, which blocks; any thread but the real-time ones.
class QMX_EXPORT QMXAudioFileProcessor : public qmx::Object
{
public:
    /// Keeps all three arguments (without a processor nothing is changed, without a subscriber progress is not
    /// reported) and opens the file to learn its format.
    static std::shared_ptr<QMXAudioFileProcessor>
    initWithSourcePath_processFramesWith_progressSubscriber(const std::string& path,
                                                            std::shared_ptr<QMXAudioProcessor> processor,
                                                            std::shared_ptr<QMXProgressSubscriber> subscriber);

    /// Writes the processed frames from `startFrame` up to `endFrame` (cut to the file's end) to a new file in the
    /// source's data format: AIFF-C for 32-bit samples, else AIFF. The processor sees all channels. -1 for an end
    /// before the start; else the status of closing the new file, -50 if it could not be made (an existing file, a
    /// format that AIFF does not hold).
    [[nodiscard]] virtual OSStatus copyFramesToPath_startFrame_endFrame(const std::string& destinationPath,
                                                                        SInt64 startFrame, SInt64 endFrame) = 0;
    /// Rewrites the frames from `startFrame` up to `endFrame` (cut to the file's end) in the file itself, and nothing
    /// else in it. The processor sees two channels: the first two, or the only one twice; further ones keep their
    /// samples. Returns the status of closing the file; the object's view of the file stays closed.
    [[nodiscard]] virtual OSStatus processFrames_endFrame(SInt64 startFrame, SInt64 endFrame) = 0;

    /// The status of the first step that failed in the last run, or in opening the file of a new object: also of a pass
    /// that could not be read, processed or written, and of a file that cannot be processed. 0 if none did. Any thread
    /// but the real-time ones.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people that names the file, empty when nothing failed. Any thread but those.
    virtual std::string lastError() const = 0;

    /// The usual sample format of a file type: 16-bit integers, big-endian except in WAVE; floats in AIFF-C. All zero
    /// for types without uncompressed audio.
    static AudioStreamBasicDescription suitableStreamFormatForFileType(AudioFileTypeID fileType);
    /// Reverses the bytes of each whole word of `wordLength` bytes in `length` bytes.
    static void swapBytes_wordLength_length(void* buffer, UInt32 wordLength, UInt64 length);

    /// The state of the decoding callback, which reads packets of the file at an offset into a buffer list and advances
    /// the offset.
    struct ConverterInfo {
        AudioFileID mAudioFile = nullptr;
        SInt64 mPacketOffset = 0;
        AudioBufferList* mAudioBuffer = nullptr;
    };
};

/// Supplies a converter with the packets at the position of its ConverterInfo (`userData`).
[[nodiscard]] QMX_EXPORT OSStatus FileInputAudioConverterDataProc(AudioConverterRef converter, UInt32* packetCount,
                                                                  AudioBufferList* data,
                                                                  AudioStreamPacketDescription** packetDescriptions,
                                                                  void* userData);
/// Supplies a converter with the samples of the buffer list `userData`. Always 0.
[[nodiscard]] QMX_EXPORT OSStatus FileOutputAudioConverterDataProc(AudioConverterRef converter, UInt32* packetCount,
                                                                   AudioBufferList* data,
                                                                   AudioStreamPacketDescription** packetDescriptions,
                                                                   void* userData);
