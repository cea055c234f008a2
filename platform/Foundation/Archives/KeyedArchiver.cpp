// SPDX-License-Identifier: MIT
#include "Foundation/Archives/KeyedArchiver.h"

#include "Foundation/Archives/ArchiveClasses.h"
#include "Foundation/Archives/OpaqueObject.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Log.h"

#include <concepts>
#include <map>
#include <unordered_map>
#include <utility>

namespace qmx
{

namespace
{

using Fields = PropertyListDictionary;
using Names = std::vector<std::string>;

template <class T> PropertyListRef shared(T value)
{
    return std::make_shared<PropertyListValue>(std::move(value));
}

PropertyListValue plainNumber(const Number& number)
{
    return std::visit(
        [](auto value) -> PropertyListValue {
            if constexpr (std::same_as<decltype(value), bool> || std::floating_point<decltype(value)>)
                return value;
            else
                return PropertyListInteger{static_cast<UInt64>(value), std::cmp_less(value, 0)};
        },
        number.value());
}

// Builds the object table. An object comes before its contents, its class after them.
class ObjectTable
{
public:
    ObjectTable() : entries_{shared(std::string(archiveNil))} {}

    PropertyListUID add(const std::shared_ptr<const Object>& object);
    bool isTooDeep() const { return isTooDeep_; }
    PropertyListArray takeEntries() { return std::move(entries_); }

private:
    PropertyListValue entryOf(const std::shared_ptr<const Object>& object);
    PropertyListValue arrayEntry(const Array& array);
    PropertyListValue dictionaryEntry(const Dictionary& dictionary);
    PropertyListValue textEntry(const String& string);
    PropertyListValue codingEntry(const Coding& coding);
    PropertyListValue finished(Fields fields, const Names& classNames);
    PropertyListUID classUID(const Names& names);

    PropertyListUID addOpaque(const OpaqueObject::Table& table, std::uint64_t index);
    void copyPendingOpaques();
    PropertyListRef copied(const PropertyListRef& value, const OpaqueObject::Table& table);

    struct PendingOpaque {
        OpaqueObject::Table table;
        std::size_t from;
        std::size_t to;
    };
    using OpaquePlace = std::pair<OpaqueObject::Table, std::uint64_t>;

    PropertyListArray entries_;
    std::unordered_map<std::shared_ptr<const Object>, std::size_t>
        places_; // keeps the objects alive, so that no address is used twice
    std::map<Names, std::size_t> classes_;
    std::map<OpaquePlace, std::size_t> opaquePlaces_;
    std::vector<PendingOpaque> pendingOpaques_;
    std::unordered_map<PropertyListRef, PropertyListRef> copies_;
    std::size_t depth_ = 0;
    bool isTooDeep_ = false;
};

class KeyedCoder : public Coder
{
public:
    explicit KeyedCoder(ObjectTable& table) : table_(table) {}

    bool allowsKeyedCoding() const override { return true; }
    void encodeObject_forKey(const std::shared_ptr<const Object>& object, std::string_view key) override
    {
        fields_.add(archiveKey(key), table_.add(object));
    }
    void encodeObject(const std::shared_ptr<const Object>& object) override
    {
        fields_.add(archiveSequenceKey(position_++), table_.add(object));
    }

