// SPDX-License-Identifier: MIT
// Four-character codes: the platform's 32-bit identifiers (formats, file types, properties, statuses).
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <string>

namespace qmx
{

/// The code spelled by a literal of exactly four characters, its first character in the most significant byte.
consteval FourCharCode fourCharCode(const char (&text)[5])
{
    FourCharCode code = 0;
    for (int i = 0; i < 4; ++i)
        code = (code << 8) | static_cast<UInt8>(text[i]);
    return code;
}

/// The same code as a signed status.
consteval OSStatus statusCode(const char (&text)[5])
{
    return static_cast<OSStatus>(fourCharCode(text));
}

/// The four bytes of `code` from the most significant down, as text. Any thread.
inline std::string fourCharString(FourCharCode code)
{
    return {static_cast<char>(code >> 24), static_cast<char>(code >> 16), static_cast<char>(code >> 8),
            static_cast<char>(code)};
}

} // namespace qmx
