// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/FileSystem.h"
#include "Foundation/Object.h"

namespace qmx
{

/// Codes kept beside a file's contents; absent ones are not touched by a change.
struct FileAttributes {
    std::optional<OSType> NSFileHFSCreatorCode;
    std::optional<OSType> NSFileHFSTypeCode;
    std::optional<std::int64_t> NSFileSize; ///< bytes; read only
};

/// Told of a failure in the middle of a move or copy; answers whether to go on all the same.
class QMX_EXPORT FileManagerHandler
{
public:
    virtual ~FileManagerHandler();
    virtual bool fileManager_shouldProceedAfterError(const std::string& path, const std::string& error);
    virtual void fileManager_willProcessPath(const std::string& path);
};

/// Operations on files by path. Any thread; failures are values, the text of the last one goes to the handler.
class QMX_EXPORT FileManager : public Object
{
public:
    static FileManager& defaultManager();

    bool fileExistsAtPath(const std::string& path, bool* isDirectory = nullptr);
    /// Moves a file, over file systems too (copied, then removed; the attributes go along). False where the source is
    /// missing or the destination exists; then nothing has changed.
    bool movePath_toPath_handler(const std::string& source, const std::string& destination,
                                 FileManagerHandler* handler);
    /// Copies a file with its codes. False where the source is missing or the destination exists; a copy that failed half-way is
    /// removed again.
    bool copyPath_toPath_handler(const std::string& source, const std::string& destination,
                                 FileManagerHandler* handler);
    bool removeFileAtPath_handler(const std::string& path, FileManagerHandler* handler);

    /// Stores the codes in the extended attribute that also other systems' tools read. False where the file system
    /// keeps none: the codes are then lost, which must not matter.
    bool changeFileAttributes_atPath(const FileAttributes& attributes, const std::string& path);
    /// The codes and size; empty where the file is missing. Codes left in a sidecar file by other tools are found too.
    FileAttributes fileAttributesAtPath(const std::string& path);
};

} // namespace qmx
