// SPDX-License-Identifier: MIT
#include "Foundation/Text/Format.h"

#include <algorithm>
#include <clocale>
#include <cstdio>

namespace qmx
{
namespace
{

constexpr std::string_view missing = "(?)";
constexpr int widest = 4096; // a width or precision beyond this is cut to it

// One conversion: "%", flags, width, precision, length letters and conversion letter.
struct Conversion {
    std::string flagsAndWidth; // as written, without "%"
    char letter = 0;
};

std::size_t parseNumber(std::string_view text, std::size_t at, std::string& into)
{
    int number = 0;
    const std::size_t start = at;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
        number = std::min(widest, number * 10 + (text[at] - '0'));
    if (at > start)
        into += std::to_string(number);
    return at;
}

std::size_t parseConversion(std::string_view text, std::size_t at, Conversion& conversion)
{
    while (at < text.size() && std::string_view("-+ #0").find(text[at]) != std::string_view::npos)
        conversion.flagsAndWidth += text[at++];
    at = parseNumber(text, at, conversion.flagsAndWidth);
    if (at < text.size() && text[at] == '.') {
        conversion.flagsAndWidth += '.';
        at = parseNumber(text, at + 1, conversion.flagsAndWidth);
    }
    while (at < text.size() && std::string_view("hlqzjt").find(text[at]) != std::string_view::npos)
        ++at;
    if (at < text.size())
        conversion.letter = text[at++];
    return at;
}

/// While one exists, the calling thread writes numbers with a point, whatever the program's locale.
class PlainNumbers
{
public:
    PlainNumbers() : before_(uselocale(plain())) {}
    ~PlainNumbers() { uselocale(before_); }
    PlainNumbers(const PlainNumbers&) = delete;
    PlainNumbers& operator=(const PlainNumbers&) = delete;

private:
    static locale_t plain()
    {
        static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
        return locale;
    }
    const locale_t before_;
};

template <class Value> std::string print(const Conversion& conversion, const char* lettersBehind, Value value)
{
    const std::string spec = "%" + conversion.flagsAndWidth + lettersBehind;
    const int length = std::snprintf(nullptr, 0, spec.c_str(), value);
    if (length < 0)
        return std::string(missing);
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::snprintf(text.data(), text.size(), spec.c_str(), value);
    text.pop_back();
    return text;
}

std::string printInteger(const Conversion& conversion, const FormatArgument::Integer& value)
{
    switch (conversion.letter) {
    case 'd':
    case 'i':
        return print(conversion, "lld", value.asSigned);
    case 'u':
        return print(conversion, "llu", value.asUnsigned);
    case 'x':
        return print(conversion, "llx", value.asUnsigned);
    case 'X':
        return print(conversion, "llX", value.asUnsigned);
    case 'o':
        return print(conversion, "llo", value.asUnsigned);
    case 'c':
        return print(conversion, "c", static_cast<int>(static_cast<unsigned char>(value.asUnsigned)));
    case 'p':
        return "0x" + print(conversion, "llx", value.asUnsigned);
    default:
        return std::string(missing);
    }
}

std::string printValue(const Conversion& conversion, const FormatArgument::Value& value)
{
    if (const auto* integer = std::get_if<FormatArgument::Integer>(&value))
        return printInteger(conversion, *integer);
    if (const auto* number = std::get_if<double>(&value)) {
        const char letters[] = {conversion.letter, '\0'};
        return std::string_view("fFeEgG").find(conversion.letter) != std::string_view::npos
                   ? print(conversion, letters, *number)
                   : std::string(missing);
    }
    const std::string& text = std::get<std::string>(value);
    if (conversion.letter == '@')
        return text;
    return conversion.letter == 's' ? print(conversion, "s", text.c_str()) : std::string(missing);
}

} // namespace

std::string formatArguments(std::string_view text, std::initializer_list<FormatArgument> arguments)
{
    const PlainNumbers plainNumbers;
    std::string result;
    auto next = arguments.begin();
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] != '%') {
            result += text[at++];
            continue;
        }
        Conversion conversion;
        at = parseConversion(text, at + 1, conversion);
        if (conversion.letter == '%')
            result += '%';
        else if (next == arguments.end())
            result += missing;
        else
            result += printValue(conversion, (next++)->value());
    }
    return result;
}

} // namespace qmx
