// SPDX-License-Identifier: MIT
#include "Formats/QMXFileUtils.h"

#include "Foundation/Files/FileManager.h"

#include <cstring>
#include <new>

std::unique_ptr<UInt8[]> QMXFileUtils::makeUnicode(const std::string& path)
{
    std::unique_ptr<UInt8[]> text(new (std::nothrow) UInt8[path.size() + 1]);
    if (text)
        std::memcpy(text.get(), path.c_str(), path.size() + 1);
    return text;
}

bool QMXFileUtils::makeFSRef_fromPath(FSRef* reference, const std::string& path)
{
    return FSPathMakeRef(makeUnicode(path).get(), reference, nullptr) == noErr;
}

bool QMXFileUtils::makeFSSpec_fromPath(FSSpec* item, const std::string& path)
{
    FSRef reference;
    return makeFSRef_fromPath(&reference, path) &&
           FSGetCatalogInfo(&reference, kFSCatInfoNone, nullptr, nullptr, item, nullptr) == noErr;
}

void QMXFileUtils::changeCreatorAndType_creator_fileType(const std::string& path, OSType creator, OSType fileType)
{
    const qmx::FileAttributes codes{
        .NSFileHFSCreatorCode = creator, .NSFileHFSTypeCode = fileType, .NSFileSize = std::nullopt};
    (void)qmx::FileManager::defaultManager().changeFileAttributes_atPath(codes, path); // a file without codes will do
}
