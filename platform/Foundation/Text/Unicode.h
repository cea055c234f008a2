// SPDX-License-Identifier: MIT
// Text between encodings. What is not well-formed becomes U+FFFD, one for a sequence. Any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qmx
{

/// The text of bytes that should be UTF-8.
std::string utf8FromBytes(std::span<const std::uint8_t> bytes);
/// The text of UTF-16 units, two bytes each, the high one first; an odd last byte is left out.
std::string utf8FromUTF16(std::span<const std::uint8_t> bytes);
std::vector<char16_t> utf16FromUTF8(std::string_view text);

} // namespace qmx
