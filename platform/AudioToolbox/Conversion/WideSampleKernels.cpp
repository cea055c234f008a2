// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/WideSampleKernels.h"

#include <cmath>
#include <concepts>
#include <cstring>
#include <limits>
#include <numeric>
#include <type_traits>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace qmx
{
namespace
{

constexpr std::size_t groupBytes = 32, halfBytes = 16, groupSamples = 8;
constexpr UInt8 zero = 0x80; // stands for no byte

/// Whether the samples of a group lie within half of its bytes: they are loaded into both halves, and stored from one.
bool isNarrow(std::size_t sampleBytes)
{
    return sampleBytes <= halfBytes / groupSamples;
}

} // namespace

GroupShuffle GroupShuffle::toWords(std::size_t sampleBytes, bool swapped)
{
    GroupShuffle shuffle;
    for (UInt32 i = 0; i < 4; ++i) {
        shuffle.words[i] = i;
        shuffle.words[4 + i] = static_cast<UInt32>(sampleBytes) + i;
    }
    const std::size_t unused = sizeof(UInt32) - sampleBytes;
    for (std::size_t i = 0; i < groupBytes; ++i) {
        const std::size_t sample = (isNarrow(sampleBytes) ? i : i % halfBytes) / 4, place = i % 4;
        const std::size_t first = sample * sampleBytes;
        const std::size_t byte = swapped ? 3 - place : place - unused;
        shuffle.bytes[i] = place < unused ? zero : static_cast<UInt8>(first + byte);
    }
    return shuffle;
}

GroupShuffle GroupShuffle::fromWords(std::size_t sampleBytes, bool swapped)
{
    GroupShuffle shuffle;
    for (UInt32 i = 0; i < sampleBytes; ++i) {
        shuffle.words[i] = i;
        shuffle.words[sampleBytes + i] = 4 + i;
    }
    shuffle.bytes.fill(zero);
    for (std::size_t half = 0; half < groupBytes; half += halfBytes)
        for (std::size_t sample = 0; sample < 4; ++sample)
            for (std::size_t place = 0; place < sampleBytes; ++place)
                shuffle.bytes[half + sample * sampleBytes + place] =
                    static_cast<UInt8>(4 * sample + (swapped ? sampleBytes - 1 - place : place));
    return shuffle;
}

GroupSwap::GroupSwap(std::size_t ofBytes) : sampleBytes(ofBytes), samples(groupBytes / ofBytes)
{
    for (std::size_t i = 0; i < groupBytes; ++i) {
        const std::size_t place = i % halfBytes;
        shuffle.bytes[i] = static_cast<UInt8>((place / sampleBytes + 1) * sampleBytes - 1 - place % sampleBytes);
    }
    std::iota(shuffle.words.begin(), shuffle.words.end(), 0);
    wordsBack = shuffle.words;
    if (sampleBytes == 3) { // four samples leave a quarter of each half unused
        shuffle.words = GroupShuffle::toWords(sampleBytes, false).words;
        wordsBack = GroupShuffle::fromWords(sampleBytes, false).words;
        samples = groupSamples;
    }
}

#if defined(__x86_64__)
#define QMX_WIDE [[gnu::target("avx2"), gnu::always_inline]] inline

namespace
{

bool isWide()
{
    static const bool supported = __builtin_cpu_supports("avx2");
    return supported;
}

QMX_WIDE void load(const void* from, __m256i& to)
{
    to = _mm256_loadu_si256(static_cast<const __m256i*>(from));
}

QMX_WIDE void store(const __m256i& from, std::byte* to)
{
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), from);
}

/// How many groups of `bytesApart` bytes can be loaded or stored as `bytes` bytes each without leaving the memory.
std::size_t wholeGroups(std::size_t memory, std::size_t bytesApart, std::size_t bytes)
{
    return memory < bytes ? 0 : (memory - bytes) / bytesApart + 1;
}

