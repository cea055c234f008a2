// SPDX-License-Identifier: MIT
#include "Formats/QMXAudioValueRange.h"

QMXAudioValueRange::QMXAudioValueRange(const AudioValueRange& range) : mAudioValueRange(range) {}

std::shared_ptr<QMXAudioValueRange> QMXAudioValueRange::initWithAudioValueRange(const AudioValueRange* range)
{
    return range ? std::make_shared<QMXAudioValueRange>(*range) : nullptr;
}
