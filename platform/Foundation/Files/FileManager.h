// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Files/FileSystem.h>
#include <QMXCoreAudio/Foundation/Object.h>

namespace qmx
{

/// Attributes kept beside a file's contents. A change leaves those without a value as they are.
struct FileAttributes {
    std::optional<OSType> NSFileHFSCreatorCode;
    std::optional<OSType> NSFileHFSTypeCode;
    std::optional<std::int64_t> NSFileSize; ///< bytes; read only
};

/// Called before a move, copy or removal, and on its failure, when a result of true makes it count as done.
class QMX_EXPORT FileManagerHandler
{
public:
    virtual ~FileManagerHandler();
    virtual bool fileManager_shouldProceedAfterError(const std::string& path, const std::string& error);
    virtual void fileManager_willProcessPath(const std::string& path);
};

/// Operations on files by path. Any thread. Failures are results; the handler receives their text.
class QMX_EXPORT FileManager : public Object
{
public:
    static FileManager& defaultManager();

    bool fileExistsAtPath(const std::string& path, bool* isDirectory = nullptr);
    /// Moves a file with its fork. To another file system it is copied, and the source removed when the copy is on the
    /// disk. False if the source is missing, the destination exists, or a step failed: the source is then unchanged and
    /// nothing is at the destination. A fork without a file at the destination is removed in any case.
    [[nodiscard]] bool movePath_toPath_handler(const std::string& source, const std::string& destination,
                                               FileManagerHandler* handler);
    /// Copies a file with its fork, and its mode, times and extended attributes as far as the file system keeps them.
    /// The copy is on the disk when this returns true. False as for a move.
    [[nodiscard]] bool copyPath_toPath_handler(const std::string& source, const std::string& destination,
                                               FileManagerHandler* handler);
    /// Gives a complete file its name, with its fork, on the same file system; both are on the disk before. EEXIST if
    /// anything has that name. With `replaces`, a file of that name goes, at once, and leaves its permissions to the
    /// new one. On an error the file keeps its own name, and one that was to be replaced stays, but its fork may be
    /// lost.
    [[nodiscard]] SystemError renamePath_toPath_replaces(const std::string& source, const std::string& destination,
                                                         bool replaces);
    /// The same as copyPath_toPath_handler(); returns the error, or 0.
    [[nodiscard]] SystemError copyFileAtPath_toPath(const std::string& source, const std::string& destination);
    /// Removes a file with its fork. False for a missing file, but a fork that it left is removed.
    [[nodiscard]] bool removeFileAtPath_handler(const std::string& path, FileManagerHandler* handler);

    /// Stores the codes in the extended attribute that other systems' tools also read. False if the file system keeps
    /// none: the codes are then lost, which must not matter.
    [[nodiscard]] bool changeFileAttributes_atPath(const FileAttributes& attributes, const std::string& path);
    /// The codes and size; empty if the file is missing. Also finds codes that other tools left in a sidecar file.
    FileAttributes fileAttributesAtPath(const std::string& path);
};

} // namespace qmx
