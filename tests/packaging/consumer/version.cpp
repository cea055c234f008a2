// SPDX-License-Identifier: MIT
// Includes the umbrella header without its folder.
#include <QMXCoreAudio.h>

#include <cstdio>

int main()
{
    std::puts(qmx::version());
}
