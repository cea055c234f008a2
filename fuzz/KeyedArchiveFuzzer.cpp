// SPDX-License-Identifier: MIT
// Any bytes as a keyed archive; what gives an object must go into a keyed archive and come back.
#include "ArchiveFuzzing.h"
#include "Foundation/KeyedUnarchiver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    qmx::registerArchiveClass("Note", &AnyNote::decode);
    if (const auto object = qmx::KeyedUnarchiver::unarchiveObjectWithData({data, size}))
        requireRoundTrip(object);
    return 0;
}
