// SPDX-License-Identifier: MIT
// Shared by the tests of work on whole files: a disk in memory with two paths, and a listener to progress.
#pragma once

#include "Processing/QMXProgressSubscriber.h"
#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/CapturedFailures.h"
#include "support/MemoryDisk.h"

#include <gmock/gmock.h>

namespace qmx::test
{

class Progress : public QMXProgressSubscriber
{
public:
    void progressUpdate(float progress) override { values.push_back(progress); }
    std::vector<float> values;
};

class FileWork : public testing::Test
{
protected:
    ByteBlock audioAt(const std::string& file) { return qmx::test::audioAt(file); }
    /// Expects an object's last operation to have failed so.
    template <class Object> static void expectFailure(const Object& object, OSStatus status, const std::string& error)
    {
        EXPECT_EQ(object.lastStatus(), status) << object.lastError();
        EXPECT_EQ(object.lastError(), error);
    }

    MemoryDisk disk;
    CapturedFailures failures;
    const std::string path = "/d/a.aif", other = "/d/b.aif";
};

} // namespace qmx::test
