// SPDX-License-Identifier: MIT
// A property's value, before it is copied to the caller's block.
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
        fixed,    ///< copied whole or not at all
        list,     ///< as many whole entries as fit
        cText,    ///< cut to what fits, always zero-terminated
        reference ///< a new CFStringRef, which the caller releases
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
    /// Copies the value into the caller's block of `*ioSize` bytes and sets that to the bytes used.
    OSStatus copyTo(UInt32* ioSize, void* out) const;
    /// Fills the results of GetPropertyInfo; either pointer may be null.
    OSStatus describe(UInt32* outSize, Boolean* outWritable) const;
};

/// Reads a value of a fixed type from the caller; kAudioHardwareBadPropertySizeError unless it has that size.
template <class T> OSStatus takeValue(UInt32 size, const void* data, T& value)
{
    if (!data)
        return kAudio_ParamError;
    if (size != sizeof(T))
        return kAudioHardwareBadPropertySizeError;
    std::memcpy(&value, data, sizeof(T));
    return noErr;
}

/// Translates a value in place, in the caller's block.
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

/// Reads the record of a translation between two buffers of the caller, and checks that there is room for `outputSize`
/// bytes and, unless `inputSize` is 0, input of that size.
OSStatus takeTranslation(UInt32* ioSize, const void* block, UInt32 inputSize, UInt32 outputSize,
                         AudioValueTranslation& translation);

} // namespace qmx
