// SPDX-License-Identifier: MIT
#include "Formats/ByteUtility.h"

#include <gtest/gtest.h>

#include <vector>

TEST(ByteUtility, ReversesWordByWordAndALastPartWordWhole)
{
    using Bytes = std::vector<UInt8>;
    const auto reversed = [](UInt32 wordLength, UInt32 length) {
        Bytes bytes{1, 2, 3, 4, 5, 6, 7, 8};
        ByteUtility::toNetworkByteOrder_wordLength_length(bytes.data(), wordLength, length);
        return bytes;
    };
    EXPECT_EQ(reversed(2, 8), (Bytes{2, 1, 4, 3, 6, 5, 8, 7}));
    EXPECT_EQ(reversed(4, 8), (Bytes{4, 3, 2, 1, 8, 7, 6, 5}));
    EXPECT_EQ(reversed(4, 5), (Bytes{4, 3, 2, 1, 8, 7, 6, 5}));
    EXPECT_EQ(reversed(1, 8), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(reversed(0, 8), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));

    UInt64 word = 1;
    ByteUtility::toNetworkByteOrder64bit(&word);
    EXPECT_EQ(word, 72057594037927936u);
}