/// The samples of a group, four in each half.
template <bool narrow> QMX_WIDE void loadSamples(const std::byte* from, const __m256i& words, __m256i& to)
{
    if constexpr (narrow) {
        to = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
    } else {
        load(from, to);
        to = _mm256_permutevar8x32_epi32(to, words);
    }
}

template <bool narrow> QMX_WIDE void storeSamples(const __m256i& from, const __m256i& words, std::byte* to)
{
    const __m256i joined = _mm256_permutevar8x32_epi32(from, words);
    if constexpr (narrow)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(joined));
    else
        store(joined, to);
}

/// Eight full-scale integers as T.
QMX_WIDE void storeNumbers(const __m256i& numbers, SInt32* out)
{
    store(numbers, reinterpret_cast<std::byte*>(out));
}

QMX_WIDE void storeNumbers(const __m256i& numbers, Float32* out)
{
    _mm256_storeu_ps(out, _mm256_mul_ps(_mm256_cvtepi32_ps(numbers), _mm256_set1_ps(0x1p-31F)));
}

QMX_WIDE void storeNumbers(const __m256i& numbers, Float64* out)
{
    const __m256d scale = _mm256_set1_pd(0x1p-31);
    _mm256_storeu_pd(out, _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(numbers)), scale));
    _mm256_storeu_pd(out + 4, _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(numbers, 1)), scale));
}

/// Eight values of T as integers of some bits: to nearest, ties to even, saturated; NaN becomes 0.
template <class T> class EightRounded;

template <> class EightRounded<Float32>
{
public:
    QMX_WIDE explicit EightRounded(UInt32 bits)
    {
        const Float32 scale = std::ldexp(1.0F, static_cast<int>(bits) - 1);
        scale_ = _mm256_set1_ps(scale);
        highest_ = _mm256_set1_ps(scale - 1);
        lowest_ = _mm256_set1_ps(-scale);
    }
    QMX_WIDE void operator()(const Float32* in, __m256i& out) const
    {
        const __m256 value = _mm256_loadu_ps(in);
        const __m256 number = _mm256_and_ps(value, _mm256_cmp_ps(value, value, _CMP_ORD_Q));
        const __m256 scaled = _mm256_mul_ps(number, scale_);
        out = _mm256_cvtps_epi32(_mm256_max_ps(_mm256_min_ps(scaled, highest_), lowest_));
    }

private:
    __m256 scale_, highest_, lowest_;
};

template <> class EightRounded<Float64>
{
public:
    QMX_WIDE explicit EightRounded(UInt32 bits)
    {
        const Float64 scale = std::ldexp(1.0, static_cast<int>(bits) - 1);
        scale_ = _mm256_set1_pd(scale);
        highest_ = _mm256_set1_pd(scale - 1);
        lowest_ = _mm256_set1_pd(-scale);
    }
    QMX_WIDE void operator()(const Float64* in, __m256i& out) const
    {
        __m128i low, high;
        four(in, low);
        four(in + 4, high);
        out = _mm256_set_m128i(high, low);
    }

private:
    QMX_WIDE void four(const Float64* in, __m128i& out) const
    {
        const __m256d value = _mm256_loadu_pd(in);
        const __m256d number = _mm256_and_pd(value, _mm256_cmp_pd(value, value, _CMP_ORD_Q));
        const __m256d scaled = _mm256_mul_pd(number, scale_);
        out = _mm256_cvtpd_epi32(_mm256_max_pd(_mm256_min_pd(scaled, highest_), lowest_));
    }

    __m256d scale_, highest_, lowest_;
};

