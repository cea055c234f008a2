// SPDX-License-Identifier: MIT
// The exception that ends an example program early, with one line for standard error and the exit status.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

#include <string>

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

/// Writes all of `text` to standard output; a Failure if that is not possible.
void printAll(const std::string& text);

/// The text of a system error number.
std::string systemErrorText(int error);

} // namespace example