    Fields takeFields() { return std::move(fields_); }

private:
    ObjectTable& table_;
    Fields fields_;
    std::size_t position_ = 0;
};

PropertyListUID ObjectTable::add(const std::shared_ptr<const Object>& object)
{
    if (!object)
        return {};
    if (const auto* opaque = dynamic_cast<const OpaqueObject*>(object.get())) {
        const PropertyListUID uid = addOpaque(opaque->table(), opaque->index());
        copyPendingOpaques();
        return uid;
    }
    const auto [place, isNew] = places_.try_emplace(object, entries_.size());
    const PropertyListUID uid{place->second};
    if (!isNew)
        return uid;
    if (depth_ == propertyListDepthLimit) {
        isTooDeep_ = true;
        return {};
    }
    entries_.push_back(entries_.front());
    ++depth_;
    entries_[uid.index] = shared(entryOf(object));
    --depth_;
    return uid;
}

PropertyListValue ObjectTable::entryOf(const std::shared_ptr<const Object>& object)
{
    if (const auto* string = dynamic_cast<const String*>(object.get()))
        return textEntry(*string);
    if (const auto* number = dynamic_cast<const Number*>(object.get()))
        return plainNumber(*number);
    if (const auto* data = dynamic_cast<const Data*>(object.get()))
        return data->bytes();
    if (const auto* image = dynamic_cast<const Image*>(object.get()))
        return image->data();
    if (const auto* array = dynamic_cast<const Array*>(object.get()))
        return arrayEntry(*array);
    if (const auto* dictionary = dynamic_cast<const Dictionary*>(object.get()))
        return dictionaryEntry(*dictionary);
    if (const auto* coding = dynamic_cast<const Coding*>(object.get()))
        return codingEntry(*coding);
    Log("KeyedArchiver: %@ cannot be archived", object);
    return std::string(archiveNil);
}

// A plain entry "$null" would be decoded as nil.
PropertyListValue ObjectTable::textEntry(const String& string)
{
    if (string.text() != archiveNil)
        return string.text();
    Fields fields;
    fields.add("NS.string", string.text());
    return finished(std::move(fields), {"NSMutableString", "NSString", "NSObject"});
}

PropertyListValue ObjectTable::arrayEntry(const Array& array)
{
    PropertyListArray elements;
    for (const auto& element : array.elements())
        elements.push_back(shared(add(element)));
    Fields fields;
    fields.add(std::string(archiveElementsKey), std::move(elements));
    return finished(std::move(fields), {"NSMutableArray", "NSArray", "NSObject"});
}

PropertyListValue ObjectTable::dictionaryEntry(const Dictionary& dictionary)
{
    PropertyListArray keys;
    PropertyListArray values;
    for (const auto& entry : dictionary.entries())
        keys.push_back(shared(add(entry.first)));
    for (const auto& entry : dictionary.entries())
        values.push_back(shared(add(entry.second)));
    Fields fields;
    fields.add(std::string(archiveKeysKey), std::move(keys));
    fields.add(std::string(archiveElementsKey), std::move(values));
    return finished(std::move(fields), {"NSMutableDictionary", "NSDictionary", "NSObject"});
}

PropertyListValue ObjectTable::codingEntry(const Coding& coding)
{
    KeyedCoder coder(*this);
    coding.encodeWithCoder(coder);
    return finished(coder.takeFields(), coding.archiveClassNames());
}

PropertyListValue ObjectTable::finished(Fields fields, const Names& classNames)
{
    fields.add(std::string(archiveClassKey), classUID(classNames));
    return fields;
}

PropertyListUID ObjectTable::classUID(const Names& names)
{
    const auto [place, isNew] = classes_.try_emplace(names, entries_.size());
    if (isNew) {
        PropertyListArray chain;
        for (const std::string& name : names)
            chain.push_back(shared(name));
        Fields fields;
        fields.add(std::string(archiveClassNameKey), names.front());
        fields.add(std::string(archiveClassChainKey), std::move(chain));
        entries_.push_back(shared(std::move(fields)));
    }
    return {place->second};
}

// Copies the entries of an opaque object unchanged, except that references follow the new places. Uses a loop, because
// they may form chains of any length and circles.
PropertyListUID ObjectTable::addOpaque(const OpaqueObject::Table& table, std::uint64_t index)
{
    if (index >= table->size() || isArchivedNil(*(*table)[index]))
        return {};
    const auto [place, isNew] = opaquePlaces_.try_emplace({table, index}, entries_.size());
    if (isNew) {
        entries_.push_back(entries_.front());
        pendingOpaques_.push_back({table, static_cast<std::size_t>(index), place->second});
    }
    return {place->second};
}

void ObjectTable::copyPendingOpaques()
{
    while (!pendingOpaques_.empty()) {
        const PendingOpaque opaque = std::move(pendingOpaques_.back());
        pendingOpaques_.pop_back();
        entries_[opaque.to] = copied((*opaque.table)[opaque.from], opaque.table);
    }
}

PropertyListRef ObjectTable::copied(const PropertyListRef& value, const OpaqueObject::Table& table)
{
    const auto* uid = value->as<PropertyListUID>();
    const auto* array = value->as<PropertyListArray>();
    const auto* dictionary = value->as<PropertyListDictionary>();
    if (!uid && !array && !dictionary)
        return value;
    if (const auto known = copies_.find(value); known != copies_.end())
        return known->second;
    PropertyListRef copy;
    if (uid) {
        copy = shared(addOpaque(table, uid->index));
    } else if (array) {
        PropertyListArray elements;
        for (const PropertyListRef& element : *array)
            elements.push_back(copied(element, table));
        copy = shared(std::move(elements));
    } else {
        Fields fields;
        for (const auto& [key, field] : dictionary->entries())
            fields.add(key, copied(field, table));
        copy = shared(std::move(fields));
    }
    return copies_.emplace(value, copy).first->second;
}

std::vector<std::uint8_t> dataOf(const std::shared_ptr<const Object>& object)
{
    ObjectTable table;
    Fields top;
    top.add("root", table.add(object));
    if (table.isTooDeep()) {
        Log("KeyedArchiver: objects nest deeper than %d", propertyListDepthLimit);
        return {};
    }
    Fields archive;
    archive.add("$version", PropertyListInteger{100000, false});
    archive.add("$archiver", std::string("NSKeyedArchiver"));
    archive.add("$top", std::move(top));
    archive.add("$objects", table.takeEntries());
    return binaryPropertyListData(archive);
}

} // namespace

std::vector<std::uint8_t> KeyedArchiver::archivedDataWithRootObject(const std::shared_ptr<const Object>& object)
{
    std::vector<std::uint8_t> data;
    if (!withinMemory([&] { data = dataOf(object); }))
        Log("KeyedArchiver: not enough memory");
    return data;
}

} // namespace qmx
