// SPDX-License-Identifier: MIT
// Shared by the tests of the sound server's devices: a server, with or without a session manager, waiting for
// listeners' reports, and procedures.
#pragma once

#include "support/DeviceProperties.h"
#include "support/OutsideRealTime.h"
#include "support/SoundServer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

inline std::span<Float32> samplesOf(const AudioBufferList& list)
{
    if (list.mNumberBuffers == 0)
        return {};
    return {static_cast<Float32*>(list.mBuffers[0].mData), list.mBuffers[0].mDataByteSize / sizeof(Float32)};
}

/// Whether the times were continuous.
struct Times {
    Float64 next = -1;
    std::atomic<int> breaks{0};
    void add(const AudioTimeStamp& time, std::size_t frames)
    {
        if (next >= 0 && time.mSampleTime != next)
            ++breaks;
        next = time.mSampleTime + static_cast<Float64>(frames);
    }
};

/// What an input captured.
struct Capture {
    explicit Capture(std::size_t most) : samples(most) {}
    std::vector<Float32> samples;
    std::atomic<std::size_t> used{0};

    void add(std::span<const Float32> from)
    {
        const std::size_t count = std::min(from.size(), samples.size() - used);
        std::copy_n(from.begin(), count, samples.begin() + static_cast<std::ptrdiff_t>(used.load()));
        used += count;
    }
    bool isFull() const { return used == samples.size(); }
};

class Procedure
{
public:
    using Work =
        std::function<void(const AudioBufferList&, const AudioTimeStamp&, AudioBufferList&, const AudioTimeStamp&)>;
    Procedure(AudioDeviceID device, Work work) : device_(device), work_(std::move(work))
    {
        EXPECT_EQ(AudioDeviceAddIOProc(device_, run, this), noErr);
    }
    ~Procedure() { (void)AudioDeviceRemoveIOProc(device_, run, this); } // may be removed already
    OSStatus start() { return AudioDeviceStart(device_, run, this); }
    OSStatus stop() { return AudioDeviceStop(device_, run, this); }

private:
    static OSStatus run(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList* input,
                        const AudioTimeStamp* inputTime, AudioBufferList* output, const AudioTimeStamp* outputTime,
                        void* self)
    {
        static_cast<Procedure*>(self)->work_(*input, *inputTime, *output, *outputTime);
        return noErr;
    }
    AudioDeviceID device_;
    Work work_;
};

class PipeWireTest : public qmx::test::DeviceProperties
{
protected:
    explicit PipeWireTest(bool isManaged = false)
    {
        EXPECT_EQ(qmx::setAudioBackend(qmx::AudioBackend::pipeWire), noErr);
        server().start(isManaged);
        EXPECT_EQ(AudioHardwareAddPropertyListener(kAudioPropertyWildcardPropertyID, hardwareHeard, this), noErr);
        EXPECT_TRUE(waitUntil([] { return find("test-sink") && find("test-source"); }))
            << "the server's devices do not come";
        if (isManaged)
            server().linkSinkToSource();
    }
    ~PipeWireTest() override
    {
        while (!listened_.empty())
            stopListeningTo(*listened_.begin());
        server().kill();
        EXPECT_TRUE(waitUntil([] { return devices().empty(); })) << "devices outlast the server";
        EXPECT_EQ(AudioHardwareRemovePropertyListener(kAudioPropertyWildcardPropertyID, hardwareHeard, this), noErr);
    }

    static qmx::test::SoundServer& server()
    {
        static qmx::test::SoundServer shared;
        return shared;
    }

