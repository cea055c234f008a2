// SPDX-License-Identifier: MIT
// The value objects that archives are made of. Nil is a null pointer. Any thread may read an object that no thread
// changes.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qmx
{

/// A text in UTF-8, which may contain zero bytes. Immutable.
class QMX_EXPORT String : public Object
{
public:
    explicit String(std::string text) : text_(std::move(text)) {}

    const std::string& text() const { return text_; }

    /// The text itself.
    std::string description() const override { return text_; }
    /// A string of the same bytes is equal.
    bool isEqual(const Object* other) const override;

private:
    std::string text_;
};

/// Bytes without further meaning. Immutable.
class QMX_EXPORT Data : public Object
{
public:
    explicit Data(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

    const std::vector<std::uint8_t>& bytes() const { return bytes_; }

    /// Data of the same bytes is equal.
    bool isEqual(const Object* other) const override;

private:
    std::vector<std::uint8_t> bytes_;
};

/// A list of objects, which it shares; an element may be nil. Equal only to itself.
class QMX_EXPORT Array : public Object
{
public:
    using Elements = std::vector<std::shared_ptr<const Object>>;

    Array() = default;
    explicit Array(Elements elements) : elements_(std::move(elements)) {}

    const Elements& elements() const { return elements_; }
    std::size_t count() const { return elements_.size(); }
    void addObject(std::shared_ptr<const Object> object) { elements_.push_back(std::move(object)); }

private:
    Elements elements_;
};

/// Pairs of a key object and a value object, both shared, in the order in which they were added. Keys are usually
/// strings; pairs with other keys are kept but cannot be looked up. Equal only to itself.
class QMX_EXPORT Dictionary : public Object
{
public:
    using Entry = std::pair<std::shared_ptr<const Object>, std::shared_ptr<const Object>>;

    const std::vector<Entry>& entries() const { return entries_; }
    std::size_t count() const { return entries_.size(); }

    /// The value under the string `key`; null if there is none.
    std::shared_ptr<const Object> objectForKey(std::string_view key) const;

    /// Adds a pair, or replaces the value of an existing string key, which keeps its place.
    void setObject_forKey(std::shared_ptr<const Object> object, std::shared_ptr<const Object> key);
    void setObject_forKey(std::shared_ptr<const Object> object, std::string key);

    void removeAllObjects();
    /// Exchanges all entries with those of `other`.
    void swap(Dictionary& other) noexcept
    {
        entries_.swap(other.entries_);
        index_.swap(other.index_);
    }

private:
    std::vector<Entry> entries_;
    std::map<std::string_view, std::size_t> index_; // views into the key objects
};

} // namespace qmx
