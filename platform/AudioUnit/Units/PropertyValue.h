// SPDX-License-Identifier: MIT
// Values of unit properties, which callers hand over as memory of any alignment.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <cstring>

namespace qmx
{

/// Copies `result` to where a caller wants it; noErr.
template <class T> OSStatus answer(void* value, const T& result)
{
    std::memcpy(value, &result, sizeof result);
    return noErr;
}

template <class T> T valueAs(const void* value)
{
    T result;
    std::memcpy(&result, value, sizeof result);
    return result;
}

} // namespace qmx
