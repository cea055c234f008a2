// SPDX-License-Identifier: MIT
#include "Foundation/Threads/Retirement.h"

#include "Foundation/RealTime.h"

#include <gmock/gmock.h>
#include <vector>

TEST(Retirement, WhatIsGivenUpInRealTimeEndsOnAnotherThread)
{
    struct Note final : qmx::Retirable {
        explicit Note(std::vector<int>& list, int id) : ended(list), number(id) {}
        ~Note() override
        {
            EXPECT_FALSE(qmx::isRealTime());
            ended.push_back(number);
        }
        std::vector<int>& ended;
        int number;
    };
    std::vector<int> ended;
    auto object = std::make_shared<int>();
    const std::weak_ptr<int> weakObject = object;
    auto* const reference = new qmx::RetirableReference;
    std::vector<Note*> notes{new Note(ended, 1), new Note(ended, 2), new Note(ended, 3)};
    {
        const qmx::RealTimeScope realTime;
        for (Note* note : notes)
            qmx::retire(note);
        reference->reference = std::move(object);
        qmx::retire(reference);
    }
    qmx::waitUntilRetired();
    EXPECT_THAT(ended, testing::ElementsAre(1, 2, 3));
    EXPECT_TRUE(weakObject.expired());
}
