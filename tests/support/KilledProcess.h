// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>
#include <cstddef>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qmx::test
{

/// Runs `work` in a new process, kills that after `reports` reports, and returns the last number that it reported.
/// `work` receives a function that reports a number, and has to return when that returns false.
template <class Work> std::size_t killAfter(int reports, Work work)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        work([&](std::size_t number) { return write(ends[1], &number, sizeof number) == sizeof number; });
        _exit(1);
    }
    close(ends[1]);
    std::size_t reported = 0;
    for (int i = 0; read(ends[0], &reported, sizeof reported) == sizeof reported; ++i)
        if (i == reports)
            kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status)) << "it ended before it was killed";
    close(ends[0]);
    return reported;
}

} // namespace qmx::test
