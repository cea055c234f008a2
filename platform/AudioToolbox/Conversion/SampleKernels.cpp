// SPDX-License-Identifier: MIT
// Each kernel is one plain loop over a compile-time width and byte order, without branches, so that compilers turn it
// into vector code for the baseline processor. Only the rounding of floats is written in vector instructions where the
// processor has them: compilers make three times as many of a saturating conversion that handles NaN. Integers of long
// runs go through the wide kernels first, on processors that have them.
#include "AudioToolbox/Conversion/SampleKernels.h"

#include "AudioToolbox/Conversion/Companding.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <concepts>
#include <cstring>
#include <iterator>
#include <limits>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qmx
{
namespace
{

constexpr bool machineIsBigEndian = std::endian::native == std::endian::big;

template <class T> T load(const std::byte* address)
{
    T value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

template <class T> void store(std::byte* address, T value)
{
    std::memcpy(address, &value, sizeof value);
}

template <std::unsigned_integral Word> constexpr Word reversed(Word word)
{
    if constexpr (sizeof(Word) == 2)
        return static_cast<Word>(word << 8 | word >> 8);
    else if constexpr (sizeof(Word) == 4)
        return __builtin_bswap32(word);
    else
        return __builtin_bswap64(word);
}

template <std::size_t bytes>
using WordOf =
    std::conditional_t<bytes == 1, UInt8,
                       std::conditional_t<bytes == 2, UInt16, std::conditional_t<bytes == 4, UInt32, UInt64>>>;

/// The bytes of one sample in the low part of a word.
template <std::size_t bytes, bool swapped> UInt32 loadSample(const std::byte* in)
{
    if constexpr (bytes == 3) {
        constexpr bool bigEndian = swapped != machineIsBigEndian;
        const auto first = static_cast<UInt32>(in[bigEndian ? 0 : 2]);
        const auto last = static_cast<UInt32>(in[bigEndian ? 2 : 0]);
        return first << 16 | static_cast<UInt32>(in[1]) << 8 | last;
    } else {
        const auto word = load<WordOf<bytes>>(in);
        if constexpr (swapped)
            return reversed(word);
        else
            return word;
    }
}

template <std::size_t bytes, bool swapped> void storeSample(std::byte* out, UInt32 sample)
{
    if constexpr (bytes == 3) {
        constexpr bool bigEndian = swapped != machineIsBigEndian;
        out[bigEndian ? 0 : 2] = static_cast<std::byte>(sample >> 16);
        out[1] = static_cast<std::byte>(sample >> 8);
        out[bigEndian ? 2 : 0] = static_cast<std::byte>(sample);
    } else {
        const auto word = static_cast<WordOf<bytes>>(sample);
        if constexpr (swapped)
            store(out, reversed(word));
        else
            store(out, word);
    }
}

/// A full-scale integer as T.
template <class T> T fromFullScale(UInt32 value)
{
    const auto number = static_cast<SInt32>(value);
    if constexpr (std::integral<T>)
        return number;
    else
        return static_cast<T>(number) * T{0x1p-31};
}

/// T as an integer of `bits` bits: to nearest, ties to even, saturated.
template <class T> class Rounding
{
public:
    explicit Rounding(UInt32 bits)
        : scale_(std::ldexp(T{1}, static_cast<int>(bits) - 1)), highest_(scale_ - T{1}), lowest_(-scale_)
    {
    }

    SInt32 operator()(T value) const
    {
        // adding and subtracting 2^(digits - 1) of the same sign leaves no room for a fraction
        constexpr T whole = T{1} / std::numeric_limits<T>::epsilon();
        value *= scale_;
        value = value == value ? value : T{0};
        value = value < highest_ ? value : highest_;
        value = value > lowest_ ? value : lowest_;
        const T shift = std::copysign(whole, value);
        return static_cast<SInt32>((value + shift) - shift);
    }

    T scale() const { return scale_; }
    T highest() const { return highest_; }

private:
    T scale_, highest_, lowest_;
};

template <> class Rounding<SInt32>
{
public:
    explicit Rounding(UInt32 bits)
        : drop_(32 - bits), mask_(drop_ ? (UInt32{1} << drop_) - 1 : 0),
          half_(drop_ ? UInt32{1} << (drop_ - 1) : std::numeric_limits<UInt32>::max()),
          highest_(static_cast<SInt32>((UInt32{1} << (bits - 1)) - 1))
    {
    }

    SInt32 operator()(SInt32 value) const
    {
        const SInt32 floor = value >> drop_;
        const UInt32 rest = (static_cast<UInt32>(value) & mask_) + (static_cast<UInt32>(floor) & 1);
        const SInt32 up = rest > half_ && floor < highest_ ? 1 : 0;
        return floor + up;
    }

private:
    UInt32 drop_, mask_, half_;
    SInt32 highest_;
};

template <class T, std::size_t bytes, bool swapped>
void decodeInteger(const SampleDecoder<T>& decoder, const std::byte* __restrict in, std::byte* __restrict out,
                   std::size_t count)
{
    const UInt32 lift = decoder.lift, flip = decoder.flip;
    for (std::size_t i = 0; i < count; ++i) {
        const UInt32 sample = loadSample<bytes, swapped>(in + i * bytes) << (32 - 8 * bytes);
        store(out + i * sizeof(T), fromFullScale<T>((sample << lift) ^ flip));
    }
}

/// Signed samples whose top bit is their bytes' top bit.
template <class T, std::size_t bytes, bool swapped>
void decodePlain(const SampleDecoder<T>&, const std::byte* __restrict in, std::byte* __restrict out, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        const UInt32 sample = loadSample<bytes, swapped>(in + i * bytes) << (32 - 8 * bytes);
        store(out + i * sizeof(T), fromFullScale<T>(sample));
    }
}

template <class T, class Float, bool swapped>
void decodeFloat(const SampleDecoder<T>&, const std::byte* __restrict in, std::byte* __restrict out, std::size_t count)
{
    using Word = WordOf<sizeof(Float)>;
    for (std::size_t i = 0; i < count; ++i) {
        const auto word = load<Word>(in + i * sizeof(Float));
        const auto value = std::bit_cast<Float>(swapped ? reversed(word) : word);
        store(out + i * sizeof(T), static_cast<T>(value));
    }
}

template <class T, SInt16 (*expand)(UInt8)>
void decodeCompanded(const SampleDecoder<T>&, const std::byte* __restrict in, std::byte* __restrict out,
                     std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        const SInt32 value = expansionTable<expand>[static_cast<std::size_t>(in[i])];
        store(out + i * sizeof(T), fromFullScale<T>(static_cast<UInt32>(value) << 16));
    }
}

/// Rounds a run of values into `out`.
template <class T> void roundRun(const Rounding<T>& rounded, const std::byte* in, SInt32* out, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        out[i] = rounded(load<T>(in + i * sizeof(T)));
}

#if defined(__SSE2__)
/// Four values at once. The conversion itself rounds to the nearest even.
class FourFloats
{
public:
    explicit FourFloats(const Rounding<Float32>& rounded)
        : scale_(_mm_set1_ps(rounded.scale())), highest_(_mm_set1_ps(rounded.highest())),
          lowest_(_mm_set1_ps(-rounded.scale()))
    {
    }

    __m128i rounded(const std::byte* in) const
    {
        const __m128 value = _mm_loadu_ps(reinterpret_cast<const float*>(in));
        const __m128 number = _mm_and_ps(value, _mm_cmpord_ps(value, value));
        const __m128 scaled = _mm_mul_ps(number, scale_);
        return _mm_cvtps_epi32(_mm_max_ps(_mm_min_ps(scaled, highest_), lowest_));
    }

private:
    __m128 scale_, highest_, lowest_;
};

class FourDoubles
{
public:
    explicit FourDoubles(const Rounding<Float64>& rounded)
        : scale_(_mm_set1_pd(rounded.scale())), highest_(_mm_set1_pd(rounded.highest())),
          lowest_(_mm_set1_pd(-rounded.scale()))
    {
    }

    __m128i rounded(const std::byte* in) const { return _mm_unpacklo_epi64(two(in), two(in + 16)); }

private:
    __m128i two(const std::byte* in) const
    {
        const __m128d value = _mm_loadu_pd(reinterpret_cast<const double*>(in));
        const __m128d number = _mm_and_pd(value, _mm_cmpord_pd(value, value));
        const __m128d scaled = _mm_mul_pd(number, scale_);
        return _mm_cvtpd_epi32(_mm_max_pd(_mm_min_pd(scaled, highest_), lowest_));
    }

    __m128d scale_, highest_, lowest_;
};

template <class T> using Four = std::conditional_t<std::same_as<T, Float32>, FourFloats, FourDoubles>;

template <std::floating_point T>
void roundRun(const Rounding<T>& rounded, const std::byte* in, SInt32* out, std::size_t count)
{
    const Four<T> four(rounded);
    std::size_t i = 0;
    for (; i + 4 <= count; i += 4)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), four.rounded(in + i * sizeof(T)));
    for (; i < count; ++i)
        out[i] = rounded(load<T>(in + i * sizeof(T)));
}

