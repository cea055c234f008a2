// SPDX-License-Identifier: MIT
// Opening, creating and checking of arguments; the reading and the writing file do the work.
#include "AudioToolbox/ExtAudioFile.h"

#include "AudioToolbox/Extended/ExtendedProperties.h"
#include "AudioToolbox/Extended/ReadingFile.h"
#include "AudioToolbox/Extended/WritingFile.h"
#include "Foundation/Files/FileManager.h"
#include "Foundation/Memory.h"

#include <utility>

struct OpaqueExtAudioFile {
    std::unique_ptr<qmx::ExtendedFile> file;
};

namespace
{

using Handle = std::unique_ptr<OpaqueExtAudioFile>;

ExtAudioFileRef withFile(Handle handle, bool owns)
{
    if (owns) // only now: until here the caller owns the audio file
        handle->file->ownFile();
    return handle.release();
}

OSStatus openForReading(AudioFileID audioFile, bool owns, ExtAudioFileRef* file)
{
    return qmx::withinMemory(kAudio_MemFullError, [&] {
        auto handle = std::make_unique<OpaqueExtAudioFile>();
        if (const OSStatus status = qmx::ReadingFile::open(audioFile, handle->file); status != noErr)
            return status;
        *file = withFile(std::move(handle), owns);
        return noErr;
    });
}

OSStatus openForWriting(AudioFileID audioFile, bool owns, const AudioChannelLayout* layout, ExtAudioFileRef* file)
{
    return qmx::withinMemory(kAudio_MemFullError, [&] {
        auto handle = std::make_unique<OpaqueExtAudioFile>();
        handle->file = std::make_unique<qmx::WritingFile>(audioFile);
        if (layout)
            handle->file->setFileLayout(qmx::layoutBlock(*layout));
        *file = withFile(std::move(handle), owns);
        return noErr;
    });
}

/// Runs a call on the extended file.
template <class Call> OSStatus call(ExtAudioFileRef file, Call made)
{
    return qmx::withinMemory(kAudio_MemFullError, [&] { return made(*file->file); });
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
        (void)AudioFileClose(audioFile); // nothing was written
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
    return openForWriting(audioFile, false, nullptr, file);
}

OSStatus ExtAudioFileCreateNew(const FSRef* parent, CFStringRef name, AudioFileTypeID type,
                               const AudioStreamBasicDescription* format, const AudioChannelLayout* layout,
                               ExtAudioFileRef* file)
{
    if (!file)
        return kAudio_ParamError;
    *file = nullptr;
    AudioFileID audioFile = nullptr;
    FSRef created;
    OSStatus status = AudioFileCreate(parent, name, type, format, 0, &created, &audioFile);
    if (status != noErr)
        return status;
    status = openForWriting(audioFile, true, layout, file);
    if (status != noErr) {
        // the first failure counts
        (void)AudioFileClose(audioFile);
        (void)qmx::FileManager::defaultManager().removeFileAtPath_handler(created.path, nullptr);
    }
    return status;
}

OSStatus ExtAudioFileDispose(ExtAudioFileRef file)
{
    if (!file)
        return kAudio_ParamError;
    const OSStatus status = call(file, [](qmx::ExtendedFile& opened) { return opened.close(); });
    delete file;
    return status;
}

OSStatus ExtAudioFileRead(ExtAudioFileRef file, UInt32* frameCount, AudioBufferList* data)
{
    if (!file || !frameCount || (!data && *frameCount > 0))
        return kAudio_ParamError;
    return call(file, [&](qmx::ExtendedFile& reading) {
        return data ? reading.read(*frameCount, *data) : reading.primeReads();
    });
}

OSStatus ExtAudioFileWrite(ExtAudioFileRef file, UInt32 frameCount, const AudioBufferList* data)
{
    if (!file || (!data && frameCount > 0))
        return kAudio_ParamError;
    return call(file,
                [&](qmx::ExtendedFile& writing) { return frameCount > 0 ? writing.write(frameCount, *data) : noErr; });
}

OSStatus ExtAudioFileWriteAsync(ExtAudioFileRef file, UInt32 frameCount, const AudioBufferList* data)
{
    if (!file || (!data && frameCount > 0))
        return kAudio_ParamError;
    return call(file, [&](qmx::ExtendedFile& writing) {
        return data ? writing.writeAsync(frameCount, *data) : writing.primeWrites();
    });
}

OSStatus ExtAudioFileSeek(ExtAudioFileRef file, SInt64 frame)
{
    if (!file)
        return kAudio_ParamError;
    return call(file, [&](qmx::ExtendedFile& opened) { return opened.seek(frame); });
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
    if (!file)
        return kAudio_ParamError;
    return call(
        file, [&](qmx::ExtendedFile& opened) { return qmx::extendedPropertyInfo(opened, property, size, isWritable); });
}

OSStatus ExtAudioFileGetProperty(ExtAudioFileRef file, ExtAudioFilePropertyID property, UInt32* size, void* value)
{
    if (!file || !size || !value)
        return kAudio_ParamError;
    return call(file, [&](qmx::ExtendedFile& opened) { return qmx::extendedProperty(opened, property, *size, value); });
}

OSStatus ExtAudioFileSetProperty(ExtAudioFileRef file, ExtAudioFilePropertyID property, UInt32 size, const void* value)
{
    if (!file || (!value && size > 0))
        return kAudio_ParamError;
    return call(file,
                [&](qmx::ExtendedFile& opened) { return qmx::setExtendedProperty(opened, property, size, value); });
}

UInt64 qmx::framesMissedByRealTimeReads(ExtAudioFileRef file)
{
    return file ? file->file->missedFrames() : 0;
}
