// SPDX-License-Identifier: MIT
#include "Foundation/Archives/Number.h"

#include <array>
#include <charconv>
#include <cmath>
#include <concepts>
#include <limits>
#include <utility>

namespace qmx
{

namespace
{

// A real number as 64 bits, two's complement below 0.
UInt64 bitsOfReal(double value)
{
    constexpr double two63 = 9223372036854775808.0;
    if (std::isnan(value))
        return 0;
    if (value < 0)
        return static_cast<UInt64>(value <= -two63 ? std::numeric_limits<SInt64>::min() : static_cast<SInt64>(value));
    return value >= 2 * two63 ? std::numeric_limits<UInt64>::max() : static_cast<UInt64>(value);
}

// Booleans count as 1 and 0 in arithmetic.
template <class T> auto arithmetic(T value)
{
    if constexpr (std::same_as<T, bool>)
        return static_cast<SInt32>(value);
    else
        return value;
}

bool sameValue(auto one, auto other)
{
    if constexpr (std::floating_point<decltype(one)> || std::floating_point<decltype(other)>)
        return static_cast<double>(one) == static_cast<double>(other);
    else
        return std::cmp_equal(one, other);
}

} // namespace

std::shared_ptr<Number> Number::withBool(bool value)
{
    return std::make_shared<Number>(value);
}

std::shared_ptr<Number> Number::withInt(SInt32 value)
{
    return std::make_shared<Number>(value);
}

std::shared_ptr<Number> Number::withUnsignedInt(UInt32 value)
{
    return std::make_shared<Number>(value);
}

std::shared_ptr<Number> Number::withLongLong(SInt64 value)
{
    return std::make_shared<Number>(value);
}

std::shared_ptr<Number> Number::withUnsignedLongLong(UInt64 value)
{
    return std::make_shared<Number>(value);
}

std::shared_ptr<Number> Number::withFloat(float value)
{
    return std::make_shared<Number>(value);
}

std::shared_ptr<Number> Number::withDouble(double value)
{
    return std::make_shared<Number>(value);
}

bool Number::boolValue() const
{
    return std::visit([](auto value) { return value != decltype(value){}; }, value_);
}

SInt32 Number::intValue() const
{
    return static_cast<SInt32>(unsignedLongLongValue());
}

UInt32 Number::unsignedIntValue() const
{
    return static_cast<UInt32>(unsignedLongLongValue());
}

SInt64 Number::longLongValue() const
{
    return static_cast<SInt64>(unsignedLongLongValue());
}

UInt64 Number::unsignedLongLongValue() const
{
    return std::visit(
        [](auto value) {
            if constexpr (std::floating_point<decltype(value)>)
                return bitsOfReal(static_cast<double>(value));
            else
                return static_cast<UInt64>(value);
        },
        value_);
}

float Number::floatValue() const
{
    return std::visit([](auto value) { return static_cast<float>(value); }, value_);
}

double Number::doubleValue() const
{
    return std::visit([](auto value) { return static_cast<double>(value); }, value_);
}

std::string Number::description() const
{
    std::array<char, 32> text{};
    const auto print = [&text](auto value) {
        return std::to_chars(text.data(), text.data() + text.size(), arithmetic(value)).ptr;
    };
    return {text.data(), std::visit(print, value_)};
}

bool Number::isEqual(const Object* other) const
{
    const auto* number = dynamic_cast<const Number*>(other);
    return number && std::visit([](auto one, auto another) { return sameValue(arithmetic(one), arithmetic(another)); },
                                value_, number->value_);
}

} // namespace qmx
