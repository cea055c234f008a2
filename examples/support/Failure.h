// SPDX-License-Identifier: MIT
// The exception that ends an example program early, with one line for standard error and the exit status.
#pragma once

#include <QMXCoreAudio/Front/Result.h>

#include <string>
#include <type_traits>
#include <utility>

namespace example
{

struct Failure {
    std::string line;
    int exitStatus = 1;
};

/// Runs `body` and returns its exit status. A Failure is printed as one line after the program's name. Log lines and
/// failure lines of the library are not shown.
int runProgram(const char* programName, int (*body)(int argumentCount, char** arguments), int argumentCount,
               char** arguments);

/// Ends the program by a Failure with the error's text, or by a silent one after Ctrl-C.
[[noreturn]] void fail(const qmx::Error& error);
/// What a result holds; otherwise the program ends.
template <class Value> Value valueOf(qmx::Result<Value> result)
{
    if (!result)
        fail(result.error());
    if constexpr (!std::is_void_v<Value>)
        return *std::move(result);
}

/// Writes all of `text` to standard output; a Failure if that is not possible.
void printAll(const std::string& text);

/// The text of a system error number.
std::string systemErrorText(int error);

} // namespace example
