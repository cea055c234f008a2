// SPDX-License-Identifier: MIT
// The interface between archivable classes and archives: a coder to write an object to, a decoder to make one from.
#pragma once

#include <QMXCoreAudio/Foundation/Archives/Image.h>
#include <QMXCoreAudio/Foundation/Archives/Number.h>
#include <QMXCoreAudio/Foundation/Archives/Values.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qmx
{

/// Receives the contents of the object being archived. Valid only during `encodeWithCoder`. One thread.
class QMX_EXPORT Coder
{
public:
    virtual ~Coder();

    /// Whether values are stored under keys; otherwise they are decoded in the order in which they were encoded.
    virtual bool allowsKeyedCoding() const = 0;

    /// Stores `object`, which may be nil, under `key`. An object that is stored twice is archived once.
    virtual void encodeObject_forKey(const std::shared_ptr<const Object>& object, std::string_view key) = 0;
    /// Stores the next object of the sequence.
    virtual void encodeObject(const std::shared_ptr<const Object>& object) = 0;

    /// Stores a string object, or nil.
    void encodeString_forKey(const std::optional<std::string>& text, std::string_view key);
};

/// An archivable object. A class derives from Object and from this, and registers how it is made from a decoder.
class QMX_EXPORT Coding
{
public:
    virtual ~Coding();

    virtual void encodeWithCoder(Coder& coder) const = 0;

    /// The class's name in archives, then its superclasses' names, "NSObject" last.
    virtual std::vector<std::string> archiveClassNames() const = 0;
};

/// Supplies the contents of the object being unarchived. Valid only during the call that makes the object. One thread.
/// No call fails: a value that is missing or has another type is null.
class QMX_EXPORT Decoder
{
public:
    virtual ~Decoder();

    virtual bool allowsKeyedCoding() const = 0;

    virtual bool containsValueForKey(std::string_view key) const = 0;
    /// The object under `key`. The same archived object is always the same object here; an object of an unregistered
    /// class only keeps what was read, so that it can be archived again.
    virtual std::shared_ptr<Object> decodeObjectForKey(std::string_view key) = 0;
    /// The next object of the sequence.
    virtual std::shared_ptr<Object> decodeObject() = 0;
    /// A number from a number object or from a number stored in place.
    virtual std::shared_ptr<Number> decodeNumberForKey(std::string_view key) = 0;
    /// A picture from plain data or from another writer's image object; the same object each time.
    virtual std::shared_ptr<Image> decodeImageForKey(std::string_view key) = 0;

    std::optional<std::string> decodeStringForKey(std::string_view key);
};

/// Makes an object from its archived contents; null counts as nil.
using ArchiveClassMaker = std::function<std::shared_ptr<Object>(Decoder&)>;

/// Makes the objects that are archived under the class name `name` decodable, replacing an earlier registration. Any
/// thread.
QMX_EXPORT void registerArchiveClass(const std::string& name, ArchiveClassMaker maker);

/// Why unarchiving returned no object.
enum class ArchiveError {
    none,             ///< there is an object, or the archived object is nil
    incomprehensible, ///< the data is no archive of this kind
    inconsistent,     ///< dangling or circular references, nesting deeper than 64, or contents of excessive size
    noMemory          ///< there was not enough memory to read it
};

} // namespace qmx
