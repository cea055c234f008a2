// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/ExtAudioFile.h"
#include "FileRelated/QMXAudioFile.h"
#include "Foundation/Object.h"

#include <memory>
#include <string>

/// An audio file read or written in frames of a client format, which may differ from the file's in every way. Positions
/// and lengths count frames of the file.
///
/// A failing platform call prints one line to standard error, and its status is returned; the object stays usable. All
/// operations belong to one controlling thread, but `read` and `write` may be called on a render thread: see there.
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
    /// For reading in a client format; null: in the file's own, where that is linear PCM.
    static std::shared_ptr<QMXExtAudioFile>
    initForReading_clientFormat(const std::string& path, const AudioStreamBasicDescription* clientFormat);
    /// For reading in the format that the default output unit takes: 44100 Hz, 32-bit float, stereo, not interleaved.
    static std::shared_ptr<QMXExtAudioFile> initForReading(const std::string& path);
    /// Closes.
    ~QMXExtAudioFile() override;

    /// Opens for reading or creates, by the access mode. 0 for success; on failure no file stays open.
    OSStatus open();
    /// Opens for reading and takes the client format where one was given. 0 when already open.
    OSStatus openForReading();
    /// Creates the file (one that exists is left as it is), sets the client format, feeds both channels of a stereo
    /// file from a mono client, and makes ready for writing. Each failing step is printed and the next is tried; the
    /// status is that of the last.
    OSStatus openForWriting();
    /// The status of the first failing step of the last `openForWriting`; 0 where all went well.
    OSStatus openingFailure() const { return openingFailure_; }
    /// Writes what is still on its way, closes, and stamps a written file with creator and type codes. 0 when not open;
    /// else what the platform says, a write that failed on the way included.
    OSStatus close();
    /// Stamps the file: WAVE, AIFF-C, MP3, CAF and M4A with their own type, others as AIFF.
    void changeHFSTypeCode() const;
    bool isOpen() const { return isOpen_; }
    /// What the next `open` does.
    void setFileAccessMode(QMXAudioFileAccessMode mode) { mFileAccessMode = mode; }
    /// The platform's file, which stays this object's; null while none is open.
    ExtAudioFileRef extAudioFileRef() const { return mExtAudioFileRef; }
    const std::string& path() const { return mOriginalFilePath; }
    const std::string& name() const { return mFileName; }

    /// The object's own records, all zero while not known. Once open, the client format that holds: also the platform's
    /// own choice where none was given or taken, and all zero where there is none, so that nothing can be read or
    /// written.
    const AudioStreamBasicDescription* fileStreamFormat() const { return &mFileFormat; }
    const AudioStreamBasicDescription* clientStreamFormat() const { return &mClientFormat; }
    /// Sets a format of the open file and keeps it when the platform takes it.
    OSStatus setFileStreamFormat(const AudioStreamBasicDescription& format);
    OSStatus setClientStreamFormat(const AudioStreamBasicDescription& format);
    Float64 sampleRate() const { return mFileFormat.mSampleRate; }
    UInt32 channelsPerFrame() const { return mFileFormat.mChannelsPerFrame; }
    UInt32 bitsPerChannel() const { return mFileFormat.mBitsPerChannel; }
    UInt32 bytesPerFrame() const { return mFileFormat.mBytesPerFrame; }
    Float64 clientSampleRate() const { return mClientFormat.mSampleRate; }
    UInt32 clientChannelsPerFrame() const { return mClientFormat.mChannelsPerFrame; }
    UInt32 clientBitsPerChannel() const { return mClientFormat.mBitsPerChannel; }
    UInt32 clientBytesPerFrame() const { return mClientFormat.mBytesPerFrame; }

    /// The container; a file that was never asked before is opened once for it. 0 on failure.
    AudioFileTypeID fileType();
    /// The file of the audio file service, which stays the platform's; null while none is open.
    AudioFileID audioFileId() const;
    /// Bits per second of the encoder; 0 where there is none.
    UInt32 bitRate() const;
    /// Sets them, before anything is written, where the coding lets them be set.
    void setBitRate(UInt32 bitsPerSecond);

    /// Frames of the file; -1 where they cannot be told, 0 while writing.
    SInt64 lengthInFrames();
    /// The same at the client's rate, truncated.
    SInt64 clientLengthInFrames();
    OSStatus seek(SInt64 frame);
    /// The frame of the file that is read or written next; -1 on failure.
    SInt64 offset() const;

    /// Reads `*numberFrames` client frames; `*numberFrames` and the buffers' byte sizes become what came. Fewer are the
    /// end or a failure; InvalidOperationOrder without a client format. On a render thread as ExtAudioFileRead says.
    OSStatus read_numberFrames(AudioBufferList* buffers, UInt32* numberFrames);
    /// Queues client frames for the platform's writing thread. Neither allocates nor locks: it may be called on a
    /// render thread.
    OSStatus write_numberFrames(const AudioBufferList* buffers, UInt32 numberFrames);
    /// Writes client frames and waits for the disk.
    OSStatus writeSynch_numberFrames(const AudioBufferList* buffers, UInt32 numberFrames);

private:
    explicit QMXExtAudioFile(const std::string& path);

    void resolveReferences();
    void feedBothChannels();
    OSStatus keepOpenIf(OSStatus status);
    void noteClientFormat();
    AudioConverterRef converter() const;

    QMXAudioFileAccessMode mFileAccessMode = QMXAudioFileAccessMode::read;
    AudioFileTypeID mAudioFileType = 0;
    [[maybe_unused]] UInt32 mAudioFileEncoding = 0;
    std::string mOriginalFilePath;
    std::string mParentDirPath;
    std::string mFileName;
    FSRef mParentDirRef;
    FSRef mAudioFileRef;
    SInt64 mLengthInFrames = 0;
    ExtAudioFileRef mExtAudioFileRef = nullptr;
    const AudioChannelLayout* mAudioChannelLayout = nullptr;
    AudioStreamBasicDescription mFileFormat;
    AudioStreamBasicDescription mClientFormat;
    bool isOpen_ = false;
    OSStatus openingFailure_ = noErr;
};
