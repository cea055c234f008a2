// SPDX-License-Identifier: MIT
#include "Foundation/Threads/Retirement.h"

#include "Foundation/RealTime.h"

#include <gmock/gmock.h>
#include <vector>

TEST(Retirement, WhatIsGivenUpInRealTimeEndsInOrderOnAnotherThread)
{
    std::vector<int> ended;
    std::vector<qmx::RetirableReference*> references;
    for (const int number : {1, 2, 3}) {
        references.push_back(new qmx::RetirableReference);
        references.back()->reference = std::shared_ptr<const void>(nullptr, [&ended, number](const void*) {
            EXPECT_FALSE(qmx::isRealTime());
            ended.push_back(number);
        });
    }
    {
        const qmx::RealTimeScope realTime;
        for (qmx::RetirableReference* const reference : references)
            qmx::retire(reference);
    }
    qmx::waitUntilRetired();
    EXPECT_THAT(ended, testing::ElementsAre(1, 2, 3));
}
