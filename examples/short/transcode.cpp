// SPDX-License-Identifier: MIT
// transcode IN OUT: converts to the type that OUT ends in, with the progress in percent; Ctrl-C leaves nothing behind.
#include <QMXCoreAudio/qmx.h>

#include <csignal>
#include <iostream>

namespace
{
volatile std::sig_atomic_t isInterrupted = 0;
}

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 3)
        return 2;
    std::signal(SIGINT, [](int) { isInterrupted = 1; });
    const auto report = [](float done) {
        std::cout << '\r' << static_cast<int>(done * 100) << " %" << std::flush;
        return isInterrupted == 0;
    };
    const auto converted = qmx::convert(arguments[1], arguments[2], {.progress = report});
    if (converted)
        std::cout << '\n';
    else if (!converted.error().isCancelled())
        std::cerr << converted.error().text() << '\n';
    return converted ? 0 : converted.error().isCancelled() ? 130 : 1;
}
