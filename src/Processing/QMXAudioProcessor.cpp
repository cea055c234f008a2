// SPDX-License-Identifier: MIT
#include "Processing/QMXAudioProcessor.h"

QMXAudioProcessor::~QMXAudioProcessor() = default;
