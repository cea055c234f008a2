// SPDX-License-Identifier: MIT
// Binary property lists, version "00". Values that the file shares are shared here too, so that memory and time stay
// linear in the file's length. Any thread.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace qmx
{

struct PropertyListValue;
/// A value that several containers may share; never null.
using PropertyListRef = std::shared_ptr<const PropertyListValue>;

/// An integer from -2^63 to 2^64-1.
struct PropertyListInteger {
    std::uint64_t bits = 0;  ///< two's complement when negative
    bool isNegative = false; ///< the top bit is a sign
    friend auto operator<=>(const PropertyListInteger&, const PropertyListInteger&) = default;
};

struct PropertyListDate {
    double seconds = 0; ///< since 2001-01-01T00:00:00Z
};

/// A reference into the object table of a keyed archive.
struct PropertyListUID {
    std::uint64_t index = 0;
    friend auto operator<=>(const PropertyListUID&, const PropertyListUID&) = default;
};

using PropertyListData = std::vector<std::uint8_t>;
using PropertyListArray = std::vector<PropertyListRef>;

/// String keys with their values, in the order in which they were added.
class QMX_EXPORT PropertyListDictionary
{
public:
    using Entry = std::pair<PropertyListRef, PropertyListRef>;

    const std::vector<Entry>& entries() const { return entries_; }
    /// The value under `key`; null if there is none.
    const PropertyListValue* find(std::string_view key) const;
    /// Adds a pair. `key` must hold a string. If the key exists, nothing changes.
    void add(PropertyListRef key, PropertyListRef value);
    void add(std::string key, PropertyListValue value);

private:
    std::vector<Entry> entries_;
    std::map<std::string_view, std::size_t> index_; // views into the key values
};

/// One value of a property list. Strings are UTF-8.
struct PropertyListValue : std::variant<bool, PropertyListInteger, float, double, PropertyListDate, PropertyListData,
                                        std::string, PropertyListUID, PropertyListArray, PropertyListDictionary> {
    using variant::variant;

    /// The value as a `T`; null if it is of another kind.
    template <class T> const T* as() const { return std::get_if<T>(static_cast<const variant*>(this)); }
};

/// How deep containers may nest, in reading and in writing.
inline constexpr std::size_t propertyListDepthLimit = 64;

/// The property list in exactly these bytes; padding after it makes it unreadable. No value if the bytes are damaged: a
/// count or position past the end, a kind that the version does not have, a container inside itself, nesting past the
/// limit. Invalid characters become U+FFFD.
QMX_EXPORT std::optional<PropertyListValue> parseBinaryPropertyList(std::span<const std::uint8_t> bytes);

/// The bytes of `root`: a container first, then a dictionary's keys, then its values, each with its contents. Equal
/// values of one kind and width are written once, and so is a shared container. Empty if the nesting passes the limit.
QMX_EXPORT std::vector<std::uint8_t> binaryPropertyListData(const PropertyListValue& root);

} // namespace qmx