/// Floats to signed 16-bit samples in one pass.
template <class T, bool swapped>
void encodeSixteen(const SampleEncoder<T>& encoder, const std::byte* __restrict in, std::byte* __restrict out,
                   std::size_t count)
{
    const Rounding<T> rounded(encoder.bits);
    const Four<T> four(rounded);
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        __m128i samples = _mm_packs_epi32(four.rounded(in + i * sizeof(T)), four.rounded(in + (i + 4) * sizeof(T)));
        if constexpr (swapped)
            samples = _mm_or_si128(_mm_slli_epi16(samples, 8), _mm_srli_epi16(samples, 8));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i * 2), samples);
    }
    for (; i < count; ++i)
        storeSample<2, swapped>(out + i * 2, static_cast<UInt32>(rounded(load<T>(in + i * sizeof(T)))));
}
#endif

template <class T, std::size_t bytes, bool swapped>
void encodeInteger(const SampleEncoder<T>& encoder, const std::byte* __restrict in, std::byte* __restrict out,
                   std::size_t count)
{
    const Rounding<T> rounded(encoder.bits);
    const UInt32 offset = encoder.offset, lift = encoder.lift;
    SInt32 block[256];
    for (std::size_t done = 0; done < count; done += std::size(block)) {
        const std::size_t length = std::min(std::size(block), count - done);
        roundRun(rounded, in + done * sizeof(T), block, length);
        for (std::size_t i = 0; i < length; ++i)
            storeSample<bytes, swapped>(out + (done + i) * bytes, (static_cast<UInt32>(block[i]) + offset) << lift);
    }
}

