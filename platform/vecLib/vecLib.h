// SPDX-License-Identifier: MIT
// Arithmetic on runs of floats. Pure, without allocation: any thread, the real-time ones included.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

/// result[i] = first[i] + second[i] for `count` elements; strides are distances in elements. `result` may be one of the
/// inputs.
QMX_EXPORT void vadd(const Float32* first, SInt32 firstStride, const Float32* second, SInt32 secondStride,
                     Float32* result, SInt32 resultStride, UInt32 count);

/// result[i] = input[i] * *factor for `count` elements; strides are distances in elements. `result` may be the input.
QMX_EXPORT void vsmul(const Float32* input, SInt32 inputStride, const Float32* factor, Float32* result,
                      SInt32 resultStride, UInt32 count);
