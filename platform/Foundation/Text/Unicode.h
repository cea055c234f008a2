// SPDX-License-Identifier: MIT
// Converts text between encodings. Each malformed sequence becomes one U+FFFD. Any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qmx
{

/// The text of bytes that should be UTF-8 but may be malformed.
std::string utf8FromBytes(std::span<const std::uint8_t> bytes);
/// The text of big-endian UTF-16 units; an odd last byte is left out.
std::string utf8FromUTF16(std::span<const std::uint8_t> bytes);
std::vector<char16_t> utf16FromUTF8(std::string_view text);

} // namespace qmx