    /// Checks again after each report of a listener or a procedure.
    bool waitUntil(const std::function<bool()>& isMet)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        for (;;) {
            std::unique_lock lock(mutex_);
            const std::size_t before = heardCount_;
            lock.unlock();
            if (isMet())
                return true;
            lock.lock();
            const bool hasHeard = heard_.wait_until(lock, deadline, [&] { return heardCount_ != before; });
            lock.unlock();
            if (!hasHeard)
                return isMet();
        }
    }
    /// The same, and listeners must have been called for the device's property since the last call.
    bool waitFor(AudioDeviceID device, AudioDevicePropertyID property, const std::function<bool()>& isMet)
    {
        return waitUntil([&] { return isMet() && wasTold(device, property); });
    }
    bool wasTold(AudioDeviceID device, AudioDevicePropertyID property)
    {
        const std::scoped_lock lock(mutex_);
        return changes_.erase({device, property}) > 0;
    }
    void tell(AudioDeviceID device = kAudioDeviceUnknown, AudioDevicePropertyID property = 0)
    {
        const std::scoped_lock lock(mutex_);
        changes_.emplace(device, property);
        ++heardCount_;
        heard_.notify_all();
    }

    /// The device with a UID; 0 if there is none.
    static AudioDeviceID find(const std::string& uid)
    {
        for (const AudioDeviceID id : devices())
            if (textOf(id, kAudioDevicePropertyDeviceUID) == uid)
                return id;
        return kAudioDeviceUnknown;
    }
    static UInt32 channelsOf(AudioDeviceID device, bool isInput)
    {
        const auto list = get<AudioBufferList>(device, 0, isInput, kAudioDevicePropertyStreamConfiguration);
        return list.mNumberBuffers ? list.mBuffers[0].mNumberChannels : 0;
    }
    static void force(const std::string& what, UInt32 value)
    {
        server().run("pw-metadata -n settings 0 clock.force-" + what + " " + std::to_string(value));
    }
    static void expectSeen(const std::string& command, const std::string& text)
    {
        const std::string seen = server().run(command);
        EXPECT_NE(seen.find(text), std::string::npos) << seen;
    }
    /// Runs the device for `count` cycles; returns their frames.
    std::vector<UInt32> cyclesOf(AudioDeviceID device, std::size_t count)
    {
        std::vector<UInt32> frames(count);
        std::atomic<std::size_t> used{0};
        Procedure procedure(device, [&](const auto& input, const auto&, auto& output, const auto&) {
            if (used < count)
                frames[used++] = static_cast<UInt32>(std::max(samplesOf(input).size(), samplesOf(output).size()) / 2);
            const qmx::test::OutsideRealTime outside;
            tell();
        });
        EXPECT_EQ(procedure.start(), noErr);
        EXPECT_TRUE(waitUntil([&] { return used == count; }));
        EXPECT_EQ(procedure.stop(), noErr);
        return frames;
    }
    /// Until stopListeningTo(), or the end of the test.
    void listenTo(AudioDeviceID device)
    {
        {
            const std::scoped_lock lock(mutex_);
            std::erase_if(changes_, [device](const auto& change) { return change.first == device; }); // told before
        }
        if (listened_.insert(device).second) {
            EXPECT_EQ(noErr, AudioDeviceAddPropertyListener(device, kAudioPropertyWildcardChannel,
                                                            kAudioPropertyWildcardSection,
                                                            kAudioPropertyWildcardPropertyID, deviceHeard, this));
        }
    }
    void stopListeningTo(AudioDeviceID device)
    {
        listened_.erase(device);
        EXPECT_EQ(noErr, AudioDeviceRemovePropertyListener(device, kAudioPropertyWildcardChannel,
                                                           kAudioPropertyWildcardSection,
                                                           kAudioPropertyWildcardPropertyID, deviceHeard, this));
    }
    /// Plugs a device in from outside and waits for it.
    AudioDeviceID plugIn(const std::string& name, const std::string& properties = "media.class=Audio/Sink")
    {
        server().plugIn(name, properties);
        return awaited(name);
    }
    AudioDeviceID awaited(const std::string& name)
    {
        EXPECT_TRUE(waitUntil([&] { return find(name) != 0; })) << name;
        return find(name);
    }
    /// What a procedure does that only counts its cycles.
    Procedure::Work counting(std::atomic<int>& cycles)
    {
        return [this, &cycles](const auto&, const auto&, auto&, const auto&) {
            ++cycles;
            const qmx::test::OutsideRealTime outside;
            tell();
        };
    }

private:
    static OSStatus hardwareHeard(AudioHardwarePropertyID, void* self)
    {
        static_cast<PipeWireTest*>(self)->tell();
        return noErr;
    }
    static OSStatus deviceHeard(AudioDeviceID device, UInt32, Boolean, AudioDevicePropertyID property, void* self)
    {
        static_cast<PipeWireTest*>(self)->tell(device, property);
        return noErr;
    }
    std::mutex mutex_;
    std::condition_variable heard_;
    std::size_t heardCount_ = 0;
    std::set<std::pair<AudioDeviceID, AudioDevicePropertyID>> changes_;
    std::set<AudioDeviceID> listened_;
};

/// The server with a session manager, or without one.
class ManagedOrNot : public PipeWireTest, public testing::WithParamInterface<bool>
{
public:
    ManagedOrNot() : PipeWireTest(GetParam()) {}
    static std::string name(const testing::TestParamInfo<bool>& info) { return info.param ? "Managed" : "Bare"; }
};
