// SPDX-License-Identifier: MIT
#include "support/Failure.h"

#include "support/Interrupt.h"

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Text/FailureLine.h>
#include <QMXCoreAudio/Foundation/Text/Log.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <system_error>

namespace example
{
int runProgram(const char* programName, int (*body)(int, char**), int argumentCount, char** arguments)
{
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe is a failed write like any other
    qmx::setLogHandler([](qmx::LogLevel, const std::string&) {});
    qmx::setFailureLineHandler([](OSStatus, const std::string&) {});
    try {
        return body(argumentCount, arguments);
    } catch (const Failure& failure) {
        if (!failure.line.empty())
            std::fprintf(stderr, "%s: %s\n", programName, failure.line.c_str());
        return failure.exitStatus;
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s: %s\n", programName, exception.what());
        return 1;
    }
}

void fail(const qmx::Error& error)
{
    endIfInterrupted();
    throw Failure{error.text() + (error.status() == dupFNErr ? " (--force replaces it)" : "")};
}

void printAll(const std::string& text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        throw Failure{"cannot write to standard output: " + systemErrorText(errno)};
}

std::string systemErrorText(int error)
{
    return std::generic_category().message(error);
}

} // namespace example
