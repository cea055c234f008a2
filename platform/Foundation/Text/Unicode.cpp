// SPDX-License-Identifier: MIT
#include "Foundation/Text/Unicode.h"

#include <iterator>
#include <utf8.h>

namespace qmx
{

namespace
{

constexpr char32_t replacement = 0xFFFD;

bool isSurrogate(char32_t point)
{
    return point >= 0xD800 && point < 0xE000;
}

} // namespace

std::string utf8FromBytes(std::span<const std::uint8_t> bytes)
{
    std::string text;
    text.reserve(bytes.size());
    utf8::replace_invalid(bytes.begin(), bytes.end(), std::back_inserter(text));
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
            utf8::unchecked::append(unit, std::back_inserter(text));
        } else if (unit < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
            utf8::unchecked::append(0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00), std::back_inserter(text));
            at += 2;
        } else {
            utf8::unchecked::append(replacement, std::back_inserter(text));
        }
    }
    return text;
}

std::vector<char16_t> utf16FromUTF8(std::string_view text)
{
    const std::string whole = utf8FromBytes({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    std::vector<char16_t> units;
    units.reserve(whole.size());
    utf8::unchecked::utf8to16(whole.begin(), whole.end(), std::back_inserter(units));
    return units;
}

} // namespace qmx
