// SPDX-License-Identifier: MIT
#include "Foundation/ByteFields.h"

namespace qmx
{

ByteWriter& ByteWriter::integer(UInt64 value, std::size_t width, ByteOrder order)
{
    UInt8 field[sizeof value];
    storeInteger(field, value, width, order);
    return append(std::span(field, width));
}

ByteWriter& ByteWriter::append(std::span<const UInt8> bytes)
{
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
}

ByteWriter& ByteWriter::append(std::string_view text)
{
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
}

ByteWriter& ByteWriter::zeros(std::size_t count)
{
    bytes_.resize(bytes_.size() + count);
    return *this;
}

ByteWriter& ByteWriter::pascalString(std::string_view text)
{
    bytes_.push_back(static_cast<UInt8>(text.size()));
    return append(text).zeros(text.size() % 2 == 0 ? 1 : 0);
}

} // namespace qmx
