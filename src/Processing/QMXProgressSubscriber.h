// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

/// Receives the progress of a long operation, on the thread that runs it. Operations that are not overridden do
/// nothing.
class QMX_EXPORT QMXProgressSubscriber
{
public:
    virtual ~QMXProgressSubscriber();

    /// `progress` usually runs from 0 to 1; an operation that counts otherwise says so.
    virtual void progressUpdate(float progress);
};