template <class T, class Float, bool swapped>
void encodeFloat(const SampleEncoder<T>&, const std::byte* __restrict in, std::byte* __restrict out, std::size_t count)
{
    using Word = WordOf<sizeof(Float)>;
    for (std::size_t i = 0; i < count; ++i) {
        const auto word = std::bit_cast<Word>(static_cast<Float>(load<T>(in + i * sizeof(T))));
        store(out + i * sizeof(Float), swapped ? reversed(word) : word);
    }
}

template <class T, UInt8 (*compress)(SInt32)>
void encodeCompanded(const SampleEncoder<T>&, const std::byte* __restrict in, std::byte* __restrict out,
                     std::size_t count)
{
    const Rounding<T> rounded(16);
    for (std::size_t i = 0; i < count; ++i)
        out[i] = static_cast<std::byte>(compress(rounded(load<T>(in + i * sizeof(T)))));
}

template <std::size_t bytes> void swapRun(const std::byte* __restrict in, std::byte* __restrict out, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        if constexpr (bytes == 3)
            storeSample<3, false>(out + i * 3, loadSample<3, true>(in + i * 3));
        else
            store(out + i * bytes, reversed(load<WordOf<bytes>>(in + i * bytes)));
    }
}

/// Calls `choose` with the sample's width and whether it is swapped as compile-time constants.
template <class Choose> auto forWidth(const SampleFormat& format, Choose choose)
{
    using std::integral_constant;
    const auto ordered = [&]<std::size_t bytes>(integral_constant<std::size_t, bytes> width) {
        return format.isSwapped ? choose(width, std::true_type{}) : choose(width, std::false_type{});
    };
    switch (format.bytes) {
    case 1:
        return choose(integral_constant<std::size_t, 1>{}, std::false_type{});
    case 2:
        return ordered(integral_constant<std::size_t, 2>{});
    case 3:
        return ordered(integral_constant<std::size_t, 3>{});
    default:
        return ordered(integral_constant<std::size_t, 4>{});
    }
}

} // namespace

template <class T> bool isNative(const SampleFormat& format)
{
    const SampleFormat own{.coding = std::integral<T> ? SampleCoding::integer : SampleCoding::floating,
                           .bytes = sizeof(T),
                           .bits = 8 * sizeof(T)};
    return format == own;
}

