// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/Files/FileSystem.h"
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
    /// Moves a file with its fork, over file systems too: copied, then removed when the copy is on the disk. False
    /// where the source is missing, the destination exists, or a step failed: the source is then as it was, and nothing
    /// is at the destination. A fork there that has no file is removed in any case.
    [[nodiscard]] bool movePath_toPath_handler(const std::string& source, const std::string& destination,
                                               FileManagerHandler* handler);
    /// Copies a file with its fork; mode, times and extended attributes go along as far as the file system keeps them.
    /// The copy is on the disk when this returns true. False as for a move.
    [[nodiscard]] bool copyPath_toPath_handler(const std::string& source, const std::string& destination,
                                               FileManagerHandler* handler);
    /// Removes a file with its fork.
    [[nodiscard]] bool removeFileAtPath_handler(const std::string& path, FileManagerHandler* handler);

    /// Stores the codes in the extended attribute that also other systems' tools read. False where the file system
    /// keeps none: the codes are then lost, which must not matter.
    [[nodiscard]] bool changeFileAttributes_atPath(const FileAttributes& attributes, const std::string& path);
    /// The codes and size; empty where the file is missing. Codes left in a sidecar file by other tools are found too.
    FileAttributes fileAttributesAtPath(const std::string& path);
};

} // namespace qmx
