// SPDX-License-Identifier: MIT
// Audio units for tests.
#pragma once

#include "AudioUnit/AUGraph.h"
#include "AudioUnit/AudioUnit.h"
#include "CoreAudio/VirtualHardware.h"
#include "support/Slices.h"

#include <functional>
#include <gtest/gtest.h>

namespace qmx::test
{

inline constexpr ComponentDescription converterUnit{kAudioUnitType_FormatConverter, kAudioUnitSubType_AUConverter,
                                                    kAudioUnitManufacturer_Apple};
inline constexpr ComponentDescription varispeedUnit{kAudioUnitType_FormatConverter, kAudioUnitSubType_Varispeed,
                                                    kAudioUnitManufacturer_Apple};
inline constexpr ComponentDescription defaultOutput{kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput,
                                                    kAudioUnitManufacturer_Apple};

inline constexpr ComponentDescription halOutput{kAudioUnitType_Output, kAudioUnitSubType_HALOutput,
                                                kAudioUnitManufacturer_Apple};

template <class T>
OSStatus set(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope, const T& value,
             AudioUnitElement element = 0)
{
    return AudioUnitSetProperty(unit, property, scope, element, &value, sizeof value);
}

template <class T>
T get(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope, AudioUnitElement element = 0)
{
    T value{};
    UInt32 size = sizeof value;
    EXPECT_EQ(noErr, AudioUnitGetProperty(unit, property, scope, element, &value, &size));
    EXPECT_EQ(sizeof value, size);
    return value;
}

/// An opened unit that closes itself.
class OpenUnit
{
public:
    explicit OpenUnit(const ComponentDescription& description)
    {
        EXPECT_EQ(noErr, OpenAComponent(FindNextComponent(nullptr, &description), &unit_));
    }
    ~OpenUnit() { close(); }
    OpenUnit(const OpenUnit&) = delete;
    OpenUnit& operator=(const OpenUnit&) = delete;

    operator AudioUnit() const { return unit_; }
    void close() { (void)CloseComponent(std::exchange(unit_, nullptr)); }

    template <class T>
    OSStatus set(AudioUnitPropertyID property, AudioUnitScope scope, const T& value, AudioUnitElement element = 0)
    {
        return qmx::test::set(unit_, property, scope, value, element);
    }
    template <class T> T get(AudioUnitPropertyID property, AudioUnitScope scope, AudioUnitElement element = 0) const
    {
        return qmx::test::get<T>(unit_, property, scope, element);
    }
    OSStatus setInput(const AURenderCallbackStruct& callback)
    {
        return set(kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, callback);
    }
    OSStatus nameDevice(UInt32 id) { return set(kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, id); }
    bool isRunning() const
    {
        VirtualHardware::shared().settle();
        return get<UInt32>(kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global) != 0;
    }
    void start()
    {
        EXPECT_EQ(noErr, AudioUnitInitialize(unit_));
        EXPECT_EQ(noErr, AudioOutputUnitStart(unit_));
    }

private:
    AudioUnit unit_ = nullptr;
};

/// A graph, disposed of at the end.
class OpenGraph
{
public:
    OpenGraph() { EXPECT_EQ(NewAUGraph(&graph_), noErr); }
    ~OpenGraph() { EXPECT_EQ(DisposeAUGraph(graph_), noErr); }
    OpenGraph(const OpenGraph&) = delete;
    OpenGraph& operator=(const OpenGraph&) = delete;

    operator AUGraph() const { return graph_; }
    AUNode add(const ComponentDescription& description)
    {
        AUNode node = 0;
        EXPECT_EQ(noErr, AUGraphNewNode(graph_, &description, 0, nullptr, &node));
        return node;
    }
    AudioUnit unitOf(AUNode node) const
    {
        AudioUnit unit = nullptr;
        EXPECT_EQ(noErr, AUGraphGetNodeInfo(graph_, node, nullptr, nullptr, nullptr, &unit));
        return unit;
    }

private:
    AUGraph graph_ = nullptr;
};

/// Input that counts: frame n of every channel is n, plus the channel number times 1000.
class Counter
{
public:
    AURenderCallbackStruct callback() { return {renderNext, this}; }

    std::vector<Float64> times;     ///< of the requested slices
    std::function<void()> onRender; ///< called first
    OSStatus result = noErr;

private:
    static OSStatus renderNext(void* refCon, AudioUnitRenderActionFlags*, const AudioTimeStamp* time, UInt32,
                               UInt32 frames, AudioBufferList* data)
    {
        auto& self = *static_cast<Counter*>(refCon);
        if (self.onRender)
            self.onRender();
        if (self.times.size() < self.times.capacity())
            self.times.push_back(time->mSampleTime);
        AudioBuffer* const buffers = data->mBuffers;
        for (UInt32 channel = 0; channel < data->mNumberBuffers; ++channel)
            for (UInt32 i = 0; i < frames; ++i)
                static_cast<Float32*>(buffers[channel].mData)[i] =
                    static_cast<Float32>(time->mSampleTime + i + channel * 1000);
        return self.result;
    }
};

inline OSStatus render(AudioUnit unit, UInt32 frames, BufferList& list)
{
    const AudioTimeStamp zero;
    return AudioUnitRender(unit, nullptr, &zero, 0, frames, list.list());
}

} // namespace qmx::test
