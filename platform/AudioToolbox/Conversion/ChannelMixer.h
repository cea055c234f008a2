// SPDX-License-Identifier: MIT
// Which input channel feeds which output channel, and the copying between them.
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "vecLib/Interleaving.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

namespace qmx
{

/// The channels of one side made from the channels of the other.
struct ChannelRoutes {
    static constexpr SInt32 silence = -1;

    UInt32 inputs = 0;
    std::vector<SInt32> inputOf; ///< per output channel the input that feeds it, or `silence`
    bool isMean = false;         ///< the single output is the mean of all inputs; `inputOf` is not used then
    /// If not empty, each output is instead the sum of all inputs times its own row of these. None is below 0 and no
    /// row's sum exceeds 1, so no integer sample can leave its range.
    std::vector<Float64> weights;

    UInt32 outputs() const { return static_cast<UInt32>(inputOf.size()); }
    bool isIdentity() const;

    static ChannelRoutes identity(UInt32 channels);
    /// One channel feeds all; many to one is the mean; otherwise channel i goes to i, extra outputs are silent and
    /// extra inputs dropped.
    static ChannelRoutes between(UInt32 inputs, UInt32 outputs);
};

/// Carries frames across routes and between interleaved and planar order. No allocation once made.
template <class T> class ChannelMixer
{
public:
    ChannelMixer(ChannelRoutes routes, bool fromInterleaved, bool toInterleaved)
        : routes_(std::move(routes)), from_(fromInterleaved), to_(toInterleaved),
          isReordering_(std::same_as<T, Float32> && from_ != to_ && routes_.isIdentity())
    {
    }

    /// Planar sides hold `frames` values per channel, channel after channel.
    void operator()(const T* in, T* out, std::size_t frames) const
    {
        if (routes_.isMean)
            return mean(in, out, frames);
        if (!routes_.weights.empty())
            return mix(in, out, frames);
        if constexpr (std::same_as<T, Float32>)
            if (isReordering_)
                return reorder(in, out, frames);
        const Order inOrder(from_, routes_.inputs, frames), outOrder(to_, routes_.outputs(), frames);
        for (UInt32 channel = 0; channel < routes_.outputs(); ++channel) {
            const SInt32 source = routes_.inputOf[channel];
            T* const target = out + channel * outOrder.channelStep;
            if (source == ChannelRoutes::silence) {
                for (std::size_t frame = 0; frame < frames; ++frame)
                    target[frame * outOrder.frameStep] = T{0};
                continue;
            }
            const T* const origin = in + static_cast<UInt32>(source) * inOrder.channelStep;
            for (std::size_t frame = 0; frame < frames; ++frame)
                target[frame * outOrder.frameStep] = origin[frame * inOrder.frameStep];
        }
    }

private:
    struct Order {
        Order(bool interleaved, UInt32 channels, std::size_t frames)
            : channelStep(interleaved ? 1 : frames), frameStep(interleaved ? channels : 1)
        {
        }
        std::size_t channelStep, frameStep;
    };

    /// Some channels at once: their planes are named on the stack.
    void reorder(const T* in, T* out, std::size_t frames) const
    {
        constexpr std::size_t channelsAtOnce = 8;
        const std::size_t channels = routes_.inputs;
        for (std::size_t first = 0; first < channels; first += channelsAtOnce) {
            const std::size_t count = std::min(channelsAtOnce, channels - first);
            std::array<const T*, channelsAtOnce> sources{};
            std::array<T*, channelsAtOnce> targets{};
            for (std::size_t i = 0; i < count; ++i) {
                sources[i] = in + (first + i) * frames;
                targets[i] = out + (first + i) * frames;
            }
            if (to_)
                interleave(std::span(sources).first(count), out + first, channels, frames);
            else
                deinterleave(in + first, channels, std::span(targets).first(count), frames);
        }
    }

    void mean(const T* in, T* out, std::size_t frames) const
    {
        const Order order(from_, routes_.inputs, frames);
        using Sum = std::conditional_t<std::integral<T>, SInt64, Float64>;
        for (std::size_t frame = 0; frame < frames; ++frame) {
            Sum sum = 0;
            for (UInt32 channel = 0; channel < routes_.inputs; ++channel)
                sum += in[channel * order.channelStep + frame * order.frameStep];
            out[frame] = nearest(static_cast<Float64>(sum) / routes_.inputs);
        }
    }

    void mix(const T* in, T* out, std::size_t frames) const
    {
        const Order inOrder(from_, routes_.inputs, frames), outOrder(to_, routes_.outputs(), frames);
        const Float64* weights = routes_.weights.data();
        for (UInt32 channel = 0; channel < routes_.outputs(); ++channel, weights += routes_.inputs) {
            T* const target = out + channel * outOrder.channelStep;
            for (std::size_t frame = 0; frame < frames; ++frame) {
                Float64 sum = 0;
                for (UInt32 input = 0; input < routes_.inputs; ++input)
                    sum += weights[input] * in[input * inOrder.channelStep + frame * inOrder.frameStep];
                target[frame * outOrder.frameStep] = nearest(sum);
            }
        }
    }

    static T nearest(Float64 value)
    {
        if constexpr (std::integral<T>)
            return static_cast<T>(std::nearbyint(value));
        else
            return static_cast<T>(value);
    }

    ChannelRoutes routes_;
    bool from_, to_; // interleaved
    bool isReordering_;
};

} // namespace qmx
