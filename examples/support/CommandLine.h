// SPDX-License-Identifier: MIT
// Options of the form `--name value` or `--name=value`, mixed with plain arguments.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace example
{

class CommandLine
{
public:
    /// Parses the arguments. A Failure with exit status 2 for an unknown option, an option without a value, or a flag
    /// with one. `--help` is always a flag.
    CommandLine(int argumentCount, char** arguments, const std::vector<std::string>& options,
                const std::vector<std::string>& flags = {});

    bool asksForHelp() const { return has("--help"); }
    bool has(const std::string& option) const { return values_.contains(option); }
    const std::vector<std::string>& plainArguments() const { return plain_; }
    /// The value given with `option`; the last one if it was given more than once.
    std::optional<std::string> text(const std::string& option) const;
    /// All values given with `option`, in order.
    std::vector<std::string> texts(const std::string& option) const;
    /// The number given with `option`; a Failure with exit status 2 if it is no number or outside the bounds.
    std::optional<double> number(const std::string& option, double least, double most) const;
    /// The same for whole numbers.
    std::optional<long> wholeNumber(const std::string& option, long least, long most) const;

private:
    std::map<std::string, std::vector<std::string>> values_;
    std::vector<std::string> plain_;
};

} // namespace example
