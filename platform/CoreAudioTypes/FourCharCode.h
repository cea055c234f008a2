// SPDX-License-Identifier: MIT
// Four-character codes: the platform's 32-bit identifiers (formats, file types, properties, statuses).
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

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

/// The library's own codes: the creator of its files, and the signatures of the application chunks that keep tracks
/// and, while they are stored, what a kill must not lose.
inline constexpr FourCharCode libraryCreatorCode = fourCharCode("KaRt");
inline constexpr FourCharCode trackSignature = fourCharCode("tRaK"), trackJournalSignature = fourCharCode("tRaJ");

/// Whether an application chunk of that signature, in either byte order, is the track store's.
constexpr bool isOfTrackStore(FourCharCode signature)
{
    return signature == trackSignature || signature == __builtin_bswap32(trackSignature) ||
           signature == trackJournalSignature;
}

} // namespace qmx
