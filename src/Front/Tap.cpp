// SPDX-License-Identifier: MIT
#include "Front/Tap.h"

#include "CoreAudioTypes/AudioBuffers.h"
#include "Devices/QMXAudioDevice.h"
#include "Foundation/Threads/Retirement.h"
#include "Front/Missing.h"
#include "Front/ShortMemory.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <vector>

namespace qmx
{

TapFunction::~TapFunction() = default;

/// Calls the function in the cycles of the tap's device.
struct Tap::Subscriber final : QMXCoreAudioIOSubscriber {
    Subscriber(bool input, std::unique_ptr<TapFunction> called, UInt32 channelCount, UInt32 roomFrames)
        : isInput(input), function(std::move(called)), channels(channelCount),
          gathered(std::size_t{channelCount} * roomFrames)
    {
    }

    OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice&, const AudioTimeStamp*, const AudioBufferList* input, const AudioTimeStamp*,
        AudioBufferList* output, const AudioTimeStamp*, QMXAudioDevice&) override
    {
        const AudioBufferList* const list = isInput ? input : output;
        if (!isOn.load(std::memory_order_relaxed) || !list || list->mNumberBuffers == 0)
            return noErr;
        const AudioBuffer& first = list->mBuffers[0];
        if (list->mNumberBuffers == 1 && first.mNumberChannels > 0)
            (*function)(samplesOf(first), first.mNumberChannels);
        else
            callWithAll(*list);
        return noErr;
    }

    static std::span<float> samplesOf(const AudioBuffer& buffer)
    {
        return {static_cast<float*>(buffer.mData), buffer.mDataByteSize / sizeof(float)};
    }

    /// In pieces that fit the memory.
    void callWithAll(const AudioBufferList& list)
    {
        const std::span<const AudioBuffer> streams(list.mBuffers, list.mNumberBuffers);
        const std::size_t room = gathered.size() / channels;
        std::size_t frames = std::numeric_limits<std::size_t>::max();
        for (const AudioBuffer& stream : streams)
            frames = std::min(frames, samplesOf(stream).size() / std::max(stream.mNumberChannels, 1U));
        for (std::size_t done = 0; done < frames && room > 0 && isOn.load(std::memory_order_relaxed); done += room) {
            const std::size_t count = std::min(frames - done, room);
            const auto piece = std::span(gathered).first(count * channels);
            std::ranges::fill(piece, 0.0F);
            if (isInput)
                exchange(streams, done, count, [](float& own, const float& theirs) { own = theirs; });
            (*function)(piece, channels);
            if (!isInput)
                exchange(streams, done, count, [](const float& own, float& theirs) { theirs = own; });
        }
    }

    /// Calls `copy` with each sample of the piece and its place in the streams.
    template <class Copy>
    void exchange(std::span<const AudioBuffer> streams, std::size_t firstFrame, std::size_t frames, Copy copy)
    {
        std::size_t firstChannel = 0;
        for (const AudioBuffer& stream : streams) {
            float* theirs = samplesOf(stream).data() + firstFrame * stream.mNumberChannels;
            for (std::size_t frame = 0; frame < frames; ++frame)
                for (std::size_t channel = firstChannel; channel < firstChannel + stream.mNumberChannels; ++channel) {
                    if (channel < channels) // what the device gained since the start is left out
                        copy(gathered[frame * channels + channel], *theirs);
                    ++theirs;
                }
            firstChannel += stream.mNumberChannels;
        }
    }

    const bool isInput;
    const std::unique_ptr<TapFunction> function;
    const UInt32 channels;
    std::vector<float> gathered; ///< of several streams
    std::atomic<bool> isOn{true};
};

/// The device object is the tap's own, so that releasing it stops what the tap started and nothing else.
struct Tap::Implementation final : Retirable {
    /// Others may hold the device object a little longer.
    ~Implementation() override
    {
        if (!device)
            return;
        device->removeAudioIOSubscriber_forInput(*subscriber, subscriber->isInput); // waits for a call in flight
        device->stop();                                                             // nothing if it was not started
    }

    std::shared_ptr<Subscriber> subscriber;
    std::shared_ptr<QMXAudioDevice> device;
};

Tap::Tap(Tap&& other) noexcept : implementation_(std::exchange(other.implementation_, nullptr)) {}

Tap& Tap::operator=(Tap&& other) noexcept
{
    std::swap(implementation_, other.implementation_);
    return *this;
}

Tap::~Tap()
{
    if (implementation_)
        implementation_->subscriber->isOn = false; // inside the function, its next call may come before the end
    destroyOutsideCallbacks(implementation_);
}

bool Tap::isRunning() const
{
    return object()->isRunning();
}

std::shared_ptr<QMXAudioDevice> Tap::object() const
{
    return implementation_->device;
}

Result<Tap> Tap::start(const QMXAudioDevice& device, bool isInput, std::unique_ptr<TapFunction> function)
{
    if (!function)
        return memoryError();
    return orNoMemory([&]() -> Result<Tap> {
        auto own = QMXAudioDevice::deviceWithDeviceID(device.deviceID());
        const UInt32 channels = own->numberOfChannels(isInput);
        if (channels == 0)
            return missing(device, isInput);
        auto made = std::make_unique<Implementation>();
        made->subscriber =
            std::make_shared<Subscriber>(isInput, std::move(function), channels, own->bufferFrameSize(isInput));
        made->device = own;
        own->addAudioIOSubscriber_forInput(made->subscriber, isInput);
        own->start();
        if (own->lastStatus() != noErr)
            return Error(own->lastStatus(), own->lastError());
        return Tap(made.release());
    });
}

} // namespace qmx
