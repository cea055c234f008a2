// SPDX-License-Identifier: MIT
#include "Processing/QMXProgressSubscriber.h"

QMXProgressSubscriber::~QMXProgressSubscriber() = default;

void QMXProgressSubscriber::progressUpdate(float) {}