template <> class EightRounded<SInt32>
{
public:
    QMX_WIDE explicit EightRounded(UInt32 bits)
    {
        const UInt32 drop = 32 - bits;
        drop_ = _mm_cvtsi32_si128(static_cast<int>(drop));
        // half of a step, less one for even floors: adding it carries into the floor where that rounds up
        half_ = _mm256_set1_epi32(drop > 0 ? static_cast<int>((UInt32{1} << (drop - 1)) - 1) : 0);
        odd_ = _mm256_set1_epi32(drop > 0 ? 1 : 0);
        highest_ = _mm256_set1_epi32(std::numeric_limits<SInt32>::max() >> drop);
    }
    QMX_WIDE void operator()(const SInt32* in, __m256i& out) const
    {
        __m256i value;
        load(in, value);
        const __m256i floor = _mm256_sra_epi32(value, drop_);
        const __m256i rest = _mm256_sub_epi32(value, _mm256_sll_epi32(floor, drop_));
        const __m256i raised = _mm256_add_epi32(_mm256_add_epi32(rest, half_), _mm256_and_si256(floor, odd_));
        out = _mm256_min_epi32(_mm256_add_epi32(floor, _mm256_srl_epi32(raised, drop_)), highest_);
    }

private:
    __m128i drop_;
    __m256i half_, odd_, highest_;
};

/// Plain samples are neither shifted nor changed.
template <class T, bool narrow, bool plain>
[[gnu::target("avx2")]] std::size_t decodeGroups(const GroupShuffle& shuffle, std::size_t sampleBytes, UInt32 lift,
                                                 UInt32 flip, const std::byte* in, std::byte* out, std::size_t count)
{
    __m256i words, bytes, group;
    load(shuffle.words.data(), words);
    load(shuffle.bytes.data(), bytes);
    const __m128i up = _mm_cvtsi32_si128(static_cast<int>(lift));
    const __m256i change = _mm256_set1_epi32(static_cast<int>(flip));
    const std::size_t step = groupSamples * sampleBytes;
    const std::size_t groups = wholeGroups(count * sampleBytes, step, narrow ? halfBytes : groupBytes);
    for (std::size_t i = 0; i < groups; ++i, in += step, out += groupSamples * sizeof(T)) {
        loadSamples<narrow>(in, words, group);
        group = _mm256_shuffle_epi8(group, bytes);
        if constexpr (!plain)
            group = _mm256_xor_si256(_mm256_sll_epi32(group, up), change);
        storeNumbers(group, reinterpret_cast<T*>(out));
    }
    return groups * groupSamples;
}

template <class T, bool narrow, bool plain>
[[gnu::target("avx2")]] std::size_t encodeGroups(const GroupShuffle& shuffle, std::size_t sampleBytes, UInt32 bits,
                                                 UInt32 offset, UInt32 lift, const std::byte* in, std::byte* out,
                                                 std::size_t count)
{
    __m256i words, bytes, group;
    load(shuffle.words.data(), words);
    load(shuffle.bytes.data(), bytes);
    const __m128i up = _mm_cvtsi32_si128(static_cast<int>(lift));
    const __m256i zeroPoint = _mm256_set1_epi32(static_cast<int>(offset));
    const EightRounded<T> rounded(bits);
    const std::size_t step = groupSamples * sampleBytes;
    const std::size_t groups = wholeGroups(count * sampleBytes, step, narrow ? halfBytes : groupBytes);
    // what a group writes after its samples is replaced by the next one
    for (std::size_t i = 0; i < groups; ++i, in += groupSamples * sizeof(T), out += step) {
        rounded(reinterpret_cast<const T*>(in), group);
        if constexpr (!plain)
            group = _mm256_sll_epi32(_mm256_add_epi32(group, zeroPoint), up);
        group = _mm256_shuffle_epi8(group, bytes);
        storeSamples<narrow>(group, words, out);
    }
    return groups * groupSamples;
}

