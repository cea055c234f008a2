// SPDX-License-Identifier: MIT
// Every object is made once and overlapping objects are limited, so the work is bounded by the number of bytes. Every
// count and position is checked against it first.
#include "Foundation/Archives/PropertyList.h"

#include "Foundation/Text/Unicode.h"

#include <algorithm>
#include <bit>

namespace qmx
{

namespace
{

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t headerSize = 8;
constexpr std::size_t trailerSize = 32;
constexpr std::size_t largestOverlap = 4; // the bytes of all objects, as a multiple of the file's bytes
constexpr std::string_view signature = "bplist0";

// A big-endian number; of more than 8 bytes the low 8 count.
std::uint64_t number(Bytes bytes)
{
    std::uint64_t value = 0;
    for (const std::uint8_t byte : bytes)
        value = (value << 8) | byte;
    return value;
}

bool holds(std::size_t width, std::uint64_t value)
{
    return width >= 8 || value >> (8 * width) == 0;
}

class Reader
{
public:
    explicit Reader(Bytes bytes) : bytes_(bytes), untaken_(largestOverlap * bytes.size()) {}

    PropertyListRef read();

private:
    // the state of one object of the file
    struct Slot {
        PropertyListRef value;
        std::size_t height = 0; // containers below and including this one
        bool isOpen = false;    // its contents are being read
    };

    bool readTrailer();
    PropertyListRef object(std::uint64_t index, std::size_t depth);
    PropertyListRef makeObject(std::size_t at, std::size_t depth);
    PropertyListRef integer(Bytes bytes) const;
    PropertyListRef array(Bytes references, std::size_t depth);
    PropertyListRef dictionary(Bytes references, std::size_t depth);
    std::optional<Bytes> take(std::size_t at, std::uint64_t size);
    std::optional<Bytes> takeCounted(std::size_t at, std::size_t unit);

    template <class T> static PropertyListRef make(T value)
    {
        return std::make_shared<PropertyListValue>(std::move(value));
    }

