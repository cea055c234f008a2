// SPDX-License-Identifier: MIT
// How the example programs end early: thrown with the one line that standard error gets, and the exit status.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <string>

namespace example
{

struct Failure {
    std::string line;
    int exitStatus = 1;
};

/// Runs `body` and gives its exit status. A Failure is printed as one line after the program's name. Log lines and
/// failure lines of the library are not shown.
int runProgram(const char* programName, int (*body)(int argumentCount, char** arguments), int argumentCount,
               char** arguments);

/// Writes `text` to standard output, all of it; a Failure when that is not possible.
void printAll(const std::string& text);

/// The text of a system error number.
std::string systemErrorText(int error);

} // namespace example