template <class T>
SampleDecoder<T>::SampleDecoder(const SampleFormat& format, Instructions instructions) : bytes_(format.bytes)
{
    const bool swapped = format.isSwapped;
    switch (format.coding) {
    case SampleCoding::integer: {
        wide_ = instructions == Instructions::available ? WideSampleKernels<T>::of(format).decode : nullptr;
        if (wide_)
            shuffle_ = GroupShuffle::toWords(format.bytes, swapped);
        lift = format.isHighAligned ? 0 : 8u * format.bytes - format.bits;
        flip = format.isSigned ? 0 : 0x80000000;
        const bool plain = format.isSigned && lift == 0;
        function_ = forWidth(format, [plain](auto bytes, auto order) -> Function {
            return plain ? decodePlain<T, bytes(), order()> : decodeInteger<T, bytes(), order()>;
        });
        break;
    }
    case SampleCoding::floating:
        if constexpr (std::floating_point<T>) {
            if (format.bytes == 4)
                function_ = swapped ? decodeFloat<T, Float32, true> : decodeFloat<T, Float32, false>;
            else
                function_ = swapped ? decodeFloat<T, Float64, true> : decodeFloat<T, Float64, false>;
        }
        break;
    case SampleCoding::uLaw:
        function_ = decodeCompanded<T, muLaw::expand>;
        break;
    case SampleCoding::aLaw:
        function_ = decodeCompanded<T, aLaw::expand>;
        break;
    }
}

template <class T>
SampleEncoder<T>::SampleEncoder(const SampleFormat& format, Instructions instructions) : bytes_(format.bytes)
{
    const bool swapped = format.isSwapped;
    switch (format.coding) {
    case SampleCoding::integer:
        wide_ = instructions == Instructions::available ? WideSampleKernels<T>::of(format).encode : nullptr;
        if (wide_)
            shuffle_ = GroupShuffle::fromWords(format.bytes, swapped);
        bits = format.bits;
        offset = format.isSigned ? 0 : UInt32{1} << (format.bits - 1);
        lift = format.isHighAligned ? 8u * format.bytes - format.bits : 0;
        function_ =
            forWidth(format, [](auto bytes, auto order) -> Function { return encodeInteger<T, bytes(), order()>; });
#if defined(__SSE2__)
        if constexpr (std::floating_point<T>)
            if (format.isSigned && format.bytes == 2 && format.bits == 16)
                function_ = swapped ? encodeSixteen<T, true> : encodeSixteen<T, false>;
#endif
        break;
    case SampleCoding::floating:
        if constexpr (std::floating_point<T>) {
            if (format.bytes == 4)
                function_ = swapped ? encodeFloat<T, Float32, true> : encodeFloat<T, Float32, false>;
            else
                function_ = swapped ? encodeFloat<T, Float64, true> : encodeFloat<T, Float64, false>;
        }
        break;
    case SampleCoding::uLaw:
        function_ = encodeCompanded<T, muLaw::compress>;
        break;
    case SampleCoding::aLaw:
        function_ = encodeCompanded<T, aLaw::compress>;
        break;
    }
}

SampleSwapper::SampleSwapper(UInt32 sampleBytes, Instructions instructions)
    : groups_(sampleBytes), wide_(instructions == Instructions::available ? swapGroups() : nullptr)
{
}

void SampleSwapper::operator()(const std::byte* in, std::byte* out, std::size_t count) const
{
    const std::size_t done = wide_ ? wide_(groups_, in, out, count) : 0;
    in += done * groups_.sampleBytes;
    out += done * groups_.sampleBytes;
    count -= done;
    switch (groups_.sampleBytes) {
    case 2:
        return swapRun<2>(in, out, count);
    case 3:
        return swapRun<3>(in, out, count);
    case 4:
        return swapRun<4>(in, out, count);
    default:
        return swapRun<8>(in, out, count);
    }
}

template bool isNative<SInt32>(const SampleFormat&);
template bool isNative<Float32>(const SampleFormat&);
template bool isNative<Float64>(const SampleFormat&);
template class SampleDecoder<SInt32>;
template class SampleDecoder<Float32>;
template class SampleDecoder<Float64>;
template class SampleEncoder<SInt32>;
template class SampleEncoder<Float32>;
template class SampleEncoder<Float64>;

} // namespace qmx
