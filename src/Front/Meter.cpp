// SPDX-License-Identifier: MIT
#include "Front/Meter.h"

#include "CoreAudioTypes/AudioBuffers.h"
#include "Front/Devices.h"
#include "Front/ShortMemory.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <numbers>
#include <thread>

namespace qmx
{

namespace
{

constexpr std::size_t taps = 12;   // of each phase
constexpr std::size_t phases = 3;  // between two samples
constexpr std::size_t block = 256; // frames
constexpr float clipping = 32767.0F / 32768;

using Filters = std::array<std::array<float, taps>, phases>;

/// Windowed sine-over-argument filters for a quarter, a half and three quarters of the way between two samples.
Filters makeFilters()
{
    Filters filters{};
    for (std::size_t phase = 0; phase < phases; ++phase) {
        double sum = 0;
        std::array<double, taps> filter{};
        for (std::size_t tap = 0; tap < taps; ++tap) {
            constexpr std::size_t middle = taps / 2 - 1;
            const double distance = static_cast<double>(tap) - static_cast<double>(middle) -
                                    static_cast<double>(phase + 1) / (phases + 1); // in samples, from the wanted place
            const double angle = std::numbers::pi * distance;
            const double window = std::cos(angle / taps);
            filter[tap] = std::sin(angle) / angle * window * window;
            sum += filter[tap];
        }
        for (std::size_t tap = 0; tap < taps; ++tap)
            filters[phase][tap] = static_cast<float>(filter[tap] / sum);
    }
    return filters;
}

/// Made by the first call, which is not a real-time thread's.
const Filters& sharedFilters()
{
    static const Filters filters = makeFilters();
    return filters;
}

/// What was measured since a reading.
struct Totals {
    float peak = 0;
    float truePeak = 0;
    double squares = 0;
    std::uint64_t frames = 0;

    void add(const Totals& other)
    {
        peak = std::max(peak, other.peak);
        truePeak = std::max(truePeak, other.truePeak);
        squares += other.squares;
        frames += other.frames;
    }
    ChannelLevels levels() const
    {
        const double mean = frames > 0 ? squares / static_cast<double>(frames) : 0;
        return {decibels(peak), decibels(std::max(peak, truePeak)), decibels(std::sqrt(mean)), peak >= clipping};
    }
};

} // namespace

double decibels(double amplitude)
{
    return amplitude > 0 ? 20 * std::log10(amplitude) : -std::numeric_limits<double>::infinity();
}

struct Levels::Channel {
    void add(const float* samples, std::size_t frames, std::size_t stride) noexcept
    {
        for (std::size_t done = 0; done < frames; done += block)
            addBlock(samples + done * stride, std::min(block, frames - done), stride);
        // a reader that holds the totals at this moment gets these with the next block
        if (!isHeld.test_and_set(std::memory_order_acquire)) {
            shared.add(std::exchange(own, {}));
            isHeld.clear(std::memory_order_release);
        }
    }

    void addBlock(const float* samples, std::size_t frames, std::size_t stride) noexcept
    {
        float* const wave = recent.data() + taps - 1;
        float peak = 0, squares = 0;
        for (std::size_t i = 0; i < frames; ++i) {
            const float sample = samples[i * stride];
            wave[i] = std::isfinite(sample) ? sample : 0;
            peak = std::max(peak, std::abs(wave[i]));
            squares += wave[i] * wave[i];
        }
        own.add({peak, between(frames), squares, frames});
        std::copy_n(recent.data() + frames, taps - 1, recent.data());
    }

    /// The largest amplitude between the samples.
    float between(std::size_t frames) const noexcept
    {
        float largest = 0;
        for (const auto& filter : filters) {
            std::array<float, block> wave{};
            for (std::size_t tap = 0; tap < taps; ++tap)
                for (std::size_t i = 0; i < frames; ++i)
                    wave[i] += filter[tap] * recent[i + tap];
            for (std::size_t i = 0; i < frames; ++i)
                largest = std::max(largest, std::abs(wave[i]));
        }
        return largest;
    }

    Totals take()
    {
        while (isHeld.test_and_set(std::memory_order_acquire)) // for some additions
            std::this_thread::yield();
        const Totals taken = std::exchange(shared, {});
        isHeld.clear(std::memory_order_release);
        return taken;
    }

    const Filters& filters = sharedFilters();
    std::array<float, taps - 1 + block> recent{}; ///< the last samples of the block before, then the block
    Totals own;                                   // the adding thread's
    std::atomic_flag isHeld;
    Totals shared; // guarded by the flag
};

Levels::Levels(std::unique_ptr<Channel[]> state, UInt32 channels) : state_(std::move(state)), channels_(channels) {}

Levels::~Levels() = default;

std::unique_ptr<Levels> Levels::make(UInt32 channels)
{
    return withinMemory(std::unique_ptr<Levels>(), [&] {
        return std::unique_ptr<Levels>(new Levels(std::make_unique<Channel[]>(channels), channels));
    });
}

UInt32 Levels::channels() const
{
    return channels_;
}

void Levels::add(std::span<const float> samples, UInt32 soundChannels) noexcept
{
    const std::size_t frames = soundChannels > 0 ? samples.size() / soundChannels : 0;
    for (UInt32 channel = 0; channel < std::min(channels_, soundChannels); ++channel)
        addChannel(channel, samples.data() + channel, frames, soundChannels);
}

void Levels::addChannel(UInt32 channel, const float* samples, std::size_t frames, std::size_t stride) noexcept
{
    if (channel < channels_)
        state_[channel].add(samples, frames, stride);
}

std::vector<ChannelLevels> Levels::read()
{
    return withinMemory(std::vector<ChannelLevels>(), [&] {
        std::vector<ChannelLevels> levels;
        levels.reserve(channels_);
        for (UInt32 channel = 0; channel < channels_; ++channel)
            levels.push_back(state_[channel].take().levels());
        return levels;
    });
}

struct Meter::Implementation {
    std::shared_ptr<Levels> levels; // also the tap's, whose function may outlive the handle
    Tap tap;
};

Meter::Meter(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
Meter::Meter(Meter&& other) noexcept = default;
Meter& Meter::operator=(Meter&& other) noexcept = default;
Meter::~Meter() = default;

Result<Meter> Meter::start(const Device& device)
{
    return orNoMemory([&]() -> Result<Meter> {
        const std::shared_ptr<Levels> levels = Levels::make(device.inputChannels());
        if (!levels)
            return memoryError();
        auto tap = device.onInput(
            [levels](std::span<const float> samples, unsigned channels) noexcept { levels->add(samples, channels); });
        if (!tap)
            return tap.error();
        return Meter(std::make_unique<Implementation>(Implementation{levels, std::move(*tap)}));
    });
}

std::vector<ChannelLevels> Meter::read() const
{
    return implementation_->levels->read();
}

bool Meter::isRunning() const
{
    return implementation_->tap.isRunning();
}

} // namespace qmx
