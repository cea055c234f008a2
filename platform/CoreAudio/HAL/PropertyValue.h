// SPDX-License-Identifier: MIT
// A property's value on its way to the caller's block.
#pragma once

#include "CoreAudio/AudioHardware.h"

#include <cstddef>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

namespace qmx
{

struct PropertyValue {
    enum class Kind {
        fixed,    ///< whole or not at all
        list,     ///< the whole entries that fit
        cText,    ///< cut to what fits, always ended by a zero byte
        reference ///< a new CFStringRef of the text
    };
    Kind kind = Kind::fixed;
    std::vector<std::byte> bytes;
    std::size_t entrySize = 1;
    std::string text;
    bool isWritable = false;

    template <class T> static PropertyValue of(const T& value, bool isWritable = false)
    {
        static_assert(std::is_trivially_copyable_v<T>);
        const auto bytes = std::as_bytes(std::span(&value, 1));
        return {.kind = Kind::fixed,
                .bytes = {bytes.begin(), bytes.end()},
                .entrySize = 1,
                .text = {},
                .isWritable = isWritable};
    }
    template <class T> static PropertyValue listOf(const std::vector<T>& values)
    {
        const auto bytes = std::as_bytes(std::span(values));
        return {.kind = Kind::list,
                .bytes = {bytes.begin(), bytes.end()},
                .entrySize = sizeof(T),
                .text = {},
                .isWritable = false};
    }
    static PropertyValue flag(bool value, bool isWritable = false) { return of(UInt32{value}, isWritable); }
    static PropertyValue cText(const std::string& text);
    static PropertyValue reference(const std::string& text);

    UInt32 size() const;
    /// Copies into the caller's block.
    OSStatus copyTo(UInt32* ioSize, void* out) const;
    /// What GetPropertyInfo answers; null pointers are left out.
    OSStatus describe(UInt32* outSize, Boolean* outWritable) const;
};

/// A value of a fixed type that a caller gives: kAudioHardwareBadPropertySizeError unless it has that size.
template <class T> OSStatus takeValue(UInt32 size, const void* data, T& value)
{
    if (!data)
        return kAudio_ParamError;
    if (size != sizeof(T))
        return kAudioHardwareBadPropertySizeError;
    std::memcpy(&value, data, sizeof(T));
    return noErr;
}

/// A value that is translated within the caller's block.
template <class T, class Translate> OSStatus translateInPlace(UInt32* ioSize, void* block, Translate translate)
{
    if (*ioSize < sizeof(T))
        return kAudioHardwareBadPropertySizeError;
    T value;
    std::memcpy(&value, block, sizeof(T));
    const OSStatus status = translate(value);
    std::memcpy(block, &value, sizeof(T));
    *ioSize = sizeof(T);
    return status;
}

/// The record of a translation between two blocks of the caller's, checked: room for `outputSize` bytes, input where
/// `inputSize` is not 0.
OSStatus takeTranslation(UInt32* ioSize, const void* block, UInt32 inputSize, UInt32 outputSize,
                         AudioValueTranslation& translation);

} // namespace qmx
