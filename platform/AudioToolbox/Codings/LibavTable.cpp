// SPDX-License-Identifier: MIT
// The module of codings, made with libavcodec and libavformat.
#include "AudioToolbox/Codings/CodingsModule.h"
#include "AudioToolbox/Codings/Libav.h"
#include "AudioToolbox/Containers/Libav/LibavContainer.h"

extern "C" QMX_EXPORT const qmx::CodingsModule qmxCodings;
const qmx::CodingsModule qmxCodings{{QMX_VERSION},
                                    qmx::libav::makeDecoder,
                                    qmx::libav::makeEncoder,
                                    qmx::libav::decodableCodings,
                                    qmx::libav::encodableCodings,
                                    qmx::libav::codedFiles};
