// SPDX-License-Identifier: MIT
#include "vecLib/vecLib.h"

#include <cstddef>

// Strides of 1 have loops of their own, which become vector instructions.

void vadd(const Float32* first, SInt32 firstStride, const Float32* second, SInt32 secondStride, Float32* result,
          SInt32 resultStride, UInt32 count)
{
    if (firstStride == 1 && secondStride == 1 && resultStride == 1) {
        for (std::size_t i = 0; i < count; ++i)
            result[i] = first[i] + second[i];
        return;
    }
    for (std::ptrdiff_t i = 0; i < static_cast<std::ptrdiff_t>(count); ++i)
        result[i * resultStride] = first[i * firstStride] + second[i * secondStride];
}

void vsmul(const Float32* input, SInt32 inputStride, const Float32* factor, Float32* result, SInt32 resultStride,
           UInt32 count)
{
    const Float32 by = *factor;
    if (inputStride == 1 && resultStride == 1) {
        for (std::size_t i = 0; i < count; ++i)
            result[i] = input[i] * by;
        return;
    }
    for (std::ptrdiff_t i = 0; i < static_cast<std::ptrdiff_t>(count); ++i)
        result[i * resultStride] = input[i * inputStride] * by;
}
