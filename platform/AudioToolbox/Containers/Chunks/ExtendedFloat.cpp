// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Chunks/ExtendedFloat.h"

#include "Foundation/ByteFields.h"

#include <cmath>
#include <limits>

namespace qmx
{
namespace
{

constexpr int exponentBias = 16383;
constexpr int mantissaBits = 64; // the leading one is stored
constexpr UInt16 largestExponent = 0x7FFF;

} // namespace

ExtendedFloat extendedFromDouble(Float64 value)
{
    ExtendedFloat bytes{};
    if (!(value > 0) || !std::isfinite(value))
        return bytes;
    int exponent = 0;
    const double fraction = std::frexp(value, &exponent); // 0.5 up to 1
    storeInteger(bytes.data(), static_cast<UInt16>(exponent - 1 + exponentBias), 2, ByteOrder::big);
    storeInteger(bytes.data() + 2, static_cast<UInt64>(std::ldexp(fraction, mantissaBits)), 8, ByteOrder::big);
    return bytes;
}

Float64 doubleFromExtended(const ExtendedFloat& bytes)
{
    const UInt16 word = load16(bytes.data(), ByteOrder::big);
    const UInt64 mantissa = load64(bytes.data() + 2, ByteOrder::big);
    const UInt16 exponent = word & largestExponent;
    if (exponent == largestExponent)
        return std::numeric_limits<double>::quiet_NaN();
    const double value = std::ldexp(static_cast<double>(mantissa), exponent - exponentBias - mantissaBits + 1);
    return (word & 0x8000) != 0 ? -value : value;
}

} // namespace qmx
