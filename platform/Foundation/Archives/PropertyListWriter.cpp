// SPDX-License-Identifier: MIT
#include "Foundation/Archives/PropertyList.h"

#include "Foundation/Text/Unicode.h"

#include <algorithm>
#include <bit>
#include <string_view>
#include <type_traits>
#include <unordered_map>

namespace qmx
{

namespace
{

using Bytes = std::vector<std::uint8_t>;

constexpr std::string_view signature = "bplist00";

// The bytes that `value` needs: 1, 2, 4 or 8.
std::size_t widthOf(std::uint64_t value)
{
    return value <= 0xFF ? 1 : value <= 0xFFFF ? 2 : value <= 0xFFFFFFFF ? 4 : 8;
}

void put(Bytes& bytes, std::uint64_t value, std::size_t width)
{
    for (std::size_t i = width; i-- > 0;)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void putMarked(Bytes& bytes, unsigned kind, std::uint64_t value, std::size_t width)
{
    bytes.push_back(static_cast<std::uint8_t>(kind | static_cast<unsigned>(std::countr_zero(width))));
    put(bytes, value, width);
}

void putCount(Bytes& bytes, unsigned kind, std::size_t count)
{
    bytes.push_back(static_cast<std::uint8_t>(kind | std::min<std::size_t>(count, 15)));
    if (count >= 15)
        putMarked(bytes, 0x10, count, widthOf(count));
}

// The written form of a value that is no container.
struct Encoding {
    Bytes& bytes;

    void operator()(bool value) const { bytes.push_back(value ? 0x09 : 0x08); }
    void operator()(const PropertyListInteger& value) const
    {
        const bool hasTopBit = value.bits >> 63 == 1;
        if (hasTopBit && !value.isNegative) {
            bytes.push_back(0x14);
            put(bytes, 0, 8);
            put(bytes, value.bits, 8);
        } else {
            putMarked(bytes, 0x10, value.bits, widthOf(value.bits));
        }
    }
    void operator()(float value) const { putMarked(bytes, 0x20, std::bit_cast<std::uint32_t>(value), 4); }
    void operator()(double value) const { putMarked(bytes, 0x20, std::bit_cast<std::uint64_t>(value), 8); }
    void operator()(const PropertyListDate& value) const
    {
        putMarked(bytes, 0x30, std::bit_cast<std::uint64_t>(value.seconds), 8);
    }
    void operator()(const PropertyListData& value) const
    {
        putCount(bytes, 0x40, value.size());
        bytes.insert(bytes.end(), value.begin(), value.end());
    }
    void operator()(const std::string& value) const
    {
        if (std::all_of(value.begin(), value.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
            putCount(bytes, 0x50, value.size());
            bytes.insert(bytes.end(), value.begin(), value.end());
            return;
        }
        const std::vector<char16_t> units = utf16FromUTF8(value);
        putCount(bytes, 0x60, units.size());
        for (const char16_t unit : units)
            put(bytes, unit, 2);
    }
    void operator()(const PropertyListUID& value) const
    {
        const std::size_t width = widthOf(value.index);
        bytes.push_back(static_cast<std::uint8_t>(0x80 | (width - 1)));
        put(bytes, value.index, width);
    }
};

// Numbers the objects first, because their count decides how wide references are; then writes them.
class Writer
{
public:
    Bytes write(const PropertyListValue& root);

private:
    struct Item {
        const PropertyListValue* container = nullptr;
        const std::string* encoding = nullptr; // of values that are no container
    };

    bool collect(const PropertyListValue& value, std::size_t depth);
    bool collectContents(const PropertyListValue& container, std::size_t depth);
    void writeContainer(const PropertyListValue& container, std::size_t referenceWidth);
    void writeReference(const PropertyListRef& value, std::size_t width)
    {
        put(bytes_, numbers_.at(value.get()), width);
    }

    std::vector<Item> items_;
    std::unordered_map<const PropertyListValue*, std::size_t> numbers_;
    std::unordered_map<std::string, std::size_t> merged_; // by written form, which includes kind and width
    Bytes bytes_;
};

bool isContainer(const PropertyListValue& value)
{
    return value.as<PropertyListArray>() || value.as<PropertyListDictionary>();
}

bool Writer::collect(const PropertyListValue& value, std::size_t depth)
{
    if (depth > propertyListDepthLimit)
        return false;
    if (numbers_.contains(&value))
        return true;
    if (isContainer(value)) {
        numbers_.emplace(&value, items_.size());
        items_.push_back({&value, nullptr});
        return collectContents(value, depth + 1);
    }
    Bytes encoding;
    const auto encode = [&encoding](const auto& plain) {
        if constexpr (std::is_invocable_v<Encoding, decltype(plain)>)
            Encoding{encoding}(plain);
    };
    std::visit(encode, static_cast<const PropertyListValue::variant&>(value));
    const auto [place, isNew] = merged_.try_emplace(std::string(encoding.begin(), encoding.end()), items_.size());
    if (isNew)
        items_.push_back({nullptr, &place->first});
    numbers_.emplace(&value, place->second);
    return true;
}

bool Writer::collectContents(const PropertyListValue& container, std::size_t depth)
{
    const auto collectAll = [&](const auto& list, auto member) {
        return std::all_of(list.begin(), list.end(), [&](const auto& item) { return collect(*member(item), depth); });
    };
    if (const auto* array = container.as<PropertyListArray>())
        return collectAll(*array, [](const auto& item) { return item.get(); });
    const auto& entries = container.as<PropertyListDictionary>()->entries();
    return collectAll(entries, [](const auto& entry) { return entry.first.get(); }) &&
           collectAll(entries, [](const auto& entry) { return entry.second.get(); });
}

void Writer::writeContainer(const PropertyListValue& container, std::size_t referenceWidth)
{
    if (const auto* array = container.as<PropertyListArray>()) {
        putCount(bytes_, 0xA0, array->size());
        for (const PropertyListRef& element : *array)
            writeReference(element, referenceWidth);
        return;
    }
    const auto& entries = container.as<PropertyListDictionary>()->entries();
    putCount(bytes_, 0xD0, entries.size());
    for (const auto& entry : entries)
        writeReference(entry.first, referenceWidth);
    for (const auto& entry : entries)
        writeReference(entry.second, referenceWidth);
}

Bytes Writer::write(const PropertyListValue& root)
{
    if (!collect(root, 1))
        return {};
    bytes_.assign(signature.begin(), signature.end());
    const std::size_t referenceWidth = widthOf(items_.size());
    std::vector<std::size_t> offsets;
    for (const Item& item : items_) {
        offsets.push_back(bytes_.size());
        if (item.container)
            writeContainer(*item.container, referenceWidth);
        else
            bytes_.insert(bytes_.end(), item.encoding->begin(), item.encoding->end());
    }
    const std::size_t table = bytes_.size();
    const std::size_t offsetWidth = widthOf(table);
    for (const std::size_t offset : offsets)
        put(bytes_, offset, offsetWidth);
    put(bytes_, 0, 6);
    put(bytes_, offsetWidth, 1);
    put(bytes_, referenceWidth, 1);
    put(bytes_, offsets.size(), 8);
    put(bytes_, 0, 8);
    put(bytes_, table, 8);
    return std::move(bytes_);
}

} // namespace

std::vector<std::uint8_t> binaryPropertyListData(const PropertyListValue& root)
{
    return Writer().write(root);
}

} // namespace qmx
