// SPDX-License-Identifier: MIT
#include "Formats/ByteUtility.h"

#include <algorithm>
#include <cstddef>

void ByteUtility::toNetworkByteOrder_wordLength_length(UInt8* bytes, UInt32 wordLength, UInt32 length)
{
    if (wordLength == 0)
        return;
    for (std::size_t position = 0; position < length; position += wordLength)
        std::reverse(bytes + position, bytes + position + wordLength);
}

void ByteUtility::toNetworkByteOrder32bit(void* word)
{
    toNetworkByteOrder_wordLength_length(static_cast<UInt8*>(word), 4, 4);
}

void ByteUtility::toNetworkByteOrder64bit(void* word)
{
    toNetworkByteOrder_wordLength_length(static_cast<UInt8*>(word), 8, 8);
}
