// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/AudioToolbox/ExtAudioFile.h>
#include <QMXCoreAudio/FileRelated/QMXAudioFile.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>
#include <string>

/// An audio file read or written in frames of a client format, which may differ from the file's in every way. Positions
/// and lengths count frames of the file.
///
/// A failing platform call prints one line to standard error, and its status is returned; the object stays usable. One
/// controlling thread calls all operations, but `read` and `write` may be called on a render thread: see there.
/// Releasing the last reference closes the file.
class QMX_EXPORT QMXExtAudioFile : public qmx::Object
{
public:
    // None of these opens the file. Null when memory is short.
    /// A closed object on `path` (the file need not exist), without type and formats.
    static std::shared_ptr<QMXExtAudioFile> init(const std::string& path);
    /// For a new file of a type and data format, written in a client format. Null records are left zero.
    static std::shared_ptr<QMXExtAudioFile>
    initForWriting_fileType_clientFormat_fileFormat(const std::string& path, AudioFileTypeID fileType,
                                                    const AudioStreamBasicDescription* clientFormat,
                                                    const AudioStreamBasicDescription* fileFormat);
    /// The same without a client format: linear PCM is then written in the file's own.
    static std::shared_ptr<QMXExtAudioFile>
    initForWriting_fileType_fileFormat(const std::string& path, AudioFileTypeID fileType,
                                       const AudioStreamBasicDescription* fileFormat);
    /// For reading in a client format; null: in the file's own, if that is linear PCM.
    static std::shared_ptr<QMXExtAudioFile>
    initForReading_clientFormat(const std::string& path, const AudioStreamBasicDescription* clientFormat);
    /// For reading in the format that the default output unit takes: 44100 Hz, 32-bit float, stereo, not interleaved.
    static std::shared_ptr<QMXExtAudioFile> initForReading(const std::string& path);

    /// Opens for reading or creates, by the access mode. 0 for success; on failure no file stays open.
    [[nodiscard]] virtual OSStatus open() = 0;
    /// Opens for reading and sets the client format if one was given. 0 when already open.
    [[nodiscard]] virtual OSStatus openForReading() = 0;
    /// Creates the file (an existing one is left as it is), sets the client format, feeds both channels of a stereo
    /// file from a mono client, and prepares for writing. Each failing step is printed and the next is tried; the
    /// result is the status of the last step; lastStatus() reports the first that failed.
    [[nodiscard]] virtual OSStatus openForWriting() = 0;
    /// Writes what is still queued, closes, and stamps a written file with creator and type codes. 0 when not open;
    /// else the platform's status, also for an earlier write that failed.
    [[nodiscard]] virtual OSStatus close() = 0;
    /// Stamps the file: WAVE, AIFF-C, MP3, CAF and M4A with their own type, others as AIFF.
    virtual void changeHFSTypeCode() const = 0;
    virtual bool isOpen() const = 0;

    /// The status of the first step that failed in the last operation that can fail, even if its result hides it; 0 if
    /// none did. On threads marked real-time only the results report failures: `read` and `write` leave this unchanged
    /// there. Any other thread.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people that names the file, empty when nothing failed. Any thread but those.
    virtual std::string lastError() const = 0;

    /// What the next `open` does.
    virtual void setFileAccessMode(QMXAudioFileAccessMode mode) = 0;
    /// Whether the next `open` for writing makes a file that opens after this process was killed, without the last
    /// second of what was written at most: see kExtAudioFileProperty_KeepsFileReadable. Off at first: an MPEG-4 file
    /// whose writer was killed then does not open. For a type that cannot have it (compressed CAF) `open` succeeds and
    /// lastStatus() is 'op??'.
    virtual void setKeepsFileReadableWhileWriting(bool keeps) = 0;
    /// The platform's file, which stays this object's; null while none is open.
    virtual ExtAudioFileRef extAudioFileRef() const = 0;
    virtual const std::string& path() const = 0;
    virtual const std::string& name() const = 0;

    /// The object's own records, all zero while unknown. While the file is open, the client format is the one in force:
    /// the platform's own choice if none was given or accepted, and all zero if there is none, so that nothing can be
    /// read or written.
    virtual const AudioStreamBasicDescription* fileStreamFormat() const = 0;
    virtual const AudioStreamBasicDescription* clientStreamFormat() const = 0;
    /// Sets a format of the open file and keeps it if the platform accepts it.
    [[nodiscard]] virtual OSStatus setFileStreamFormat(const AudioStreamBasicDescription& format) = 0;
    [[nodiscard]] virtual OSStatus setClientStreamFormat(const AudioStreamBasicDescription& format) = 0;
    Float64 sampleRate() const { return fileStreamFormat()->mSampleRate; }
    UInt32 channelsPerFrame() const { return fileStreamFormat()->mChannelsPerFrame; }
    UInt32 bitsPerChannel() const { return fileStreamFormat()->mBitsPerChannel; }
    UInt32 bytesPerFrame() const { return fileStreamFormat()->mBytesPerFrame; }
    Float64 clientSampleRate() const { return clientStreamFormat()->mSampleRate; }
    UInt32 clientChannelsPerFrame() const { return clientStreamFormat()->mChannelsPerFrame; }
    UInt32 clientBitsPerChannel() const { return clientStreamFormat()->mBitsPerChannel; }
    UInt32 clientBytesPerFrame() const { return clientStreamFormat()->mBytesPerFrame; }

    /// The container; if it is not known yet, the file is opened once to find out. 0 on failure.
    virtual AudioFileTypeID fileType() = 0;
    /// The file of the audio file service, which stays the platform's; null while none is open.
    virtual AudioFileID audioFileId() const = 0;
    /// Bits per second of the encoder; 0 if there is none.
    virtual UInt32 bitRate() const = 0;
    /// Sets the encoder's bits per second, before anything is written, if the coding allows it; lastStatus() reports a
    /// rate that it refuses.
    virtual void setBitRate(UInt32 bitsPerSecond) = 0;

    /// Frames of the file; -1 if unknown, 0 while writing.
    virtual SInt64 lengthInFrames() = 0;
    /// The same at the client's rate, truncated.
    SInt64 clientLengthInFrames();
    /// Moves to a frame of the file, as ExtAudioFileSeek does, whose status it returns.
    [[nodiscard]] virtual OSStatus seek(SInt64 frame) = 0;
    /// The frame of the file that is read or written next; -1 on failure.
    virtual SInt64 offset() const = 0;

    /// Reads `*numberFrames` client frames; `*numberFrames` and the buffers' byte sizes become what was read. Fewer
    /// frames mean the end or a failure; InvalidOperationOrder without a client format. On a render thread it behaves
    /// as ExtAudioFileRead does.
    [[nodiscard]] virtual OSStatus read_numberFrames(AudioBufferList* buffers, UInt32* numberFrames) = 0;
    /// Queues client frames for the platform's writing thread. Neither allocates nor locks: it may be called on a
    /// render thread.
    [[nodiscard]] virtual OSStatus write_numberFrames(const AudioBufferList* buffers, UInt32 numberFrames) = 0;
    /// Writes client frames and waits for the disk.
    [[nodiscard]] virtual OSStatus writeSynch_numberFrames(const AudioBufferList* buffers, UInt32 numberFrames) = 0;
};
