// SPDX-License-Identifier: MIT
// Any bytes as a binary property list; a readable one must be written, read back and written to the same bytes.
#include <QMXCoreAudio/Foundation/Archives/PropertyList.h>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto value = qmx::parseBinaryPropertyList({data, size});
    if (!value)
        return 0;
    const auto written = qmx::binaryPropertyListData(*value);
    const auto again = qmx::parseBinaryPropertyList(written);
    if (!again || qmx::binaryPropertyListData(*again) != written)
        std::abort();
    return 0;
}
