// SPDX-License-Identifier: MIT
// Opening, creating and checking of arguments; the work is done by the reading and the writing file.
#include "AudioToolbox/ExtAudioFile.h"

#include "AudioToolbox/Extended/ExtendedProperties.h"
#include "AudioToolbox/Extended/ReadingFile.h"
#include "AudioToolbox/Extended/WritingFile.h"

#include <utility>

struct OpaqueExtAudioFile {
    std::unique_ptr<qmx::ExtendedFile> file;
};

namespace
{

OSStatus openForReading(AudioFileID audioFile, bool owns, ExtAudioFileRef* file)
{
    std::unique_ptr<qmx::ExtendedFile> reading;
    if (const OSStatus status = qmx::ReadingFile::open(audioFile, owns, reading); status != noErr)
        return status;
    *file = new OpaqueExtAudioFile{std::move(reading)};
    return noErr;
}

ExtAudioFileRef openForWriting(AudioFileID audioFile, bool owns)
{
    return new OpaqueExtAudioFile{std::make_unique<qmx::WritingFile>(audioFile, owns)};
}

} // namespace

OSStatus ExtAudioFileOpen(const FSRef* reference, ExtAudioFileRef* file)
{
    if (!file)
        return kAudio_ParamError;
    *file = nullptr;
    AudioFileID audioFile = nullptr;
    OSStatus status = AudioFileOpen(reference, fsRdPerm, 0, &audioFile);
    if (status != noErr)
        return status;
    status = openForReading(audioFile, true, file);
    if (status != noErr)
        AudioFileClose(audioFile);
    return status;
}

OSStatus ExtAudioFileWrapAudioFileID(AudioFileID audioFile, Boolean forWriting, ExtAudioFileRef* file)
{
    if (!file)
        return kAudio_ParamError;
    *file = nullptr;
    if (!audioFile)
        return kAudio_ParamError;
    if (!forWriting)
        return openForReading(audioFile, false, file);
    *file = openForWriting(audioFile, false);
    return noErr;
}

OSStatus ExtAudioFileCreateNew(const FSRef* parent, CFStringRef name, AudioFileTypeID type,
                               const AudioStreamBasicDescription* format, const AudioChannelLayout* layout,
                               ExtAudioFileRef* file)
{
    if (!file)
        return kAudio_ParamError;
    *file = nullptr;
    AudioFileID audioFile = nullptr;
    if (const OSStatus status = AudioFileCreate(parent, name, type, format, 0, nullptr, &audioFile); status != noErr)
        return status;
    *file = openForWriting(audioFile, true);
    if (layout)
        (*file)->file->setFileLayout(qmx::layoutBlock(*layout));
    return noErr;
}

OSStatus ExtAudioFileDispose(ExtAudioFileRef file)
{
    if (!file)
        return kAudio_ParamError;
    const OSStatus status = file->file->close();
    delete file;
    return status;
}

OSStatus ExtAudioFileRead(ExtAudioFileRef file, UInt32* frameCount, AudioBufferList* data)
{
    if (!file || !frameCount || (!data && *frameCount > 0))
        return kAudio_ParamError;
    return data ? file->file->read(*frameCount, *data) : file->file->primeReads();
}

OSStatus ExtAudioFileWrite(ExtAudioFileRef file, UInt32 frameCount, const AudioBufferList* data)
{
    if (!file || (!data && frameCount > 0))
        return kAudio_ParamError;
    return frameCount > 0 ? file->file->write(frameCount, *data) : noErr;
}

OSStatus ExtAudioFileWriteAsync(ExtAudioFileRef file, UInt32 frameCount, const AudioBufferList* data)
{
    if (!file || (!data && frameCount > 0))
        return kAudio_ParamError;
    return data ? file->file->writeAsync(frameCount, *data) : file->file->primeWrites();
}

OSStatus ExtAudioFileSeek(ExtAudioFileRef file, SInt64 frame)
{
    return file ? file->file->seek(frame) : kAudio_ParamError;
}

OSStatus ExtAudioFileTell(ExtAudioFileRef file, SInt64* frame)
{
    if (!file || !frame)
        return kAudio_ParamError;
    *frame = file->file->tell();
    return noErr;
}

OSStatus ExtAudioFileGetPropertyInfo(ExtAudioFileRef file, ExtAudioFilePropertyID property, UInt32* size,
                                     Boolean* isWritable)
{
    return file ? qmx::extendedPropertyInfo(*file->file, property, size, isWritable) : kAudio_ParamError;
}

OSStatus ExtAudioFileGetProperty(ExtAudioFileRef file, ExtAudioFilePropertyID property, UInt32* size, void* value)
{
    if (!file || !size || !value)
        return kAudio_ParamError;
    return qmx::extendedProperty(*file->file, property, *size, value);
}

OSStatus ExtAudioFileSetProperty(ExtAudioFileRef file, ExtAudioFilePropertyID property, UInt32 size, const void* value)
{
    if (!file || (!value && size > 0))
        return kAudio_ParamError;
    return qmx::setExtendedProperty(*file->file, property, size, value);
}

UInt64 qmx::framesMissedByRealTimeReads(ExtAudioFileRef file)
{
    return file ? file->file->missedFrames() : 0;
}
