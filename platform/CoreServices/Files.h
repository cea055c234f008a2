// SPDX-License-Identifier: MIT
// References to files. Here a reference keeps the absolute path it was made from; it follows no later move.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Files/FileSystem.h>

#include <string>

/// An existing file or directory. Empty: refers to nothing.
struct FSRef {
    std::string path;
};

/// A directory and the name of an item in it, which need not exist.
struct FSSpec {
    std::string parentPath;
    std::string name;
};

/// A name from the catalogue, UTF-8.
struct HFSUniStr255 {
    std::string name;
};

using FSCatalogInfoBitmap = UInt32;
inline constexpr FSCatalogInfoBitmap kFSCatInfoNone = 0;
inline constexpr FSCatalogInfoBitmap kFSCatInfoNodeFlags = 0x0002;
inline constexpr FSCatalogInfoBitmap kFSCatInfoDataSizes = 0x4000;
inline constexpr UInt16 kFSNodeIsDirectoryMask = 0x0010;

struct FSCatalogInfo {
    UInt16 nodeFlags = 0;
    UInt64 dataLogicalSize = 0; ///< bytes
};

/// Makes a reference to the item that the system finds under `path` (UTF-8), which is made absolute; the system follows
/// links and ".." in it. fnfErr if the item is missing, paramErr for no path; the reference is then empty.
[[nodiscard]] QMX_EXPORT OSStatus FSPathMakeRef(const UInt8* path, FSRef* reference, Boolean* isDirectory);
/// Copies the zero-terminated path into `path`; paramErr when `maximumSize` is too small.
[[nodiscard]] QMX_EXPORT OSStatus FSRefMakePath(const FSRef* reference, UInt8* path, UInt32 maximumSize);
/// Fills the requested outputs; any may be null. errFSBadFSRef for an empty reference, fnfErr if the item is gone.
[[nodiscard]] QMX_EXPORT OSStatus FSGetCatalogInfo(const FSRef* reference, FSCatalogInfoBitmap which,
                                                   FSCatalogInfo* info, HFSUniStr255* name, FSSpec* fileSpec,
                                                   FSRef* parent);

namespace qmx
{

/// The platform's status for an error number of the system; ioErr if there is no closer one, noErr for 0.
QMX_EXPORT OSStatus statusForSystemError(SystemError error);

} // namespace qmx
