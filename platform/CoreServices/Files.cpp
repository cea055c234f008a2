// SPDX-License-Identifier: MIT
#include "CoreServices/Files.h"

#include "Foundation/Memory.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace
{

// A slash at the end asks for a directory and is no part of its name.
std::string withoutSlashesAtEnd(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

FSCatalogInfo catalogInfo(FSCatalogInfoBitmap which, const qmx::FileStatus& status)
{
    FSCatalogInfo info;
    if ((which & kFSCatInfoNodeFlags) && status.isDirectory)
        info.nodeFlags = kFSNodeIsDirectoryMask;
    if (which & kFSCatInfoDataSizes)
        info.dataLogicalSize = static_cast<UInt64>(status.size);
    return info;
}

} // namespace

namespace qmx
{

OSStatus statusForSystemError(SystemError error)
{
    switch (error) {
    case 0:
        return noErr;
    case ENOENT:
    case ENOTDIR:
        return fnfErr;
    case EEXIST:
        return dupFNErr;
    case EACCES:
    case EPERM:
        return permErr;
    case EROFS:
    case EBADF:
        return wrPermErr;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return dskFulErr;
    case EMFILE:
    case ENFILE:
        return tmfoErr;
    case EBUSY:
    case ETXTBSY:
        return fBsyErr;
    case ENAMETOOLONG:
    case EISDIR:
    case ELOOP:
        return bdNamErr;
    case ENOMEM:
        return memFullErr;
    case EINVAL:
        return paramErr;
    default:
        return ioErr;
    }
}

} // namespace qmx

OSStatus FSPathMakeRef(const UInt8* path, FSRef* reference, Boolean* isDirectory)
{
    return qmx::withinMemory(memFullErr, [&]() -> OSStatus {
        if (!reference)
            return paramErr;
        reference->path.clear();
        const auto* text = reinterpret_cast<const char*>(path);
        if (!text || *text == '\0')
            return paramErr;
        // not folded: after a link ".." leads elsewhere than the text says
        std::error_code failure;
        const std::string absolute = std::filesystem::absolute(text, failure).string();
        if (failure)
            return qmx::statusForSystemError(failure.value());
        qmx::FileStatus found;
        if (const qmx::SystemError error = qmx::FileSystem::current().status(absolute, found); error != 0)
            return qmx::statusForSystemError(error);
        reference->path = withoutSlashesAtEnd(absolute);
        if (isDirectory)
            *isDirectory = found.isDirectory;
        return noErr;
    });
}

OSStatus FSRefMakePath(const FSRef* reference, UInt8* path, UInt32 maximumSize)
{
    if (!reference || !path)
        return paramErr;
    if (reference->path.empty())
        return errFSBadFSRef;
    if (reference->path.size() >= maximumSize)
        return paramErr;
    std::memcpy(path, reference->path.c_str(), reference->path.size() + 1);
    return noErr;
}

OSStatus FSGetCatalogInfo(const FSRef* reference, FSCatalogInfoBitmap which, FSCatalogInfo* info, HFSUniStr255* name,
                          FSSpec* fileSpec, FSRef* parent)
{
    return qmx::withinMemory(memFullErr, [&]() -> OSStatus {
        if (!reference)
            return paramErr;
        if (reference->path.empty())
            return errFSBadFSRef;
        qmx::FileStatus status;
        if (const qmx::SystemError error = qmx::FileSystem::current().status(reference->path, status); error != 0)
            return qmx::statusForSystemError(error);
        const std::filesystem::path path(reference->path);
        if (info)
            *info = catalogInfo(which, status);
        if (name)
            name->name = path.filename().string();
        if (fileSpec)
            *fileSpec = {.parentPath = path.parent_path().string(), .name = path.filename().string()};
        if (parent)
            parent->path = path.parent_path().string();
        return noErr;
    });
}
