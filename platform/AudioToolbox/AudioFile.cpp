// SPDX-License-Identifier: MIT
// Opening, creating and checking of arguments; the container does all that concerns the file's contents.
#include "AudioToolbox/AudioFile.h"

#include "AudioToolbox/Containers/ContainerProperties.h"
#include "AudioToolbox/Containers/ContainerTable.h"
#include "Foundation/Files/Fork.h"
#include "Foundation/Memory.h"
#include "Foundation/ModuleLoader.h"

#include <unistd.h>

#include <cerrno>
#include <mutex>

struct OpaqueAudioFileID {
    std::unique_ptr<qmx::Container> container;
    bool mayRead = true;
    bool mayWrite = false;
    pid_t writer = getpid(); // the process that wrote last: a forked copy knows an older state of the file
    std::mutex mutex;        // a cache thread and the caller may transfer at once
};

namespace
{

using qmx::Container;
using qmx::ContainerKind;
using qmx::File;
using qmx::FileAccess;
using qmx::FileSystem;
using qmx::SystemError;

bool isPermission(SInt8 permissions)
{
    return permissions >= fsCurPerm && permissions <= fsRdWrPerm;
}

bool forbidsWriting(SystemError error)
{
    return error == EACCES || error == EPERM || error == EROFS || error == ETXTBSY;
}

// fsCurPerm: for writing if that is allowed, else for reading.
SystemError openFile(const std::string& path, SInt8 permissions, std::unique_ptr<File>& file, bool& forWriting)
{
    forWriting = permissions != fsRdPerm;
    if (forWriting) {
        const SystemError error = FileSystem::current().open(path, FileAccess::readWrite, file);
        if (permissions != fsCurPerm || !forbidsWriting(error))
            return error;
        forWriting = false;
    }
    return FileSystem::current().open(path, FileAccess::read, file);
}

OSStatus findKind(File& file, const std::string& path, AudioFileTypeID hint, const ContainerKind*& kind)
{
    qmx::FileSigns signs{.head = {}, .path = path, .file = file, .hint = hint};
    const qmx::Transfer done = file.read(signs.head.data(), signs.head.size(), 0);
    if (done.error != 0)
        return qmx::statusForSystemError(done.error);
    kind = qmx::kindForContents(signs);
    return kind ? noErr : kAudioFileUnsupportedFileTypeError;
}

// Whether a file of this type and format can be made; checked before the disk is touched.
OSStatus checkNewFile(AudioFileTypeID type, const AudioStreamBasicDescription* format, UInt32 flags,
                      const ContainerKind*& kind)
{
    if (flags != 0)
        return paramErr;
    kind = qmx::kindForType(type);
    if (!kind || !kind->create)
        return kAudioFileUnsupportedFileTypeError;
    return format && kind->holds(*format) ? noErr : kAudioFileUnsupportedDataFormatError;
}

// Makes the file an empty one of its kind. A fork there was an earlier file's, unless the kind keeps its own.
OSStatus makeContainer(const ContainerKind& kind, qmx::PlacedFile placed, const AudioStreamBasicDescription& format,
                       std::unique_ptr<Container>& container)
{
    const std::string path = placed.path;
    const OSStatus status = kind.create(std::move(placed), format, container);
    if (status == noErr && !kind.keepsFork)
        (void)qmx::removeFork(path); // a fork that stays is outranked by the contents
    return status;
}

using Handle = std::unique_ptr<OpaqueAudioFileID>;

Handle newHandle(bool mayRead, bool mayWrite)
{
    auto handle = std::make_unique<OpaqueAudioFileID>();
    handle->mayRead = mayRead;
    handle->mayWrite = mayWrite;
    return handle;
}

bool isUsableName(const std::string& name)
{
    return !name.empty() && name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

std::string pathOf(const FSRef& directory, const std::string& name)
{
    return directory.path.ends_with('/') ? directory.path + name : directory.path + '/' + name;
}

// Checks what all transfers have in common, and makes the transfer under the file's lock. `count` is 0 if none was
// made.
template <class Call>
OSStatus transfer(AudioFileID file, bool OpaqueAudioFileID::*isAllowed, SInt64 start, UInt32* count, const void* buffer,
                  Call call)
{
    if (!file || !count || (!buffer && *count > 0))
        return paramErr;
    OSStatus status = noErr;
    if (!(file->*isAllowed))
        status = kAudioFilePermissionsError;
    else if (start < 0)
        status = kAudioFilePositionError;
    if (status != noErr) {
        *count = 0;
        return status;
    }
    const std::scoped_lock lock(file->mutex);
    if (isAllowed == &OpaqueAudioFileID::mayWrite)
        file->writer = getpid();
    return qmx::withinMemory(memFullErr, [&] { return call(*file->container); });
}

} // namespace

OSStatus AudioFileOpen(const FSRef* reference, SInt8 permissions, AudioFileTypeID typeHint, AudioFileID* file)
{
    return qmx::withinMemory(memFullErr, [&]() -> OSStatus {
        if (!file)
            return paramErr;
        *file = nullptr;
        qmx::forgetMissingModule();
        if (!reference || !isPermission(permissions))
            return paramErr;
        if (reference->path.empty())
            return fnfErr;
        std::unique_ptr<File> opened;
        bool forWriting = false;
        if (const SystemError error = openFile(reference->path, permissions, opened, forWriting); error != 0)
            return qmx::statusForSystemError(error);
        const ContainerKind* kind = nullptr;
        if (const OSStatus status = findKind(*opened, reference->path, typeHint, kind); !kind)
            return status;
        Handle handle = newHandle(permissions != fsWrPerm, forWriting);
        const OSStatus status = kind->open({std::move(opened), reference->path}, forWriting, handle->container);
        if (status == noErr)
            *file = handle.release();
        return status;
    });
}

OSStatus AudioFileCreate(const FSRef* parent, CFStringRef name, AudioFileTypeID type,
                         const AudioStreamBasicDescription* format, UInt32 flags, FSRef* newFile, AudioFileID* file)
{
    return qmx::withinMemory(memFullErr, [&]() -> OSStatus {
        if (!file)
            return paramErr;
        *file = nullptr;
        qmx::forgetMissingModule();
        if (!parent || parent->path.empty())
            return paramErr;
        const ContainerKind* kind = nullptr;
        if (const OSStatus status = checkNewFile(type, format, flags, kind); status != noErr)
            return status;
        const std::string text = CFStringGetText(name);
        if (!isUsableName(text))
            return bdNamErr;
        std::string path = pathOf(*parent, text);
        Handle handle = newHandle(true, true);
        std::unique_ptr<File> created;
        if (const SystemError error = FileSystem::current().open(path, FileAccess::createNew, created); error != 0)
            return qmx::statusForSystemError(error);
        const OSStatus status = qmx::withinMemory(memFullErr, [&] {
            return makeContainer(*kind, {std::move(created), path}, *format, handle->container);
        });
        if (status != noErr) {
            (void)FileSystem::current().remove(path); // the first failure counts
            return status;
        }
        if (newFile)
            newFile->path = std::move(path);
        *file = handle.release();
        return noErr;
    });
}

OSStatus AudioFileInitialize(const FSRef* reference, AudioFileTypeID type, const AudioStreamBasicDescription* format,
                             UInt32 flags, AudioFileID* file)
{
    return qmx::withinMemory(memFullErr, [&]() -> OSStatus {
        if (!file)
            return paramErr;
        *file = nullptr;
        qmx::forgetMissingModule();
        if (!reference)
            return paramErr;
        const ContainerKind* kind = nullptr;
        if (const OSStatus status = checkNewFile(type, format, flags, kind); status != noErr)
            return status;
        if (reference->path.empty())
            return fnfErr;
        std::unique_ptr<File> opened;
        if (const SystemError error = FileSystem::current().open(reference->path, FileAccess::readWrite, opened);
            error != 0)
            return qmx::statusForSystemError(error);
        Handle handle = newHandle(true, true);
        const OSStatus status = makeContainer(*kind, {std::move(opened), reference->path}, *format, handle->container);
        if (status == noErr)
            *file = handle.release();
        return status;
    });
}

OSStatus AudioFileClose(AudioFileID file)
{
    if (!file)
        return paramErr;
    const bool isWriter = file->mayWrite && file->writer == getpid();
    const OSStatus status = isWriter ? qmx::withinMemory(memFullErr, [&] { return file->container->finish(); }) : noErr;
    delete file;
    return status;
}

OSStatus AudioFileReadBytes(AudioFileID file, Boolean, SInt64 start, UInt32* byteCount, void* buffer)
{
    return transfer(file, &OpaqueAudioFileID::mayRead, start, byteCount, buffer, [&](Container& container) {
        return container.readBytes(static_cast<UInt64>(start), *byteCount, buffer);
    });
}

OSStatus AudioFileWriteBytes(AudioFileID file, Boolean, SInt64 start, UInt32* byteCount, const void* buffer)
{
    return transfer(file, &OpaqueAudioFileID::mayWrite, start, byteCount, buffer, [&](Container& container) {
        return container.writeBytes(static_cast<UInt64>(start), *byteCount, buffer);
    });
}

OSStatus AudioFileReadPackets(AudioFileID file, Boolean, UInt32* byteCount, AudioStreamPacketDescription* descriptions,
                              SInt64 start, UInt32* packetCount, void* buffer)
{
    if (!byteCount)
        return paramErr;
    *byteCount = 0;
    return transfer(file, &OpaqueAudioFileID::mayRead, start, packetCount, buffer, [&](Container& container) {
        return container.readPackets(static_cast<UInt64>(start), *packetCount, *byteCount, descriptions, buffer);
    });
}

OSStatus AudioFileWritePackets(AudioFileID file, Boolean, UInt32 byteCount,
                               const AudioStreamPacketDescription* descriptions, SInt64 start, UInt32* packetCount,
                               const void* buffer)
{
    return transfer(file, &OpaqueAudioFileID::mayWrite, start, packetCount, buffer, [&](Container& container) {
        return container.writePackets(static_cast<UInt64>(start), *packetCount, byteCount, descriptions, buffer);
    });
}

OSStatus AudioFileGetPropertyInfo(AudioFileID file, AudioFilePropertyID property, UInt32* size, UInt32* isWritable)
{
    if (!file)
        return paramErr;
    const std::scoped_lock lock(file->mutex);
    UInt32 found = 0;
    bool canBeSet = false;
    const OSStatus status = qmx::withinMemory(
        memFullErr, [&] { return qmx::containerPropertyInfo(*file->container, property, found, canBeSet); });
    if (size)
        *size = status == noErr ? found : 0;
    if (isWritable)
        *isWritable = status == noErr && file->mayWrite && canBeSet;
    return status;
}

OSStatus AudioFileGetProperty(AudioFileID file, AudioFilePropertyID property, UInt32* size, void* value)
{
    if (!file || !size || !value)
        return paramErr;
    const std::scoped_lock lock(file->mutex);
    return qmx::withinMemory(memFullErr,
                             [&] { return qmx::containerProperty(*file->container, property, *size, value); });
}

OSStatus AudioFileSetProperty(AudioFileID file, AudioFilePropertyID property, UInt32 size, const void* value)
{
    if (!file || (!value && size > 0))
        return paramErr;
    if (!file->mayWrite)
        return kAudioFilePermissionsError;
    const std::scoped_lock lock(file->mutex);
    file->writer = getpid();
    return qmx::withinMemory(memFullErr,
                             [&] { return qmx::setContainerProperty(*file->container, property, size, value); });
}
