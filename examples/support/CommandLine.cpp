// SPDX-License-Identifier: MIT
#include "support/CommandLine.h"

#include "support/Failure.h"

#include <QMXCoreAudio/Foundation/Text/Format.h>

#include <algorithm>
#include <charconv>
#include <type_traits>

namespace example
{
namespace
{

constexpr int usageError = 2;

template <class Number> Number parsed(const std::string& option, const std::string& text, Number least, Number most)
{
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    const bool isNumber = error != std::errc::invalid_argument && stop == end;
    if (!isNumber)
        throw Failure{option + " takes a number, not '" + text + "'", usageError};
    if (error != std::errc{} || !(number >= least && number <= most)) {
        const std::string bound = std::is_integral_v<Number> ? "%ld" : "%g";
        throw Failure{
            qmx::format("%@ takes a number from " + bound + " to " + bound + ", not %@", option, least, most, text),
            usageError};
    }
    return number;
}

} // namespace

CommandLine::CommandLine(int argumentCount, char** arguments, const std::vector<std::string>& options,
                         const std::vector<std::string>& flags)
{
    const auto isAmong = [](const std::vector<std::string>& names, const std::string& name) {
        return std::ranges::find(names, name) != names.end();
    };
    bool onlyPlain = false;
    for (int i = 1; i < argumentCount; ++i) {
        const std::string argument = arguments[i];
        if (onlyPlain || argument.size() < 2 || argument[0] != '-') {
            plain_.push_back(argument);
        } else if (argument == "--") {
            onlyPlain = true;
        } else if (argument == "--help" || isAmong(flags, argument)) {
            values_[argument];
        } else {
            const std::size_t equals = argument.find('=');
            const std::string name = argument.substr(0, equals);
            if (isAmong(flags, name))
                throw Failure{name + " takes no value", usageError};
            if (!isAmong(options, name))
                throw Failure{"unknown option " + name + " (--help lists them)", usageError};
            if (equals == std::string::npos && i + 1 == argumentCount)
                throw Failure{name + " needs a value", usageError};
            values_[name].push_back(equals == std::string::npos ? arguments[++i] : argument.substr(equals + 1));
        }
    }
}

std::optional<std::string> CommandLine::text(const std::string& option) const
{
    const auto values = texts(option);
    return values.empty() ? std::nullopt : std::optional(values.back());
}

std::vector<std::string> CommandLine::texts(const std::string& option) const
{
    const auto found = values_.find(option);
    return found == values_.end() ? std::vector<std::string>() : found->second;
}

std::optional<double> CommandLine::number(const std::string& option, double least, double most) const
{
    const auto value = text(option);
    return value ? std::optional(parsed(option, *value, least, most)) : std::nullopt;
}

std::optional<long> CommandLine::wholeNumber(const std::string& option, long least, long most) const
{
    const auto value = text(option);
    return value ? std::optional(parsed(option, *value, least, most)) : std::nullopt;
}

} // namespace example
