// SPDX-License-Identifier: MIT
// Audio units for tests.
#pragma once

#include "AudioUnit/AudioUnit.h"
#include "support/Slices.h"

#include <functional>
#include <gtest/gtest.h>

namespace qmx::test
{

inline constexpr ComponentDescription converterUnit{kAudioUnitType_FormatConverter, kAudioUnitSubType_AUConverter,
                                                    kAudioUnitManufacturer_Apple};
inline constexpr ComponentDescription defaultOutput{kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput,
                                                    kAudioUnitManufacturer_Apple};

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

private:
    AudioUnit unit_ = nullptr;
};

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
