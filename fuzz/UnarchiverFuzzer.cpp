// SPDX-License-Identifier: MIT
// Any bytes as a sequential archive; an object read from it must be archived in a keyed archive and read back.
#include "ArchiveFuzzing.h"
#include "support/Archives.h"

#include <QMXCoreAudio/Foundation/Archives/Unarchiver.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    qmx::test::Note::registerClass();
    if (const auto object = qmx::Unarchiver::unarchiveObjectWithData({data, size}))
        requireRoundTrip(object);
    return 0;
}
