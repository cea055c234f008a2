// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudio/VirtualHardware.h"
#include "Front/Recorder.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace qmx::test
{

/// Records until the microphone is unplugged, and lets `runLoop` run until `quit` is called. Returns why the recording
/// ended.
inline std::string reasonOfUnpluggedTake(const std::function<void()>& runLoop, const std::function<void()>& quit)
{
    const TemporaryFolder folder;
    VirtualHardware& hardware = VirtualHardware::shared();
    hardware.reset();
    const AudioDeviceID microphone = hardware.addDevice(VirtualHardware::standardDevice("mic", "Microphone", 1, 0));
    auto recorder = Recorder::start(*defaultInput(), folder.path("take.aif"));
    EXPECT_TRUE(recorder) << recorder.error().text();
    std::string reason;
    recorder->onEnd([&](const Error& why) {
        reason = why.text();
        quit();
    });
    EXPECT_TRUE(hardware.advanceCycles(microphone, 5));
    EXPECT_EQ(noErr, hardware.removeDevice(microphone));
    runLoop();
    EXPECT_EQ(5 * 512, recorder->summary().frames);
    return reason;
}

} // namespace qmx::test
