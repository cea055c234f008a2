// SPDX-License-Identifier: MIT
// Stereo is a plain loop, which compilers turn into vector code. Of more channels, four at a time are transposed, four
// frames at a time.
#include "vecLib/Interleaving.h"

#include <array>
#include <cstring>

namespace qmx
{
namespace
{

constexpr std::size_t atOnce = 4; // channels, and frames
using Four [[gnu::vector_size(atOnce * sizeof(Float32))]] = Float32;
using Block = std::array<Four, atOnce>;

Four load(const Float32* from)
{
    Four four;
    std::memcpy(&four, from, sizeof four);
    return four;
}

void store(Float32* to, Four four)
{
    std::memcpy(to, &four, sizeof four);
}

Block transposed(const Block& rows)
{
    const Four ab = __builtin_shufflevector(rows[0], rows[1], 0, 4, 1, 5);
    const Four cd = __builtin_shufflevector(rows[2], rows[3], 0, 4, 1, 5);
    const Four abAfter = __builtin_shufflevector(rows[0], rows[1], 2, 6, 3, 7);
    const Four cdAfter = __builtin_shufflevector(rows[2], rows[3], 2, 6, 3, 7);
    return {__builtin_shufflevector(ab, cd, 0, 1, 4, 5), __builtin_shufflevector(ab, cd, 2, 3, 6, 7),
            __builtin_shufflevector(abAfter, cdAfter, 0, 1, 4, 5),
            __builtin_shufflevector(abAfter, cdAfter, 2, 3, 6, 7)};
}

void joinOne(const Float32* plane, Float32* out, std::size_t channels, std::size_t frames)
{
    for (std::size_t frame = 0; frame < frames; ++frame)
        out[frame * channels] = plane ? plane[frame] : 0;
}

void splitOne(const Float32* in, std::size_t channels, Float32* plane, std::size_t frames)
{
    for (std::size_t frame = 0; plane && frame < frames; ++frame)
        plane[frame] = in[frame * channels];
}

/// Of four channels, those frames that fill blocks. Returns their number.
std::size_t joinFour(const Float32* const* planes, Float32* out, std::size_t channels, std::size_t frames)
{
    std::size_t done = 0;
    for (; done + atOnce <= frames; done += atOnce) {
        Block block;
        for (std::size_t i = 0; i < atOnce; ++i)
            block[i] = planes[i] ? load(planes[i] + done) : Four{};
        block = transposed(block);
        for (std::size_t i = 0; i < atOnce; ++i)
            store(out + (done + i) * channels, block[i]);
    }
    return done;
}

std::size_t splitFour(const Float32* in, std::size_t channels, Float32* const* planes, std::size_t frames)
{
    std::size_t done = 0;
    for (; done + atOnce <= frames; done += atOnce) {
        Block block;
        for (std::size_t i = 0; i < atOnce; ++i)
            block[i] = load(in + (done + i) * channels);
        block = transposed(block);
        for (std::size_t i = 0; i < atOnce; ++i)
            if (planes[i])
                store(planes[i] + done, block[i]);
    }
    return done;
}

void joinStereo(const Float32* left, const Float32* right, Float32* __restrict out, std::size_t frames)
{
    for (std::size_t frame = 0; frame < frames; ++frame) {
        out[2 * frame] = left[frame];
        out[2 * frame + 1] = right[frame];
    }
}

void splitStereo(const Float32* in, Float32* __restrict left, Float32* __restrict right, std::size_t frames)
{
    for (std::size_t frame = 0; frame < frames; ++frame) {
        left[frame] = in[2 * frame];
        right[frame] = in[2 * frame + 1];
    }
}

template <class Sample> bool isStereo(std::span<Sample* const> planes, std::size_t channels)
{
    return channels == 2 && planes.size() == 2 && planes[0] && planes[1];
}

} // namespace

void interleave(std::span<const Float32* const> planes, Float32* interleaved, std::size_t channels, std::size_t frames)
{
    if (frames == 0)
        return;
    if (isStereo(planes, channels))
        return joinStereo(planes[0], planes[1], interleaved, frames);
    std::size_t channel = 0;
    for (; channel + atOnce <= planes.size(); channel += atOnce) {
        const std::size_t done = joinFour(&planes[channel], interleaved + channel, channels, frames);
        for (std::size_t i = channel; i < channel + atOnce; ++i)
            joinOne(planes[i] ? planes[i] + done : nullptr, interleaved + done * channels + i, channels, frames - done);
    }
    for (; channel < planes.size(); ++channel)
        joinOne(planes[channel], interleaved + channel, channels, frames);
}

void deinterleave(const Float32* interleaved, std::size_t channels, std::span<Float32* const> planes,
                  std::size_t frames)
{
    if (frames == 0)
        return;
    if (isStereo(planes, channels))
        return splitStereo(interleaved, planes[0], planes[1], frames);
    std::size_t channel = 0;
    for (; channel + atOnce <= planes.size(); channel += atOnce) {
        const std::size_t done = splitFour(interleaved + channel, channels, &planes[channel], frames);
        for (std::size_t i = channel; i < channel + atOnce; ++i)
            splitOne(interleaved + done * channels + i, channels, planes[i] ? planes[i] + done : nullptr,
                     frames - done);
    }
    for (; channel < planes.size(); ++channel)
        splitOne(interleaved + channel, channels, planes[channel], frames);
}

} // namespace qmx
