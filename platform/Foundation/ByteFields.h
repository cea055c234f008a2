// SPDX-License-Identifier: MIT
// Integers of either byte order in blocks of bytes.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

#include <bit>
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace qmx
{

using Bytes = std::vector<UInt8>;

enum class ByteOrder { big, little };
inline constexpr ByteOrder hostByteOrder = std::endian::native == std::endian::big ? ByteOrder::big : ByteOrder::little;

/// The unsigned integer of `width` bytes at `bytes`.
inline UInt64 loadInteger(const UInt8* bytes, std::size_t width, ByteOrder order)
{
    UInt64 value = 0;
    for (std::size_t i = 0; i < width; ++i)
        value = (value << 8) | bytes[order == ByteOrder::big ? i : width - 1 - i];
    return value;
}

inline UInt16 load16(const UInt8* bytes, ByteOrder order)
{
    return static_cast<UInt16>(loadInteger(bytes, 2, order));
}

inline UInt32 load32(const UInt8* bytes, ByteOrder order)
{
    return static_cast<UInt32>(loadInteger(bytes, 4, order));
}

inline UInt64 load64(const UInt8* bytes, ByteOrder order)
{
    return loadInteger(bytes, 8, order);
}

inline void storeInteger(UInt8* bytes, UInt64 value, std::size_t width, ByteOrder order)
{
    for (std::size_t i = 0; i < width; ++i)
        bytes[order == ByteOrder::little ? i : width - 1 - i] = static_cast<UInt8>(value >> (8 * i));
}

inline void store32(UInt8* bytes, UInt32 value, ByteOrder order)
{
    storeInteger(bytes, value, 4, order);
}

/// Builds a block of fields one after the other.
class QMX_EXPORT ByteWriter
{
public:
    explicit ByteWriter(ByteOrder order) : order_(order) {}

    /// Appends the low `width` bytes (8 at most) of a number in `order`.
    ByteWriter& integer(UInt64 value, std::size_t width, ByteOrder order);
    ByteWriter& u16(UInt16 value) { return integer(value, 2, order_); }
    ByteWriter& u32(UInt32 value) { return integer(value, 4, order_); }
    ByteWriter& u64(UInt64 value) { return integer(value, 8, order_); }
    /// Appends a four-character code: its characters in reading order, whatever the byte order.
    ByteWriter& code(FourCharCode value) { return integer(value, 4, ByteOrder::big); }
    ByteWriter& append(std::span<const UInt8> bytes);
    /// Appends a code, the size in 32 bits, and the contents.
    ByteWriter& chunk(FourCharCode id, std::span<const UInt8> contents)
    {
        return code(id).u32(static_cast<UInt32>(contents.size())).append(contents);
    }
    ByteWriter& append(std::string_view text);
    ByteWriter& zeros(std::size_t count);
    /// Appends a length byte and the text, padded together to an even number of bytes.
    ByteWriter& pascalString(std::string_view text);

    const Bytes& bytes() const { return bytes_; }

private:
    ByteOrder order_;
    Bytes bytes_;
};

} // namespace qmx
