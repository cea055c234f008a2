// SPDX-License-Identifier: MIT
#include "Formats/QMXAudioBufferList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace
{

struct Destroy {
    void operator()(AudioBufferList* list) const { QMXAudioBufferList::destroyBuffers(list); }
};
using OwnedList = std::unique_ptr<AudioBufferList, Destroy>;

OwnedList makeList(UInt32 count, UInt32 channels, UInt32 bytes, int fill = 0)
{
    OwnedList list(QMXAudioBufferList::allocateBuffers_channelsPerBuffer_dataByteSize(count, channels, bytes));
    for (UInt32 i = 0; fill && i < count; ++i)
        std::memset(list->mBuffers[i].mData, fill, bytes);
    return list;
}

bool holdsOnly(const AudioBuffer& buffer, UInt8 value)
{
    const auto* bytes = static_cast<const UInt8*>(buffer.mData);
    return std::all_of(bytes, bytes + buffer.mDataByteSize, [=](UInt8 byte) { return byte == value; });
}

TEST(AudioBufferList, AllocatesIndependentZeroedBuffers)
{
    const OwnedList list = makeList(2, 1, 4096);
    ASSERT_EQ(list->mNumberBuffers, 2u);
    EXPECT_NE(list->mBuffers[0].mData, list->mBuffers[1].mData);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(list->mBuffers[i].mNumberChannels, 1u);
        EXPECT_EQ(list->mBuffers[i].mDataByteSize, 4096u);
        EXPECT_TRUE(holdsOnly(list->mBuffers[i], 0));
    }
    EXPECT_EQ(calculateByteSize(2), sizeof(AudioBufferList) + sizeof(AudioBuffer));
    EXPECT_EQ(makeList(0, 2, 16)->mNumberBuffers, 0u);
    EXPECT_EQ(makeList(UINT32_MAX, 1, 0), nullptr) << "the block would pass 32 bits";
}

TEST(AudioBufferList, DuplicateTakesTheFirstBuffersShapeForAllAndNoData)
{
    const OwnedList list = makeList(2, 1, 64, 5);
    list->mBuffers[1].mDataByteSize = 32;
    const OwnedList copy(QMXAudioBufferList::duplicate(list.get()));
    EXPECT_EQ(copy->mBuffers[1].mDataByteSize, 64u);
    EXPECT_TRUE(holdsOnly(copy->mBuffers[0], 0) && holdsOnly(copy->mBuffers[1], 0));
    EXPECT_EQ(OwnedList(QMXAudioBufferList::duplicate(makeList(0, 0, 0).get()))->mNumberBuffers, 0u);
    EXPECT_EQ(QMXAudioBufferList::duplicate(nullptr), nullptr);
}

TEST(AudioBufferList, CopiesOnlyBetweenListsOfOneShape)
{
    const OwnedList source = makeList(2, 1, 64, 5);
    const OwnedList same = makeList(2, 1, 64);
    QMXAudioBufferList::copyBuffer_toBuffer(source.get(), same.get());
    EXPECT_TRUE(holdsOnly(same->mBuffers[0], 5) && holdsOnly(same->mBuffers[1], 5));
    QMXAudioBufferList::clear(same.get());
    EXPECT_TRUE(holdsOnly(same->mBuffers[0], 0) && holdsOnly(same->mBuffers[1], 0));

    for (const OwnedList& other : {makeList(1, 1, 64), makeList(2, 1, 32), makeList(2, 2, 64)}) {
        QMXAudioBufferList::copyBuffer_toBuffer(source.get(), other.get());
        EXPECT_TRUE(holdsOnly(other->mBuffers[0], 0));
    }
    QMXAudioBufferList::copyBuffer_toBuffer(source.get(), nullptr);

    same->mBuffers[1].mDataByteSize = 16; // a smaller later buffer is not written past its end
    QMXAudioBufferList::copyBuffer_toBuffer(source.get(), same.get());
    EXPECT_EQ(static_cast<UInt8*>(same->mBuffers[1].mData)[16], 0);
}

} // namespace
