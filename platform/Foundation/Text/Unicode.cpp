// SPDX-License-Identifier: MIT
#include "Foundation/Text/Unicode.h"

#include <bit>
#include <cstddef>

namespace qmx
{

namespace
{

constexpr char32_t replacement = 0xFFFD;

bool isSurrogate(char32_t point)
{
    return point >= 0xD800 && point < 0xE000;
}

void append(std::string& text, char32_t point)
{
    const auto add = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
    const auto addRest = [&](int shift) { add(0x80 | ((point >> shift) & 0x3F)); };
    if (point < 0x80) {
        add(point);
    } else if (point < 0x800) {
        add(0xC0 | (point >> 6));
        addRest(0);
    } else if (point < 0x10000) {
        add(0xE0 | (point >> 12));
        addRest(6);
        addRest(0);
    } else {
        add(0xF0 | (point >> 18));
        addRest(12);
        addRest(6);
        addRest(0);
    }
}

// the next code point, which is taken off `bytes`; a bad sequence loses its first byte only
char32_t takePoint(std::span<const std::uint8_t>& bytes)
{
    const std::uint8_t lead = bytes[0];
    const auto length = static_cast<std::size_t>(std::countl_one(lead));
    const std::span<const std::uint8_t> all = bytes;
    bytes = bytes.subspan(1);
    if (length == 0)
        return lead;
    if (length == 1 || length > 4 || length > all.size())
        return replacement;
    char32_t point = lead & (0x7Fu >> length);
    for (const std::uint8_t byte : all.subspan(1, length - 1)) {
        if ((byte & 0xC0) != 0x80)
            return replacement;
        point = (point << 6) | (byte & 0x3Fu);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < smallest[length] || point > 0x10FFFF || isSurrogate(point))
        return replacement;
    bytes = all.subspan(length);
    return point;
}

} // namespace

std::string utf8FromBytes(std::span<const std::uint8_t> bytes)
{
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty())
        append(text, takePoint(bytes));
    return text;
}

std::string utf8FromUTF16(std::span<const std::uint8_t> bytes)
{
    std::string text;
    text.reserve(bytes.size());
    const auto unitAt = [&](std::size_t at) { return static_cast<char32_t>((bytes[at] << 8) | bytes[at + 1]); };
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
        const char32_t unit = unitAt(at);
        const char32_t next = at + 3 < bytes.size() ? unitAt(at + 2) : 0;
        if (!isSurrogate(unit)) {
            append(text, unit);
        } else if (unit < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
            append(text, 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00));
            at += 2;
        } else {
            append(text, replacement);
        }
    }
    return text;
}

std::vector<char16_t> utf16FromUTF8(std::string_view text)
{
    std::vector<char16_t> units;
    units.reserve(text.size());
    std::span<const std::uint8_t> bytes{reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
    while (!bytes.empty()) {
        const char32_t point = takePoint(bytes);
        if (point < 0x10000) {
            units.push_back(static_cast<char16_t>(point));
        } else {
            units.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
        }
    }
    return units;
}

} // namespace qmx
