// SPDX-License-Identifier: MIT
// Text from the platform's format strings. Knows %d %i %u %o %x %X %c %s %e %f %g %p with flags, width and precision,
// the length letters h l ll q z (accepted and ignored: each value is printed at its own width), %@ for objects and
// strings, and %%. A conversion without a value, or a value of the wrong kind, prints as "(?)"; nothing is undefined.
// Numbers look the same in every locale.
#pragma once

#include <QMXCoreAudio/Foundation/Object.h>

#include <concepts>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

namespace qmx
{

/// One value for a format string, with enough of its type to print it at its own width.
class QMX_EXPORT FormatArgument
{
public:
    template <std::integral T>
    FormatArgument(T value)
        : value_(Integer{static_cast<long long>(value),
                         static_cast<unsigned long long>(static_cast<std::make_unsigned_t<Plain<T>>>(value))})
    {
    }
    FormatArgument(double value) : value_(value) {}
    FormatArgument(const char* text) : value_(text ? std::string(text) : std::string("(null)")) {}
    FormatArgument(const std::string& text) : value_(text) {}
    FormatArgument(std::string_view text) : value_(std::string(text)) {}
    /// A text without a value prints as "(null)".
    FormatArgument(const std::optional<std::string>& text) : value_(text.value_or("(null)")) {}
    /// An object prints as its description, null as "(null)".
    FormatArgument(const Object* object) : value_(object ? object->description() : std::string("(null)")) {}
    template <std::derived_from<Object> T>
    FormatArgument(const std::shared_ptr<T>& object) : FormatArgument(static_cast<const Object*>(object.get()))
    {
    }
    /// An address, for %X and %p.
    FormatArgument(const void* address) : FormatArgument(reinterpret_cast<std::uintptr_t>(address)) {}

    struct Integer {
        long long asSigned;
        unsigned long long asUnsigned;
    };
    using Value = std::variant<Integer, double, std::string>;
    const Value& value() const { return value_; }

private:
    // bool has no unsigned counterpart
    template <class T> using Plain = std::conditional_t<std::same_as<T, bool>, unsigned char, T>;
    Value value_;
};

/// `text` with its conversions filled from `arguments` in order. Any thread but the real-time ones.
QMX_EXPORT std::string formatArguments(std::string_view text, std::initializer_list<FormatArgument> arguments);

template <class... Arguments> std::string format(std::string_view text, const Arguments&... arguments)
{
    return formatArguments(text, {FormatArgument(arguments)...});
}

} // namespace qmx
