// SPDX-License-Identifier: MIT
// divide FILE...: prints where the tracks of recordings start and end, in frames; of what cannot be divided, why.
#include <QMXCoreAudio/qmx.h>

#include <iostream>

int main(int argumentCount, char** arguments)
{
    int status = argumentCount < 2 ? 2 : 0;
    for (int i = 1; i < argumentCount; ++i) {
        const auto tracks = qmx::divide(arguments[i]);
        if (!tracks) {
            std::cerr << tracks.error().text() << '\n';
            status = 1;
            continue;
        }
        for (const qmx::Track& track : *tracks)
            std::cout << track.first << '\t' << track.end << '\t' << track.title << '\n';
    }
    return status;
}