    Bytes bytes_;
    std::size_t untaken_; // bytes that objects may still cover
    std::size_t tableStart_ = 0;
    std::size_t offsetWidth_ = 0;
    std::size_t referenceWidth_ = 0;
    std::uint64_t top_ = 0;
    std::size_t height_ = 0; // of the tallest object read since it was last set to 0
    std::vector<Slot> slots_;
};

bool Reader::readTrailer()
{
    if (bytes_.size() < headerSize + trailerSize || !std::equal(signature.begin(), signature.end(), bytes_.begin()))
        return false;
    const Bytes trailer = bytes_.last(trailerSize);
    offsetWidth_ = trailer[6];
    referenceWidth_ = trailer[7];
    const std::uint64_t count = number(trailer.subspan(8, 8));
    top_ = number(trailer.subspan(16, 8));
    const std::uint64_t table = number(trailer.subspan(24, 8));
    const std::size_t end = bytes_.size() - trailerSize;
    if (offsetWidth_ == 0 || referenceWidth_ == 0 || table < headerSize || table > end)
        return false;
    tableStart_ = static_cast<std::size_t>(table);
    if ((end - tableStart_) % offsetWidth_ != 0 || (end - tableStart_) / offsetWidth_ != count || top_ >= count)
        return false;
    if (!holds(offsetWidth_, table) || !holds(referenceWidth_, count))
        return false;
    slots_.resize(static_cast<std::size_t>(count));
    return true;
}

PropertyListRef Reader::read()
{
    return readTrailer() ? object(top_, 1) : nullptr;
}

PropertyListRef Reader::object(std::uint64_t index, std::size_t depth)
{
    if (index >= slots_.size())
        return nullptr;
    Slot& slot = slots_[static_cast<std::size_t>(index)];
    if (slot.isOpen || depth > propertyListDepthLimit)
        return nullptr;
    if (!slot.value) {
        const std::size_t entry = tableStart_ + static_cast<std::size_t>(index) * offsetWidth_;
        const std::uint64_t at = number(bytes_.subspan(entry, offsetWidth_));
        if (at < headerSize || at >= tableStart_)
            return nullptr;
        const std::size_t tallest = std::exchange(height_, 0);
        slot.isOpen = true;
        slot.value = makeObject(static_cast<std::size_t>(at), depth);
        slot.isOpen = false;
        slot.height = height_ + 1;
        height_ = tallest;
    }
    height_ = std::max(height_, slot.height);
    return depth + slot.height - 1 > propertyListDepthLimit ? nullptr : slot.value;
}

PropertyListRef Reader::makeObject(std::size_t at, std::size_t depth)
{
    const std::uint8_t marker = bytes_[at];
    const std::size_t low = marker & 0x0F;
    std::optional<Bytes> content;
    switch (marker >> 4) {
    case 0x0:
        return low == 8 || low == 9 ? make(low == 9) : nullptr;
    case 0x1:
        content = low <= 4 ? take(at + 1, std::size_t{1} << low) : std::nullopt;
        return content ? integer(*content) : nullptr;
    case 0x2:
        content = low == 2 || low == 3 ? take(at + 1, std::size_t{1} << low) : std::nullopt;
        if (!content)
            return nullptr;
        return low == 2 ? make(std::bit_cast<float>(static_cast<std::uint32_t>(number(*content))))
                        : make(std::bit_cast<double>(number(*content)));
    case 0x3:
        content = low == 3 ? take(at + 1, 8) : std::nullopt;
        return content ? make(PropertyListDate{std::bit_cast<double>(number(*content))}) : nullptr;
    case 0x4:
        content = takeCounted(at, 1);
        return content ? make(PropertyListData(content->begin(), content->end())) : nullptr;
    case 0x5:
        content = takeCounted(at, 1);
        return content ? make(utf8FromBytes(*content)) : nullptr;
    case 0x6:
        content = takeCounted(at, 2);
        return content ? make(utf8FromUTF16(*content)) : nullptr;
    case 0x8:
        content = low < 8 ? take(at + 1, low + 1) : std::nullopt;
        return content ? make(PropertyListUID{number(*content)}) : nullptr;
    case 0xA:
        content = takeCounted(at, referenceWidth_);
        return content ? array(*content, depth) : nullptr;
    case 0xD:
        content = takeCounted(at, 2 * referenceWidth_);
        return content ? dictionary(*content, depth) : nullptr;
    default:
        return nullptr;
    }
}

// 1, 2 and 4 bytes are unsigned; 8 are signed; 16 are signed unless the upper half is 0.
PropertyListRef Reader::integer(Bytes bytes) const
{
    const std::uint64_t low = number(bytes);
    const bool mayBeNegative = bytes.size() == 8 || (bytes.size() == 16 && number(bytes.first(8)) != 0);
    return make(PropertyListInteger{low, mayBeNegative && low >> 63 == 1});
}

PropertyListRef Reader::array(Bytes references, std::size_t depth)
{
    PropertyListArray elements;
    elements.reserve(references.size() / referenceWidth_);
    for (; !references.empty(); references = references.subspan(referenceWidth_)) {
        elements.push_back(object(number(references.first(referenceWidth_)), depth + 1));
        if (!elements.back())
            return nullptr;
    }
    return make(std::move(elements));
}

PropertyListRef Reader::dictionary(Bytes references, std::size_t depth)
{
    PropertyListDictionary entries;
    Bytes values = references.subspan(references.size() / 2);
    for (; !values.empty();
         values = values.subspan(referenceWidth_), references = references.subspan(referenceWidth_)) {
        PropertyListRef key = object(number(references.first(referenceWidth_)), depth + 1);
        PropertyListRef value = object(number(values.first(referenceWidth_)), depth + 1);
        if (!key || !key->as<std::string>() || !value)
            return nullptr;
        entries.add(std::move(key), std::move(value));
    }
    return make(std::move(entries));
}

std::optional<Bytes> Reader::take(std::size_t at, std::uint64_t size)
{
    if (at > tableStart_ || size > tableStart_ - at || size > untaken_)
        return std::nullopt;
    untaken_ -= static_cast<std::size_t>(size);
    return bytes_.subspan(at, static_cast<std::size_t>(size));
}

// The contents of the object at `at`. The marker, or an integer object after it, holds the number of units.
std::optional<Bytes> Reader::takeCounted(std::size_t at, std::size_t unit)
{
    std::uint64_t count = bytes_[at++] & 0x0F;
    if (count == 15) {
        const auto marker = take(at, 1);
        if (!marker || (*marker)[0] < 0x10 || (*marker)[0] > 0x13)
            return std::nullopt;
        const std::size_t width = std::size_t{1} << ((*marker)[0] & 0x0F);
        const auto digits = take(at + 1, width);
        if (!digits)
            return std::nullopt;
        count = number(*digits);
        at += 1 + width;
    }
    return count > tableStart_ / unit ? std::nullopt : take(at, count * unit);
}

} // namespace

std::optional<PropertyListValue> parseBinaryPropertyList(std::span<const std::uint8_t> bytes)
{
    const PropertyListRef root = Reader(bytes).read();
    if (!root)
        return std::nullopt;
    return *root;
}

} // namespace qmx