/// Floats as signed samples of 16 bits. Joining two vectors saturates by itself, but for numbers past the integers: a
/// group that holds any, or what is no number, is limited beforehand.
template <bool swapped>
[[gnu::target("avx2")]] std::size_t encodeSixteen(const GroupShuffle&, std::size_t, UInt32, UInt32, UInt32,
                                                  const std::byte* in, std::byte* out, std::size_t count)
{
    constexpr std::size_t vectors = 4, samples = groupSamples * vectors;
    const __m256 scale = _mm256_set1_ps(0x1p15F), highest = _mm256_set1_ps(1);
    const __m256 exponentOfTwo = _mm256_castsi256_ps(_mm256_set1_epi32(0x40000000)); // or of more, or of no number
    const __m256i reversed =
        _mm256_set_epi64x(0x0E0F0C0D0A0B0809, 0x0607040502030001, 0x0E0F0C0D0A0B0809, 0x0607040502030001);
    const std::size_t groups = count / samples;
    for (std::size_t i = 0; i < groups; ++i, in += samples * sizeof(Float32)) {
        __m256 values[vectors], any = _mm256_setzero_ps();
        for (std::size_t v = 0; v < vectors; ++v) {
            values[v] = _mm256_loadu_ps(reinterpret_cast<const Float32*>(in) + v * groupSamples);
            any = _mm256_or_ps(any, values[v]);
        }
        if (!_mm256_testz_si256(_mm256_castps_si256(any), _mm256_castps_si256(exponentOfTwo))) [[unlikely]]
            for (__m256& value : values)
                value = _mm256_min_ps(_mm256_and_ps(value, _mm256_cmp_ps(value, value, _CMP_ORD_Q)), highest);
        for (std::size_t v = 0; v < vectors; v += 2, out += groupBytes) {
            const __m256i joined = _mm256_packs_epi32(_mm256_cvtps_epi32(_mm256_mul_ps(values[v], scale)),
                                                      _mm256_cvtps_epi32(_mm256_mul_ps(values[v + 1], scale)));
            const __m256i inOrder = _mm256_permute4x64_epi64(joined, 0b11011000);
            store(swapped ? _mm256_shuffle_epi8(inOrder, reversed) : inOrder, out);
        }
    }
    return groups * samples;
}

[[gnu::target("avx2")]] std::size_t swapWide(const GroupSwap& swap, const std::byte* in, std::byte* out,
                                             std::size_t count)
{
    __m256i words, bytes, wordsBack, group;
    load(swap.shuffle.words.data(), words);
    load(swap.shuffle.bytes.data(), bytes);
    load(swap.wordsBack.data(), wordsBack);
    const std::size_t step = swap.samples * swap.sampleBytes;
    const std::size_t groups = wholeGroups(count * swap.sampleBytes, step, groupBytes);
    for (std::size_t i = 0; i < groups; ++i, in += step, out += step) {
        load(in, group);
        group = _mm256_shuffle_epi8(_mm256_permutevar8x32_epi32(group, words), bytes);
        store(_mm256_permutevar8x32_epi32(group, wordsBack), out);
    }
    return groups * swap.samples;
}

} // namespace

template <class T> WideSampleKernels<T> WideSampleKernels<T>::of(const SampleFormat& format)
{
    if (!isWide())
        return {};
    const auto chosen = [&]<bool narrow>(std::bool_constant<narrow>) -> WideSampleKernels {
        const bool isFull = format.bits == 8 * format.bytes, isLow = !format.isHighAligned;
        return {format.isSigned && (isFull || !isLow) ? decodeGroups<T, narrow, true> : decodeGroups<T, narrow, false>,
                format.isSigned && (isFull || isLow) ? encodeGroups<T, narrow, true> : encodeGroups<T, narrow, false>};
    };
    WideSampleKernels kernels = isNarrow(format.bytes) ? chosen(std::true_type{}) : chosen(std::false_type{});
    if constexpr (std::same_as<T, Float32>)
        if (format.isSigned && format.bytes == 2 && format.bits == 16)
            kernels.encode = format.isSwapped ? encodeSixteen<true> : encodeSixteen<false>;
    return kernels;
}

SwapGroups swapGroups()
{
    return isWide() ? swapWide : nullptr;
}
#else
template <class T> WideSampleKernels<T> WideSampleKernels<T>::of(const SampleFormat&)
{
    return {};
}

SwapGroups swapGroups()
{
    return nullptr;
}
#endif

template struct WideSampleKernels<SInt32>;
template struct WideSampleKernels<Float32>;
template struct WideSampleKernels<Float64>;

} // namespace qmx
