// SPDX-License-Identifier: MIT
#include <QMXCoreAudio/Foundation/Version.h>

#include <cstdio>

int main()
{
    std::puts(qmx::version());
}
