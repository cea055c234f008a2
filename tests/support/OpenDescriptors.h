// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace qmx::test
{

/// The number of descriptors that the process has open.
inline std::size_t openDescriptors()
{
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(open), end(open)));
}

} // namespace qmx::test
