// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Export.h"

/// Hears how far a long operation is, on the thread that runs it. Operations left out do nothing.
class QMX_EXPORT QMXProgressSubscriber
{
public:
    virtual ~QMXProgressSubscriber();

    /// What `progress` counts, usually from 0 to 1, is said by the operation.
    virtual void progressUpdate(float progress);
};
