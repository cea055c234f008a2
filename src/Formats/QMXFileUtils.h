// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreServices/Files.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>

/// Turns paths (UTF-8) into the platform's file references, and sets a file's creator and type codes. Any thread.
class QMX_EXPORT QMXFileUtils : public qmx::Object
{
public:
    /// The path's zero-terminated file-system representation, a copy that the caller owns.
    static std::unique_ptr<UInt8[]> makeUnicode(const std::string& path);
    /// Makes a reference to the existing item at `path`; false, and an empty reference, if there is none.
    [[nodiscard]] static bool makeFSRef_fromPath(FSRef* reference, const std::string& path);
    /// Makes directory and name of the existing item at `path`; false if there is none.
    [[nodiscard]] static bool makeFSSpec_fromPath(FSSpec* item, const std::string& path);
    /// Tags the file with two four-character codes. Does nothing on a file system that keeps none.
    static void changeCreatorAndType_creator_fileType(const std::string& path, OSType creator, OSType fileType);
};
