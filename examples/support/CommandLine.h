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
    /// Takes the arguments apart. A Failure with exit status 2 for an option that is not among `options` or lacks its value.
    /// `--help` is always known and takes no value.
    CommandLine(int argumentCount, char** arguments, const std::vector<std::string>& options);

    bool asksForHelp() const { return asksForHelp_; }
    const std::vector<std::string>& plainArguments() const { return plain_; }
    std::optional<std::string> text(const std::string& option) const;
    /// The number given with `option`; a Failure with exit status 2 when it is none or lies outside the bounds.
    std::optional<double> number(const std::string& option, double least, double most) const;
    /// The same for whole numbers.
    std::optional<long> wholeNumber(const std::string& option, long least, long most) const;

private:
    std::map<std::string, std::string> values_;
    std::vector<std::string> plain_;
    bool asksForHelp_ = false;
};

} // namespace example
