// SPDX-License-Identifier: MIT
#include "Foundation/Files/Fork.h"

#include "Foundation/ByteFields.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace qmx
{
namespace
{

// The first 16 bytes hold the positions and sizes of the resources' data and map; 24 bits address their contents.
bool isBareFork(const UInt8* head, std::int64_t fileSize)
{
    constexpr std::int64_t headSize = 16, largestFork = std::int64_t{1} << 25;
    const std::int64_t dataStart = load32(head, ByteOrder::big), mapStart = load32(head + 4, ByteOrder::big);
    const std::int64_t dataSize = load32(head + 8, ByteOrder::big), mapSize = load32(head + 12, ByteOrder::big);
    return fileSize <= largestFork && dataStart >= headSize && dataStart + dataSize <= mapStart && mapSize > 0 &&
           mapStart + mapSize <= fileSize;
}

} // namespace

std::string forkPath(const std::string& path)
{
    const auto slash = path.rfind('/');
    const std::size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(0, nameStart).append("._").append(path, nameStart);
}

SystemError findFork(const std::string& path, bool& isThere)
{
    constexpr UInt32 appleDoubleMark = 0x00051607;
    isThere = false;
    std::unique_ptr<File> file;
    if (const SystemError error = FileSystem::current().open(forkPath(path), FileAccess::read, file); error != 0) {
        constexpr std::array none{ENOENT, ENAMETOOLONG, EISDIR, ESPIPE}; // no file, or one that cannot be a fork
        return std::ranges::find(none, error) == none.end() ? error : 0;
    }
    std::int64_t size = 0;
    std::array<UInt8, 16> head{};
    if (file->size(size) == 0 && file->read(head.data(), head.size(), 0).error == 0) // an unreadable file is no fork
        isThere = load32(head.data(), ByteOrder::big) == appleDoubleMark || isBareFork(head.data(), size);
    return 0;
}

bool hasFork(const std::string& path)
{
    bool isThere = false;
    return findFork(path, isThere) == 0 && isThere;
}

SystemError removeFork(const std::string& path)
{
    return hasFork(path) ? FileSystem::current().remove(forkPath(path)) : 0;
}

} // namespace qmx
